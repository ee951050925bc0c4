// SPDX-License-Identifier: MIT
// Reading the kernel's random source, with no weaker source behind it.
#include "RandomBytes.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/random.h>
#include <sys/types.h>

namespace tessiva::detail {
namespace {
[[noreturn]] void noRandomness(int error) noexcept {
    std::fprintf(stderr, "tessiva: the kernel gives no random bytes (getrandom: %s)\n",
                 std::strerror(error));
    std::abort();
}
} // namespace

void fillRandomBytes(void* buffer, std::size_t size) noexcept {
    auto* next = static_cast<unsigned char*>(buffer);
    while (size > 0) {
        const ssize_t got = getrandom(next, size, 0);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            noRandomness(errno);
        }
        next += got;
        size -= static_cast<std::size_t>(got);
    }
}

} // namespace tessiva::detail
