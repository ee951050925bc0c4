// SPDX-License-Identifier: MIT
// Every wait in a test ends by a deadline of its own, so that a fault shows
// as a failure naming what was awaited, never as a hang until ctest's
// time-out. A wait that runs out throws WaitTimedOut, which GoogleTest
// reports with its message.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

namespace tessiva::test {

inline constexpr std::chrono::seconds testDeadline{10};

struct WaitTimedOut : std::runtime_error {
    explicit WaitTimedOut(const std::string& what)
        : std::runtime_error("waited " + std::to_string(testDeadline.count()) + " s for " + what +
                             " in vain") {}
};

inline std::chrono::steady_clock::time_point deadlineFromNow() {
    return std::chrono::steady_clock::now() + testDeadline;
}

// The future's value, once it has one.
template <class T> T await(std::future<T>&& future, const std::string& what) {
    if (future.wait_until(deadlineFromNow()) != std::future_status::ready)
        throw WaitTimedOut(what);
    return future.get();
}

// Asks until the condition holds; for what only polling can observe, such as
// another process's state.
inline void waitUntil(const std::function<bool()>& condition, const std::string& what) {
    for (const auto deadline = deadlineFromNow(); !condition(); std::this_thread::yield())
        if (std::chrono::steady_clock::now() > deadline)
            throw WaitTimedOut(what);
}

} // namespace tessiva::test
