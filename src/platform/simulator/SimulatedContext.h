// SimulatedContext: one authentication context of the simulated service, as
// shared by every client that reaches it through its handle.
#pragma once

#include "tessiva/object/ObData.h"
#include "tessiva/object/ObError.h"
#include "tessiva/object/ObString.h"

#include <mutex>

namespace tessiva::detail {
class PasscodeEvaluation;

class SimulatedContext final : public ObObject {
public:
    // Defined where PasscodeEvaluation is complete.
    SimulatedContext(ObRef<ObData> handle, ObRef<ObString> creator) noexcept;
    ~SimulatedContext() override;

    const ObRef<ObData>& handle() const noexcept { return handle_; }
    const ObRef<ObString>& creator() const noexcept { return creator_; }

    bool isInvalidated();
    // Makes the evaluation the context's running one; the error when the
    // context was invalidated or already runs one.
    ObRef<ObError> begin(const ObRef<PasscodeEvaluation>& evaluation);
    // Ends the evaluation's turn, when it is still the running one.
    void finish(const PasscodeEvaluation& evaluation);
    ObRef<PasscodeEvaluation> runningEvaluation();
    // Ends the context; returns the evaluation it was running, for the caller
    // to stop outside the lock.
    ObRef<PasscodeEvaluation> invalidate();

    const char* className() const noexcept override;

private:
    const ObRef<ObData> handle_;
    const ObRef<ObString> creator_;
    std::mutex mutex_;
    bool invalidated_ = false;
    ObRef<PasscodeEvaluation> running_;
};
} // namespace tessiva::detail
