// SPDX-License-Identifier: MIT
// The PAM conversation function: PAM's messages turned into the evaluation's
// passcode rounds and notices.
#pragma once

#include "services/core/Verifier.h"

#include <security/pam_appl.h>
#include <string>

namespace tessiva::detail {
// What a PAM handle's conversation talks to; lives as long as the handle.
struct PamConversationState {
    // The attempt's conversation, set for the length of each pam_authenticate.
    Conversation* conversation = nullptr;
    // The text of a PAM_PROMPT_ECHO_ON prompt that was refused, if any.
    std::string refusedPrompt;
    // The modules' notices and errors since the last password prompt: those
    // of pam_acct_mgmt ("Your account has expired...") never reach a prompt,
    // so a failure's description carries them.
    std::string sinceLastPrompt;
};

// A pam_conv function; appdata is a PamConversationState. Password prompts
// are answered by the evaluation, notices handed to it; on a prompt that
// cannot be answered it returns PAM_CONV_ERR with no responses.
int converseWithEvaluation(int count, const pam_message** messages, pam_response** responses,
                           void* appdata);
} // namespace tessiva::detail
