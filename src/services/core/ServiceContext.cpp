// SPDX-License-Identifier: MIT
// A context's state: invalidation and the one evaluation it may run.
#include "ServiceContext.h"

#include "Evaluation.h"
#include "ServiceErrors.h"
#include "tessiva/kavelin/KVServiceErrors.h"

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(busyMessage, "The context is already running an evaluation.");
} // namespace

ServiceContext::ServiceContext(ObRef<ObData> handle, ObRef<ObString> creator) noexcept
    : handle_(std::move(handle)), creator_(std::move(creator)) {}

ServiceContext::~ServiceContext() = default;

bool ServiceContext::isInvalidated() {
    std::lock_guard lock(mutex_);
    return invalidated_;
}

ObRef<ObError> ServiceContext::begin(const ObRef<Evaluation>& evaluation) {
    std::lock_guard lock(mutex_);
    if (invalidated_)
        return invalidatedContextError();
    if (running_)
        return kvError(KVErrorEvaluationInProgress, &busyMessage);
    running_ = evaluation;
    return nullptr;
}

void ServiceContext::finish(const Evaluation& evaluation) {
    // The caller holds the evaluation, so letting go here never destroys it.
    std::lock_guard lock(mutex_);
    if (running_.get() == &evaluation)
        running_ = nullptr;
}

ObRef<Evaluation> ServiceContext::runningEvaluation() {
    std::lock_guard lock(mutex_);
    return running_;
}

ObRef<Evaluation> ServiceContext::invalidate() {
    std::lock_guard lock(mutex_);
    invalidated_ = true;
    return std::exchange(running_, nullptr);
}

const char* ServiceContext::className() const noexcept {
    return "ServiceContext";
}
} // namespace tessiva::detail
