// A context's state: invalidation and the one evaluation it may run.
#include "SimulatedContext.h"

#include "PasscodeEvaluation.h"
#include "ServiceErrors.h"
#include "tessiva/kavelin/KVSimulatedService.h"

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(busyMessage, "The context is already running an evaluation.");
} // namespace

SimulatedContext::SimulatedContext(ObRef<ObData> handle, ObRef<ObString> creator) noexcept
    : handle_(std::move(handle)), creator_(std::move(creator)) {}

SimulatedContext::~SimulatedContext() = default;

bool SimulatedContext::isInvalidated() {
    std::lock_guard lock(mutex_);
    return invalidated_;
}

ObRef<ObError> SimulatedContext::begin(const ObRef<PasscodeEvaluation>& evaluation) {
    std::lock_guard lock(mutex_);
    if (invalidated_)
        return invalidatedContextError();
    if (running_)
        return serviceError(KVErrorEvaluationInProgress, &busyMessage);
    running_ = evaluation;
    return nullptr;
}

void SimulatedContext::finish(const PasscodeEvaluation& evaluation) {
    // The caller holds the evaluation, so letting go here never destroys it.
    std::lock_guard lock(mutex_);
    if (running_.get() == &evaluation)
        running_ = nullptr;
}

ObRef<PasscodeEvaluation> SimulatedContext::runningEvaluation() {
    std::lock_guard lock(mutex_);
    return running_;
}

ObRef<PasscodeEvaluation> SimulatedContext::invalidate() {
    std::lock_guard lock(mutex_);
    invalidated_ = true;
    return std::exchange(running_, nullptr);
}

const char* SimulatedContext::className() const noexcept {
    return "SimulatedContext";
}
} // namespace tessiva::detail
