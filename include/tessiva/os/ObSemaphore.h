// SPDX-License-Identifier: MIT
// ObSemaphore: a counting semaphore that waits without time-out.
#pragma once

#include "tessiva/object/ObDefines.h"

#include <condition_variable>
#include <mutex>

class TESSIVA_PLATFORM_API ObSemaphore {
public:
    explicit ObSemaphore(ObInteger initialCount = 0) noexcept : count_(initialCount) {}
    ObSemaphore(const ObSemaphore&) = delete;
    ObSemaphore& operator=(const ObSemaphore&) = delete;

    // Adds one to the count and wakes one waiter.
    void signal();
    // Waits, for ever if need be, until the count is positive, then takes one.
    void wait();

private:
    std::mutex mutex_;
    std::condition_variable available_;
    ObInteger count_;
};
