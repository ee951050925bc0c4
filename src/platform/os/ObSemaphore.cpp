// SPDX-License-Identifier: MIT
// A counting semaphore over a mutex and a condition variable.
#include "tessiva/os/ObSemaphore.h"

void ObSemaphore::signal() {
    // Notified under the lock: a waiter cannot return, and so cannot destroy
    // the semaphore, before this call has finished with it. The synchronous
    // forms and their callers destroy a semaphore as soon as the wait returns.
    std::lock_guard lock(mutex_);
    ++count_;
    available_.notify_one();
}

void ObSemaphore::wait() {
    std::unique_lock lock(mutex_);
    available_.wait(lock, [this] { return count_ > 0; });
    --count_;
}
