// SPDX-License-Identifier: MIT
// Answering PAM's messages: responses are allocated as PAM expects (it frees
// them), and every copy of a password that Tessiva owns is wiped.
#include "PamConversation.h"

#include <cstdlib>
#include <cstring>

namespace tessiva::detail {
namespace {
void discard(pam_response* responses, int count) {
    for (int index = 0; index < count; ++index) {
        if (char* text = responses[index].resp) {
            explicit_bzero(text, std::strlen(text));
            std::free(text);
        }
    }
    std::free(responses);
}

// A malloc'd copy for PAM to take over, or null when memory ran out.
char* handOver(const SecretText& secret) {
    const std::string_view text = secret.text();
    auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text.data(), text.size());
        copy[text.size()] = '\0';
    }
    return copy;
}

// One message's response into `response`; false when the conversation fails.
bool answer(const pam_message& message, pam_response& response, PamConversationState& state) {
    const char* text = message.msg != nullptr ? message.msg : "";
    switch (message.msg_style) {
    case PAM_PROMPT_ECHO_OFF: {
        state.sinceLastPrompt.clear();
        std::optional<SecretText> passcode = state.conversation->askPasscode();
        if (!passcode)
            return false;
        response.resp = handOver(*passcode);
        return response.resp != nullptr;
    }
    case PAM_TEXT_INFO:
    case PAM_ERROR_MSG:
        state.conversation->tell(text);
        if (!state.sinceLastPrompt.empty())
            state.sinceLastPrompt += ' ';
        state.sinceLastPrompt += text;
        return true;
    case PAM_PROMPT_ECHO_ON:
        // Tessiva names the user itself; visible input is not asked of a user.
        state.refusedPrompt = text;
        return false;
    default:
        return false;
    }
}
} // namespace

int converseWithEvaluation(int count, const pam_message** messages, pam_response** responses,
                           void* appdata) {
    auto* state = static_cast<PamConversationState*>(appdata);
    if (count <= 0 || messages == nullptr || responses == nullptr || state == nullptr ||
        state->conversation == nullptr)
        return PAM_CONV_ERR;
    auto* made = static_cast<pam_response*>(
        std::calloc(static_cast<std::size_t>(count), sizeof(pam_response)));
    if (made == nullptr)
        return PAM_BUF_ERR;
    for (int index = 0; index < count; ++index) {
        if (!answer(*messages[index], made[index], *state)) {
            discard(made, count);
            return PAM_CONV_ERR;
        }
    }
    *responses = made;
    return PAM_SUCCESS;
}
} // namespace tessiva::detail
