// SPDX-License-Identifier: MIT
// Wakeup: an eventfd that one thread makes readable to end another's poll.
#pragma once

#include "FileDescriptor.h"

#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tessiva::detail {
class Wakeup {
public:
    Wakeup() noexcept : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    // -1 when no eventfd could be made.
    int fd() const noexcept { return fd_.get(); }
    // Makes the descriptor readable; safe from any thread.
    void signal() const noexcept {
        const std::uint64_t one = 1;
        if (fd() >= 0)
            (void)!write(fd(), &one, sizeof one);
    }
    // Makes it unreadable again.
    void clear() const noexcept {
        std::uint64_t count = 0;
        if (fd() >= 0)
            (void)!read(fd(), &count, sizeof count);
    }

private:
    const FileDescriptor fd_;
};
} // namespace tessiva::detail
