// SPDX-License-Identifier: MIT
// SimulatedService: the simulated service's implementation: the shared
// service machinery judged by a passcode of its own.
#pragma once

#include "PasscodeVerifier.h"
#include "ScriptedScanner.h"
#include "services/core/ServiceCore.h"
#include "tessiva/kavelin/KVSimulatedService.h"

namespace tessiva::detail {
class SimulatedService final : public KVSimulatedService {
public:
    SimulatedService();

    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                        const ObRef<KVUIDelegate>& uiDelegate,
                                                        KVClientReply reply) override;
    void setPasscode(const ObRef<ObString>& passcode) override;
    ObRef<ObString> passcode() override;
    void setACLRule(KVACLRule rule) override;
    void replaceReader(KVSimulatedReader reader);

    const char* className() const noexcept override;

private:
    const ObRef<PasscodeVerifierSource> passcodes_;
    const ObRef<ServiceCore> core_;
};
} // namespace tessiva::detail
