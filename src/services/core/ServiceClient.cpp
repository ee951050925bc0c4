// SPDX-License-Identifier: MIT
// The client operations every Tessiva service shares.
#include "ServiceClient.h"

#include "Evaluation.h"
#include "ServiceErrors.h"
#include "ServiceThread.h"
#include "ServiceVocabulary.h"
#include "platform/os/UserName.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVServiceErrors.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObMake.h"

#include <unistd.h>

namespace tessiva::detail {
namespace {
constexpr ObInteger ridgeScanPolicy = 1;
constexpr ObInteger firstPasscodePolicy = 1000;
constexpr ObInteger lastPasscodePolicy = 1007;

OB_CONSTANT_STRING(notInteractiveMessage,
                   "The evaluation needs the user, and user interaction is not allowed.");
OB_CONSTANT_STRING(deniedMessage, "The ACL does not allow the operation.");
OB_CONSTANT_STRING(noPasscodeWantedMessage, "No evaluation is waiting for a passcode.");
OB_CONSTANT_STRING(stoppedMessage, "The application stopped the evaluation.");
OB_CONSTANT_STRING(noThreadMessage, "The service has no thread to evaluate on.");
OB_CONSTANT_STRING(invalidatedCancelMessage, "The context was invalidated during the evaluation.");

bool isKnownPolicy(ObInteger policy) {
    return policy == ridgeScanPolicy ||
           (policy >= firstPasscodePolicy && policy <= lastPasscodePolicy);
}
} // namespace

void ServiceClient::invalidate() {
    ObRef<Evaluation> running = context_->invalidate();
    service_->forget(*context_);
    if (running)
        running->fail(kvError(KVErrorAppCancel, &invalidatedCancelMessage));
}

void ServiceClient::evaluatePolicy_options_reply(ObInteger policy,
                                                 const ObRef<ObDictionary>& options,
                                                 KVResultReply reply) {
    if (ObRef<ObError> error = startEvaluation(policy, options, reply)) {
        // Replies come from a service thread even when nothing was started;
        // with none to be had, from this one.
        auto refuse = [reply, error] { reply(nullptr, error); };
        if (!requester_.run(refuse, true))
            refuse();
    }
}

ObRef<ObError> ServiceClient::startEvaluation(ObInteger policy, const ObRef<ObDictionary>& options,
                                              const KVResultReply& reply) {
    if (context_->isInvalidated())
        return invalidatedContextError();
    if (!isKnownPolicy(policy))
        return kvError(KVErrorInvalidParameter, ObFormat("Unknown policy: %ld", policy));
    ObRef<ObError> error;
    const ObRef<VerifierSource>& source = service_->verifiers();
    Methods methods;
    methods.scanner = source->ridgeScanner();
    // Policy 1 needs no password, unless the service judges it by one.
    if (policy != ridgeScanPolicy || !methods.scanner) {
        methods.password = source->verifierForPolicy(policy, requester_, &error);
        if (!methods.password)
            return error;
    }
    // The service's user if it has one (the system service's, which is the
    // caller's in a daemon), else the daemon's caller, else the process's.
    methods.user = source->userToScan();
    if (methods.user.empty())
        methods.user = requester_.user.empty() ? userName(geteuid()) : requester_.user;
    if (methods.scanner)
        methods.identityKey = source->identityKey();
    std::optional<EvaluationOptions> read = EvaluationOptions::read(options, &error);
    if (!read)
        return error;
    if (!read->interactive)
        return kvError(KVErrorNotInteractive, &notInteractiveMessage);

    // Without a reader, an evaluation whose verifier judges at once waits
    // only for its caller.
    const bool waitsOnlyOnCaller =
        !methods.scanner && methods.password && methods.password->judgesAtOnce();
    auto evaluation = ObMake<Evaluation>(*read, policy, std::move(methods), delegate_, context_,
                                         requester_.guard, reply);
    if (ObRef<ObError> refused = context_->begin(evaluation))
        return refused;
    if (!requester_.run([evaluation] { evaluation->run(); }, waitsOnlyOnCaller)) {
        context_->finish(*evaluation);
        return kvError(KVErrorServiceUnavailable, &noThreadMessage);
    }
    return nullptr;
}

void ServiceClient::evaluateACL_operation_options_reply(const ObRef<ObObject>& acl,
                                                        const ObRef<ObObject>& operation,
                                                        const ObRef<ObDictionary>&,
                                                        KVResultReply reply) {
    if (context_->isInvalidated()) {
        reply(nullptr, invalidatedContextError());
        return;
    }
    KVACLRule rule = service_->aclRule();
    if (rule && !rule(acl, operation)) {
        reply(nullptr, kvError(KVErrorACLDenied, &deniedMessage));
        return;
    }
    reply(ObDictionary::make(), nullptr);
}

void ServiceClient::enterPassword_reply(const ObRef<ObObject>& password, KVSuccessReply reply) {
    if (context_->isInvalidated()) {
        reply(false, invalidatedContextError());
        return;
    }
    ObRef<Evaluation> running = context_->runningEvaluation();
    if (!running || !running->enterPasscode(password)) {
        reply(false, kvError(KVErrorNoEventProcessed, &noPasscodeWantedMessage));
        return;
    }
    reply(true, nullptr);
}

void ServiceClient::failProcessedEvent_failureError_reply(ObInteger event,
                                                          const ObRef<ObObject>& failureError,
                                                          KVSuccessReply reply) {
    if (context_->isInvalidated()) {
        reply(false, invalidatedContextError());
        return;
    }
    ObRef<Evaluation> running = context_->runningEvaluation();
    ObRef<ObError> error = ob_cast<ObError>(failureError);
    if (!error)
        error = kvError(KVErrorAppCancel, &stoppedMessage);
    if (!running || !running->failEvent(event, error)) {
        reply(false, kvError(KVErrorNoEventProcessed,
                             ObFormat("No evaluation is processing event %ld.", event)));
        return;
    }
    reply(true, nullptr);
}

const char* ServiceClient::className() const noexcept {
    return service_->clientClassName();
}
} // namespace tessiva::detail
