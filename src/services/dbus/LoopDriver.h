// SPDX-License-Identifier: MIT
// LoopDriver: how work that runs on a loop's own thread waits (a daemon's
// evaluation that waits only for its caller): it serves the loop meanwhile,
// and asks again after each look or when its condition is notified from
// another thread.
#pragma once

#include "EventLoop.h"
#include "services/core/Condition.h"

#include <mutex>

namespace tessiva::detail::bus {
class LoopDriver final : public WaitDriver {
public:
    explicit LoopDriver(EventLoop& loop) noexcept : loop_(loop) {}

    bool wait(std::unique_lock<std::mutex>& lock, std::optional<Clock::time_point> deadline,
              const std::function<bool()>& done) override {
        std::mutex& mutex = *lock.mutex();
        lock.unlock();
        loop_.waitUntil(
            [&] {
                std::lock_guard held(mutex);
                return done();
            },
            deadline, &wake_);
        lock.lock();
        return done();
    }
    void wake() noexcept override {
        // Notified on the loop's own thread, from within the wait's look:
        // the wait asks again after it anyway.
        if (!loop_.onLoopThread())
            wake_.signal();
    }
    // Not inside the loop's dispatch, which cannot run again from within.
    bool usable() const noexcept override {
        return wake_.fd() >= 0 && loop_.onLoopThread() && !loop_.dispatching();
    }

private:
    EventLoop& loop_;
    const Wakeup wake_;
};
} // namespace tessiva::detail::bus
