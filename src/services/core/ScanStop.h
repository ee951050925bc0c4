// SPDX-License-Identifier: MIT
// A request to stop a blocking wait from another thread, which the waiter
// can poll with its other descriptors (an eventfd, readable once requested).
#pragma once

#include <atomic>
#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tessiva::detail {
class ScanStop {
public:
    ScanStop() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~ScanStop() {
        if (fd_ >= 0)
            close(fd_);
    }
    ScanStop(const ScanStop&) = delete;
    ScanStop& operator=(const ScanStop&) = delete;

    // Safe from any thread, any number of times.
    void request() noexcept {
        if (requested_.exchange(true))
            return;
        const std::uint64_t one = 1;
        if (fd_ >= 0)
            (void)!write(fd_, &one, sizeof one);
    }
    bool requested() const noexcept { return requested_.load(); }
    // Readable once requested; -1 when no eventfd could be made, in which
    // case a waiter must poll requested() at a short interval instead.
    int fd() const noexcept { return fd_; }

private:
    const int fd_;
    std::atomic<bool> requested_{false};
};
} // namespace tessiva::detail
