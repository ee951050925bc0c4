// SPDX-License-Identifier: MIT
// Comparing an answer with the simulated service's passcode.
#include "PasscodeVerifier.h"

#include "services/core/RidgeIdentity.h"
#include "services/core/ServiceErrors.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/ObMake.h"

#include <cstdlib>

namespace tessiva::detail {
namespace {
constexpr ObInteger ridgeScanPolicy = 1;

OB_CONSTANT_STRING(defaultPasscodeText, KVSimulatedService::defaultPasscode);
OB_CONSTANT_STRING(noSensorMessage, "This device has no ridge-scan sensor.");

ObRef<ObString> passcodeFromEnvironment() {
    const char* value = std::getenv("TESSIVA_PASSCODE");
    if (value == nullptr || *value == '\0')
        return &defaultPasscodeText;
    return ObString::make(value);
}

class PasscodeVerifier final : public Verifier {
public:
    explicit PasscodeVerifier(ObRef<ObString> passcode) noexcept : passcode_(std::move(passcode)) {}

    Verification verify(Conversation& conversation) override {
        std::optional<SecretText> answer = conversation.askPasscode();
        const bool right = answer && answer->text() == passcode_->text();
        return {right ? Verdict::accepted : Verdict::rejected, nullptr};
    }

    bool judgesPassphrase() const override {
        for (char c : passcode_->text())
            if (c < '0' || c > '9')
                return true;
        return false;
    }

    bool judgesAtOnce() const override { return true; }

    const char* className() const noexcept override { return "PasscodeVerifier"; }

private:
    const ObRef<ObString> passcode_;
};
} // namespace

PasscodeVerifierSource::PasscodeVerifierSource()
    : passcode_(passcodeFromEnvironment()), scanner_(ObMake<ScriptedScanner>()),
      identityKey_(freshIdentityKey()) {}

ObRef<Verifier> PasscodeVerifierSource::verifierForPolicy(ObInteger policy, const Requester&,
                                                          ObRef<ObError>* error) {
    // Asked for policy 1 only when the device has no reader.
    if (policy == ridgeScanPolicy) {
        *error = kvError(KVErrorBiometryNotAvailable, &noSensorMessage);
        return nullptr;
    }
    return ObMake<PasscodeVerifier>(passcode());
}

ObRef<RidgeScanner> PasscodeVerifierSource::ridgeScanner() {
    return scanner_->present() ? ObRef<RidgeScanner>(scanner_) : nullptr;
}

void PasscodeVerifierSource::setPasscode(const ObRef<ObString>& passcode) {
    std::lock_guard lock(mutex_);
    // An empty passcode would let an empty answer in: it means the default.
    passcode_ =
        passcode && passcode->length() > 0 ? passcode : ObRef<ObString>(&defaultPasscodeText);
}

ObRef<ObString> PasscodeVerifierSource::passcode() {
    std::lock_guard lock(mutex_);
    return passcode_;
}

const char* PasscodeVerifierSource::className() const noexcept {
    return "PasscodeVerifierSource";
}
} // namespace tessiva::detail
