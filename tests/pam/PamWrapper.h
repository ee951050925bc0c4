// SPDX-License-Identifier: MIT
// What runs a process under pam_wrapper, so that PAM reads only the services
// of one directory: the variables to give it. Writes the leak suppressions
// into the directory too.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace tessiva::test {
inline std::vector<std::pair<std::string, std::string>>
pamWrapperVariables(const std::filesystem::path& serviceDirectory) {
    // libpam loses some memory when pam_start fails (no such service); that
    // leak is PAM's, not Tessiva's. libpam has no frame pointers, so only a
    // slow unwind (below) finds pam_start in the leak's stack.
    std::ofstream(serviceDirectory / "lsan.supp") << "leak:pam_start\n";
    const char* asan = std::getenv("ASAN_OPTIONS");
    const char* lsan = std::getenv("LSAN_OPTIONS");
    return {
        // The system service asks the system bus for a fingerprint reader:
        // these tests must never reach the machine's own bus.
        {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tessiva-system-bus"},
        {"PAM_WRAPPER", "1"},
        {"PAM_WRAPPER_SERVICE_DIR", serviceDirectory.string()},
        {"LD_PRELOAD", TESSIVA_PAM_WRAPPER_LIBRARY},
        // Sanitizer runtimes object to a library preloaded before them, and
        // to pam_wrapper's deep binding of modules.
        {"PAM_WRAPPER_DISABLE_DEEPBIND", "1"},
        // What pam_wrapper 1.1.4 (Debian 12) reads instead.
        {"UID_WRAPPER_DISABLE_DEEPBIND", "1"},
        {"ASAN_OPTIONS", std::string(asan != nullptr ? asan : "") +
                             ":verify_asan_link_order=0:fast_unwind_on_malloc=0"},
        {"LSAN_OPTIONS", std::string(lsan != nullptr ? lsan : "") +
                             ":suppressions=" + (serviceDirectory / "lsan.supp").string()},
    };
}
} // namespace tessiva::test
