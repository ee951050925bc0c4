// SPDX-License-Identifier: MIT
// A driver waits with the condition's users' mutex let go of; it is on the
// condition's list from before then, so no notification can fall between.
#include "Condition.h"

#include <algorithm>
#include <utility>

namespace tessiva::detail {
namespace {
thread_local WaitDriver* threadDriver = nullptr;
} // namespace

WaitDriver::Scope::Scope(WaitDriver& driver) noexcept
    : outer_(std::exchange(threadDriver, &driver)) {}

WaitDriver::Scope::~Scope() {
    threadDriver = outer_;
}

WaitDriver* WaitDriver::current() noexcept {
    return threadDriver != nullptr && threadDriver->usable() ? threadDriver : nullptr;
}

void Condition::notifyAll() noexcept {
    changed_.notify_all();
    std::lock_guard lock(driversMutex_);
    for (WaitDriver* driver : drivers_)
        driver->wake();
}

bool Condition::driven(WaitDriver& driver, std::unique_lock<std::mutex>& lock,
                       std::optional<Clock::time_point> deadline,
                       const std::function<bool()>& done) {
    if (done())
        return true;
    {
        std::lock_guard listed(driversMutex_);
        drivers_.push_back(&driver);
    }
    const bool met = driver.wait(lock, deadline, done);
    std::lock_guard listed(driversMutex_);
    drivers_.erase(std::find(drivers_.begin(), drivers_.end(), &driver));
    return met;
}
} // namespace tessiva::detail
