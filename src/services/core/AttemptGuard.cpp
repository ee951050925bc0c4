// SPDX-License-Identifier: MIT
// Counting one user's failed verifications, and making the next one wait.
#include "AttemptGuard.h"

#include "ServiceErrors.h"
#include "tessiva/kavelin/KVServiceErrors.h"

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(lockedOutMessage,
                   "Too many failed attempts for this user; authentication is locked for now.");
} // namespace

ObRef<ObError> AttemptGuard::lockedOutError() {
    return kvError(KVErrorAuthenticationFailed, &lockedOutMessage);
}

AttemptGuard::Admission AttemptGuard::enter(const std::function<bool()>& stopped,
                                            std::optional<Clock::time_point> deadline) {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (stopped())
            return Admission::stopped;
        const Clock::time_point now = Clock::now();
        if (deadline && now >= *deadline)
            return Admission::stopped;
        if (now < lockedUntil_)
            return Admission::lockedOut;
        forgetOldFailures(now);
        const bool turnFree = failures_.size() + running_ < limits_.deny;
        if (turnFree && now >= nextAllowed_) {
            ++running_;
            return Admission::admitted;
        }
        // Woken by a turn's end, by wake(), or when the delay is over.
        std::optional<Clock::time_point> until = deadline;
        if (turnFree && (!until || nextAllowed_ < *until))
            until = nextAllowed_;
        const std::uint64_t seen = changes_;
        // Cut short, with nothing changed: the waiting thread can wait no
        // longer (its daemon is ending).
        if (!changed_.wait(lock, until, [&] { return changes_ != seen; }) &&
            (!until || Clock::now() < *until))
            return Admission::stopped;
    }
}

void AttemptGuard::leave(bool failed) {
    {
        std::lock_guard lock(mutex_);
        --running_;
        const Clock::time_point now = Clock::now();
        if (!failed) {
            failures_.clear();
        } else {
            forgetOldFailures(now);
            failures_.push_back(now);
            nextAllowed_ = now + limits_.failDelay;
            if (failures_.size() >= limits_.deny) {
                lockedUntil_ = now + limits_.unlockTime;
                failures_.clear(); // unlocked, the user starts afresh
            }
        }
        ++changes_;
    }
    changed_.notifyAll();
}

void AttemptGuard::forgetOldFailures(Clock::time_point now) {
    while (!failures_.empty() && now - failures_.front() >= limits_.failInterval)
        failures_.pop_front();
}

void AttemptGuard::wake() {
    {
        std::lock_guard lock(mutex_);
        ++changes_;
    }
    changed_.notifyAll();
}
} // namespace tessiva::detail
