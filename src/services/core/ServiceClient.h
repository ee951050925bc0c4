// SPDX-License-Identifier: MIT
// ServiceClient: a KVClient of a Tessiva service, on one context and with
// its own user-interface delegate.
#pragma once

#include "ServiceContext.h"
#include "ServiceCore.h"

namespace tessiva::detail {
class ServiceClient final : public KVClient {
public:
    ServiceClient(ObRef<ServiceCore> service, ObRef<ServiceContext> context,
                  ObRef<KVUIDelegate> delegate) noexcept
        : service_(std::move(service)), context_(std::move(context)),
          delegate_(std::move(delegate)) {}

    ObRef<ObData> externalizedContext() override { return context_->handle(); }
    void invalidate() override;
    ObRef<ObString> creatorDisplayName() override { return context_->creator(); }

    // For a daemon: the client acts for the requester from now on. Called
    // once, before the client's first evaluation.
    void actFor(Requester requester) { requester_ = std::move(requester); }

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
    // Starts the evaluation, or gives the error that stops it from starting.
    ObRef<ObError> startEvaluation(ObInteger policy, const ObRef<ObDictionary>& options,
                                   const KVResultReply& reply);

    const ObRef<ServiceCore> service_;
    const ObRef<ServiceContext> context_;
    const ObRef<KVUIDelegate> delegate_;
    Requester requester_;
};
} // namespace tessiva::detail
