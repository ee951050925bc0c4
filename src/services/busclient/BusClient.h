// SPDX-License-Identifier: MIT
// BusClient: a KVClient whose context lives in the daemon; each operation
// is one method call on its link.
#pragma once

#include "BusLink.h"
#include "tessiva/kavelin/KVClient.h"

namespace tessiva::detail::bus {
class BusClient final : public KVClient {
public:
    BusClient(std::shared_ptr<BusLink> link, std::string id, ObRef<ObData> handle,
              ObRef<ObString> creator, ObRef<KVUIDelegate> delegate) noexcept
        : link_(std::move(link)), id_(std::move(id)), handle_(std::move(handle)),
          creator_(std::move(creator)), delegate_(std::move(delegate)) {}
    // Tells the daemon, which lets go of the context's client.
    ~BusClient() override;

    ObRef<ObData> externalizedContext() override { return handle_; }
    void invalidate() override;
    ObRef<ObString> creatorDisplayName() override { return creator_; }

    void evaluatePolicy_options_reply(ObInteger policy, const ObRef<ObDictionary>& options,
                                      KVResultReply reply) override;
    void evaluateACL_operation_options_reply(const ObRef<ObObject>& acl,
                                             const ObRef<ObObject>& operation,
                                             const ObRef<ObDictionary>& options,
                                             KVResultReply reply) override;
    void enterPassword_reply(const ObRef<ObObject>& password, KVSuccessReply reply) override;
    void failProcessedEvent_failureError_reply(ObInteger event, const ObRef<ObObject>& failureError,
                                               KVSuccessReply reply) override;

    const char* className() const noexcept override;

private:
    // A request whose reply is (b success, v error), answered before it returns.
    void requestSuccess(const char* member, const ArgumentWriter& write,
                        const KVSuccessReply& reply);

    const std::shared_ptr<BusLink> link_;
    const std::string id_; // the client's path in the daemon
    const ObRef<ObData> handle_;
    const ObRef<ObString> creator_;
    const ObRef<KVUIDelegate> delegate_; // gets the notices evaluations end with
};
} // namespace tessiva::detail::bus
