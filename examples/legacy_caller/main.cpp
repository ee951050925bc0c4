// SPDX-License-Identifier: MIT
// A caller written against the VR interface alone: it sets up a credential
// reference with its own user-interface delegate, evaluates a policy with
// hints, answering the passcode prompt, and reads a result by tag. Without
// authentication hardware, Tessiva's simulated service answers; its
// passcode is "1234" unless TESSIVA_PASSCODE says otherwise.
//
//   legacy_caller [passcode]
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/VRVersion.h"
#include "tessiva/object/Ob.h"
#include "tessiva/os/ObSemaphore.h"

#include <cstdio>
#include <string>
#include <utility>

namespace {

// Taken from the library during this program's own static initialisation:
// the exported constants are ready before any code of the library has run.
const std::string usedPasscodeTag(VRResultTagUsedPasscode->text());

// Answers each passcode prompt with the passcode; ignores everything else.
class PasscodeDelegate final : public VRUIDelegate {
public:
    explicit PasscodeDelegate(std::string passcode) : passcode_(std::move(passcode)) {}

    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        std::printf("event %s %s\n", ObFormat("%@", event)->cString(),
                    ObFormat("%@", params)->cString());
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
    std::printf("%s failed: %s\n", step, ObFormat("%@", error)->cString());
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    std::printf("Tessiva %.1f\n", TessivaVersionNumber);

    // Set-up with a delegate has only the asynchronous form: wait for it.
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    ObSemaphore setUp;
    ObRef<ObError> error;
    reference->setupWithCredentialHandle_uiDelegate_reply(
        nullptr, ObMake<PasscodeDelegate>(argc > 1 ? argv[1] : "1234"),
        [&](ObRef<ObError> setupError) {
            error = std::move(setupError);
            setUp.signal();
        });
    setUp.wait();
    if (error)
        return fail("set-up", error);
    std::printf("set up, handle of %lu bytes\n", reference->credentialHandle()->length());

    // Two passcode attempts at most.
    const ObRef<ObDictionary> hints =
        ObDictionary::make({{VRHintMaxPasscodeFailures, ObNumber::make(2)}});
    if (!reference->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, hints, &error))
        return fail("evaluation", error);
    std::printf("evaluated\n");

    const ObRef<ObObject> used = reference->resultForTag(VRResultTagUsedPasscode);
    std::printf("%s: %s\n", usedPasscodeTag.c_str(), ObFormat("%@", used)->cString());
    reference->invalidate();
    return 0;
}
