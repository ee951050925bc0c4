// SPDX-License-Identifier: MIT
// LoopDriver: how work that runs on a loop's own thread waits (a daemon's
// evaluation that waits only for its caller): it serves the loop meanwhile,
// and asks again after each look or when its condition is notified from
// another thread.
#pragma once

#include "EventLoop.h"
#include "services/core/Condition.h"

#include <cstdint>
#include <mutex>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tessiva::detail::bus {
class LoopDriver final : public WaitDriver {
public:
    explicit LoopDriver(EventLoop& loop)
        : loop_(loop), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~LoopDriver() {
        if (wake_ >= 0)
            close(wake_);
    }
    LoopDriver(const LoopDriver&) = delete;
    LoopDriver& operator=(const LoopDriver&) = delete;

    bool wait(std::unique_lock<std::mutex>& lock, std::optional<Clock::time_point> deadline,
              const std::function<bool()>& done) override {
        std::mutex& mutex = *lock.mutex();
        lock.unlock();
        loop_.waitUntil(
            [&] {
                std::lock_guard held(mutex);
                return done();
            },
            deadline, wake_);
        lock.lock();
        return done();
    }
    void wake() noexcept override {
        // Notified on the loop's own thread, from within the wait's look:
        // the wait asks again after it anyway.
        if (loop_.onLoopThread())
            return;
        const std::uint64_t one = 1;
        (void)!write(wake_, &one, sizeof one);
    }
    // Not inside the loop's dispatch, which cannot run again from within.
    bool usable() const noexcept override {
        return wake_ >= 0 && loop_.onLoopThread() && !loop_.dispatching();
    }

private:
    EventLoop& loop_;
    const int wake_;
};
} // namespace tessiva::detail::bus
