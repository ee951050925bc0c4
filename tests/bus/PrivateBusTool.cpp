// SPDX-License-Identifier: MIT
// private_bus CONFIG: a private bus as the daemon's suites start theirs
// (PrivateBus.h), for the suites' scripts (with-daemon, as-system-bus):
// dbus-daemon, or dbus-broker when TESSIVA_TEST_BUS says so. Prints the bus's
// address, then holds the bus until told to stop (SIGTERM, SIGINT, SIGHUP).
#include "PrivateBus.h"

#include <csignal>
#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("Usage: private_bus CONFIG\n", stderr);
        return 2;
    }
    // Blocked before any thread starts, so that every thread leaves them to
    // the wait below.
    sigset_t stop;
    sigemptyset(&stop);
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&stop, signal);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    try {
        const tessiva::test::PrivateBus bus("unix:tmpdir=/tmp", argv[1]);
        std::printf("%s\n", bus.address().c_str());
        std::fflush(stdout);
        int received = 0;
        sigwait(&stop, &received);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "private_bus: %s\n", error.what());
        return 1;
    }
    return 0;
}
