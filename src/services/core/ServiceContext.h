// SPDX-License-Identifier: MIT
// ServiceContext: one authentication context of a Tessiva service, as
// shared by every client that reaches it through its handle.
#pragma once

#include "tessiva/object/ObData.h"
#include "tessiva/object/ObError.h"
#include "tessiva/object/ObString.h"

#include <mutex>

namespace tessiva::detail {
class Evaluation;

class ServiceContext final : public ObObject {
public:
    // Defined where Evaluation is complete..
    ServiceContext(ObRef<ObData> handle, ObRef<ObString> creator) noexcept;
    ~ServiceContext() override;

    const ObRef<ObData>& handle() const noexcept { return handle_; }
    const ObRef<ObString>& creator() const noexcept { return creator_; }

    bool isInvalidated();
    // Makes the evaluation the context's running one; the error when the
    // context was invalidated or already runs one.
    ObRef<ObError> begin(const ObRef<Evaluation>& evaluation);
    // Ends the evaluation's turn, when it is still the running one.
    void finish(const Evaluation& evaluation);
    ObRef<Evaluation> runningEvaluation();
    // Ends the context; returns the evaluation it was running, for the caller
    // to stop outside the lock.
    ObRef<Evaluation> invalidate();

    const char* className() const noexcept override;

private:
    const ObRef<ObData> handle_;
    const ObRef<ObString> creator_;
    std::mutex mutex_;
    bool invalidated_ = false;
    ObRef<Evaluation> running_;
};
} // namespace tessiva::detail
