// SPDX-License-Identifier: MIT
// ServiceCore: what every Tessiva service shares: its contexts by handle, its
// ACL rule, and the verifier source through which the service judges.
#pragma once

#include "ServiceContext.h"
#include "Verifier.h"
#include "tessiva/kavelin/KVClient.h"
#include "tessiva/kavelin/KVServiceErrors.h"

#include <mutex>

namespace tessiva::detail {
class ServiceCore final : public ObObject {
public:
    // The clients' class name tells the services apart in log lines.
    ServiceCore(ObRef<VerifierSource> verifiers, const char* clientClassName);

    // Replies on the calling thread: a client on a new context (context
    // absent) or on the one the handle names, else KVErrorInvalidContext.
    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                        const ObRef<KVUIDelegate>& uiDelegate,
                                                        KVClientReply reply);
    const ObRef<VerifierSource>& verifiers() const noexcept { return verifiers_; }
    const char* clientClassName() const noexcept { return clientClassName_; }
    void setACLRule(KVACLRule rule);
    KVACLRule aclRule();
    // Drops the context, so that its handle no longer reaches it.
    void forget(const ServiceContext& context);

    const char* className() const noexcept override;

private:
    ObRef<ServiceContext> newContext();

    const ObRef<VerifierSource> verifiers_;
    const char* const clientClassName_;
    std::mutex mutex_;
    // Handle (ObData) to ServiceContext.
    const ObRef<ObMutableDictionary> contexts_;
    KVACLRule aclRule_;
};
} // namespace tessiva::detail
