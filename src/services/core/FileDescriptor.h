// SPDX-License-Identifier: MIT
// FileDescriptor: one open descriptor, closed exactly once.
#pragma once

#include <unistd.h>

namespace tessiva::detail {
class FileDescriptor {
public:
    // Takes over `fd`; a negative one is "none".
    explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0)
            close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const noexcept { return fd_; }

private:
    const int fd_;
};
} // namespace tessiva::detail
