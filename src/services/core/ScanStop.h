// SPDX-License-Identifier: MIT
// A request to stop a blocking wait from another thread, which the waiter
// can poll with its other descriptors (an eventfd, readable once requested).
#pragma once

#include "Wakeup.h"

#include <atomic>

namespace tessiva::detail {
class ScanStop {
public:
    // Safe from any thread, any number of times.
    void request() noexcept {
        if (!requested_.exchange(true))
            wakeup_.signal();
    }
    bool requested() const noexcept { return requested_.load(); }
    // Readable once requested; -1 when no eventfd could be made, in which
    // case a waiter must poll requested() at a short interval instead.
    int fd() const noexcept { return wakeup_.fd(); }

private:
    Wakeup wakeup_;
    std::atomic<bool> requested_{false};
};
} // namespace tessiva::detail
