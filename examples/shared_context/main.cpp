// SPDX-License-Identifier: MIT
// Two processes, one authentication context, through the daemon tessivad.
// The first sets up a credential reference, authenticates through its
// delegate and prints the credential handle; the second restores the
// context from that handle, evaluates in it and reads UsedPasscode by tag.
// Both run with TESSIVA_SERVICE=bus, as the same user.
//
//   shared_context first [passcode]            prints the handle in hexadecimal
//   shared_context second HANDLE [passcode]
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/object/Ob.h"
#include "tessiva/os/ObSemaphore.h"

#include <cstdio>
#include <string>
#include <utility>

namespace {

// Answers each passcode prompt with the passcode.
class PasscodeDelegate final : public VRUIDelegate {
public:
    explicit PasscodeDelegate(std::string passcode) : passcode_(std::move(passcode)) {}

    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        const ObRef<ObNumber> active =
            params ? ob_cast<ObNumber>(params->objectForKey(VREventParamActive)) : nullptr;
        if (event && event->isEqual(VREventPasscode) && active && active->boolValue())
            reply(ObDictionary::make({{VREventConsentResponse, ObString::make(passcode_)}}),
                  nullptr);
    }

private:
    std::string passcode_;
};

int fail(const char* step, const ObRef<ObError>& error) {
    std::fprintf(stderr, "%s failed: %s\n", step, ObFormat("%@", error)->cString());
    return 1;
}

std::string hex(const ObRef<ObData>& data) {
    std::string text;
    char digits[3];
    for (ObUInteger i = 0; i < data->length(); ++i) {
        std::snprintf(digits, sizeof digits, "%02x", unsigned{data->bytes()[i]});
        text += digits;
    }
    return text;
}

ObRef<ObData> fromHex(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return ObData::make(bytes.data(), bytes.size());
}

// Sets up the reference on the handle's context (a new one when absent).
ObRef<ObError> setUp(const ObRef<VRCredentialReference>& reference, const ObRef<ObData>& handle,
                     const std::string& passcode) {
    ObSemaphore done;
    ObRef<ObError> error;
    reference->setupWithCredentialHandle_uiDelegate_reply(
        handle, ObMake<PasscodeDelegate>(passcode), [&](ObRef<ObError> setupError) {
            error = std::move(setupError);
            done.signal();
        });
    done.wait();
    return error;
}

} // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    const bool second = mode == "second" && argc > 2;
    if (mode != "first" && !second) {
        std::fprintf(stderr, "usage: shared_context first [passcode] | second HANDLE [passcode]\n");
        return 2;
    }
    const int passcodeArgument = second ? 3 : 2;
    const std::string passcode = argc > passcodeArgument ? argv[passcodeArgument] : "1234";

    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    if (ObRef<ObError> error = setUp(reference, second ? fromHex(argv[2]) : nullptr, passcode))
        return fail("set-up", error);
    ObRef<ObError> error;
    if (!reference->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, nullptr, &error))
        return fail("evaluation", error);
    if (!second) {
        // The context stays in the daemon after this process ends.
        std::printf("%s\n", hex(reference->credentialHandle()).c_str());
        return 0;
    }
    std::printf("context made by %s\n", reference->creatorDisplayName()->cString());
    std::printf("UsedPasscode: %s\n",
                ObFormat("%@", reference->resultForTag(VRResultTagUsedPasscode))->cString());
    reference->invalidate();
    return 0;
}
