// SimulatedService: the simulated service's implementation: its contexts by
// handle, its passcode and its ACL rule.
#pragma once

#include "SimulatedContext.h"
#include "tessiva/kavelin/KVSimulatedService.h"

#include <mutex>

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
    KVACLRule aclRule();
    // Drops the context, so that its handle no longer reaches it.
    void forget(const SimulatedContext& context);

    const char* className() const noexcept override;

private:
    ObRef<SimulatedContext> newContext();

    std::mutex mutex_;
    // Handle (ObData) to SimulatedContext.
    const ObRef<ObMutableDictionary> contexts_;
    ObRef<ObString> passcode_;
    KVACLRule aclRule_;
};
} // namespace tessiva::detail
