// SPDX-License-Identifier: MIT
// dbus-broker on a socket of the caller's own, started the way systemd
// starts it: the socket is bound and listening before dbus-broker-launch
// runs, and handed to it as systemd's first passed descriptor; the launcher
// runs the broker as its child. The launcher logs only to the journal and
// gives up without one; on a machine that has none (a container) it runs in
// a mount namespace of its own, whose /run holds a stand-in journal socket
// drained into the error file. That takes root.
//
// For the daemon's suites, which run on dbus-daemon and again on dbus-broker
// (PrivateBus.h), and for the daemon benchmark.
#pragma once

#include "services/core/FileDescriptor.h"

#include <string>
#include <sys/types.h>
#include <thread>

namespace tessiva::test {
class BrokerBus {
public:
    // Starts the broker on the socket `socket` (which it replaces) with the
    // bus configuration `config`, whose <type> chooses the launcher's scope;
    // ready once constructed. Its errors and log lines go to `errorFile`, or
    // to this process's standard error when none is named.
    BrokerBus(const std::string& socket, const std::string& config,
              const std::string& errorFile = {});
    BrokerBus(const BrokerBus&) = delete;
    BrokerBus& operator=(const BrokerBus&) = delete;

    const std::string& address() const noexcept { return address_; }
    // dbus-broker-launch, the broker's parent.
    pid_t pid() const noexcept { return launcher_.pid; }

private:
    using FileDescriptor = detail::FileDescriptor;
    // The stand-in journal: a datagram socket whose messages a thread copies
    // to the error file until the socket is shut down.
    struct Journal {
        explicit Journal(int fd) noexcept : socket(fd) {}
        ~Journal();
        FileDescriptor socket;
        std::jthread drain;
    };
    // Ended (SIGTERM) and waited for with its owner; the broker, which ends
    // once its launcher has, is waited for through `broker`, a pidfd.
    struct Launcher {
        pid_t pid = -1;
        int broker = -1;
        std::string socket;
        ~Launcher();
    };

    // Destroyed in reverse: the launcher ends before its journal and error
    // file close.
    FileDescriptor errors_;
    Journal journal_;
    Launcher launcher_;
    std::string address_;
};
} // namespace tessiva::test
