// SPDX-License-Identifier: MIT
// AttemptGuard: one user's guessing, counted across all of that user's
// contexts and processes, in the manner of pam_faillock. No more
// verifications run at once than failures the user has left before the
// lockout, so that parallel guesses never add up to more than `deny`; after
// each failure the next waits `failDelay`; once `deny` failures fall within
// `failInterval`, every verification is refused, the right answer too,
// until `unlockTime` after the last failure. A success
// clears the count. An evaluation's own limit on failures (option 1004) only
// ends that evaluation sooner; it never lets the user guess more.
#pragma once

#include "Condition.h"
#include "tessiva/object/ObError.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace tessiva::detail {
struct AttemptLimits {
    unsigned deny = 3;
    std::chrono::seconds failInterval{900};
    std::chrono::seconds unlockTime{600};
    std::chrono::milliseconds failDelay{2000};
};

class AttemptGuard final : public ObObject {
public:
    using Clock = std::chrono::steady_clock;

    explicit AttemptGuard(AttemptLimits limits) noexcept : limits_(limits) {}

    enum class Admission { admitted, stopped, lockedOut };
    // Waits for the user's turn to verify: until admitted, locked out, the
    // deadline, or `stopped` (asked whenever the guard is woken) says so.
    // Admitted, the caller must call leave once the verification ends.
    Admission enter(const std::function<bool()>& stopped,
                    std::optional<Clock::time_point> deadline);
    // Ends the turn; `failed` when the answer given was judged wrong.
    void leave(bool failed);
    // Makes waiting callers ask `stopped` again.
    void wake();

    // The error a locked-out verification ends with.
    static ObRef<ObError> lockedOutError();

    const char* className() const noexcept override { return "AttemptGuard"; }

private:
    void forgetOldFailures(Clock::time_point now);

    const AttemptLimits limits_;
    std::mutex mutex_;
    Condition changed_;
    std::uint64_t changes_ = 0;              // turns ended and wakes, for waits to see
    unsigned running_ = 0;                   // verifications admitted and not yet left
    std::deque<Clock::time_point> failures_; // within the interval, oldest first
    Clock::time_point nextAllowed_{};
    Clock::time_point lockedUntil_{};
};
} // namespace tessiva::detail
