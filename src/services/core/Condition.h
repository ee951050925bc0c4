// SPDX-License-Identifier: MIT
// Condition: a condition variable whose waits a thread may spend serving
// something else. A daemon runs an evaluation that waits only for what its
// bus brings on the bus loop's own thread; while the evaluation waits, the
// thread goes on serving the bus through a WaitDriver, so the evaluation
// costs no hand-off to a thread of its own and back.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace tessiva::detail {
class WaitDriver {
public:
    using Clock = std::chrono::steady_clock;

    // This thread's waits go through the driver while the scope lasts.
    class Scope {
    public:
        explicit Scope(WaitDriver& driver) noexcept;
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        WaitDriver* outer_;
    };
    // The driver of this thread's waits, if any and if it can drive now.
    static WaitDriver* current() noexcept;

    // Serves until `done()`, asked with `lock` held, holds or the deadline
    // passes, with `lock` let go of meanwhile; whether `done()` held. False
    // before the deadline too when the driver can serve no longer.
    virtual bool wait(std::unique_lock<std::mutex>& lock, std::optional<Clock::time_point> deadline,
                      const std::function<bool()>& done) = 0;
    // Makes a wait ask `done()` again; from any thread, under any lock.
    virtual void wake() noexcept = 0;
    // Whether this thread's waits may go through the driver now.
    virtual bool usable() const noexcept = 0;

protected:
    ~WaitDriver() = default;
};

class Condition {
public:
    using Clock = WaitDriver::Clock;

    // Waits until `done()` or the deadline; whether `done()` held. Through
    // the thread's driver, if it has one, and else on the condition.
    template <class Done>
    bool wait(std::unique_lock<std::mutex>& lock, std::optional<Clock::time_point> deadline,
              Done done) {
        if (WaitDriver* driver = WaitDriver::current())
            return driven(*driver, lock, deadline, done);
        if (!deadline) {
            changed_.wait(lock, done);
            return true;
        }
        return changed_.wait_until(lock, *deadline, done);
    }
    // Wakes every wait, those on a driver too.
    void notifyAll() noexcept;

private:
    bool driven(WaitDriver& driver, std::unique_lock<std::mutex>& lock,
                std::optional<Clock::time_point> deadline, const std::function<bool()>& done);

    std::condition_variable changed_;
    std::mutex driversMutex_;
    std::vector<WaitDriver*> drivers_; // those waiting now
};
} // namespace tessiva::detail
