// SPDX-License-Identifier: MIT
// The one lookup of a uid's login name, for the PAM service (the process's
// own user) and the daemon (each caller's).
#pragma once

#include <cerrno>
#include <pwd.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tessiva::detail {
// The login name of the uid; empty when the system has none. Grows its
// buffer for long entries (up to 1 MiB), as getpwuid_r asks.
inline std::string userName(uid_t uid) {
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(1024);
    int result = 0;
    while ((result = getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found)) == ERANGE &&
           buffer.size() < 1024 * 1024)
        buffer.resize(buffer.size() * 4);
    return result == 0 && found != nullptr ? std::string(found->pw_name) : std::string();
}
} // namespace tessiva::detail
