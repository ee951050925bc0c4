// SPDX-License-Identifier: MIT
// The simulated service's judge: the passcode it holds, compared with the
// user's answer.
#pragma once

#include "ScriptedScanner.h"
#include "services/core/Verifier.h"
#include "tessiva/object/ObString.h"

#include <mutex>

namespace tessiva::detail {
// Makes the verifiers of the simulated service's evaluations; each keeps the
// passcode that was current when its evaluation started. Holds its reader.
class PasscodeVerifierSource final : public VerifierSource {
public:
    PasscodeVerifierSource();

    ObRef<Verifier> verifierForPolicy(ObInteger policy, const Requester& requester,
                                      ObRef<ObError>* error) override;
    // Absent restores the default.
    void setPasscode(const ObRef<ObString>& passcode);
    ObRef<ObString> passcode();
    const ObRef<ScriptedScanner>& scanner() const noexcept { return scanner_; }
    // Absent while the device has no reader.
    ObRef<RidgeScanner> ridgeScanner() override;
    std::string identityKey() override { return identityKey_; }

    const char* className() const noexcept override;

private:
    std::mutex mutex_;
    ObRef<ObString> passcode_;
    const ObRef<ScriptedScanner> scanner_;
    const std::string identityKey_;
};
} // namespace tessiva::detail
