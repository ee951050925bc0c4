// SPDX-License-Identifier: MIT
// dbus-broker on a socket of the benchmark's own, started the way systemd
// starts it: systemd-socket-activate binds the socket and, at the first
// connection, hands it to dbus-broker-launch, which runs the broker as its
// child. The launcher logs only to the journal and gives up without one; on a
// machine that has none (a container) it runs in a mount namespace of its
// own, whose /run holds a stand-in journal socket drained into the error
// file. That takes root.
#pragma once

#include <string>
#include <sys/types.h>
#include <thread>

namespace tessiva::bench {
// A file descriptor, closed with its owner.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();
    int get() const noexcept { return fd_; }

private:
    int fd_;
};

class BrokerBus {
public:
    // Starts the broker listening at the path `socket`; its errors and log
    // lines go to `errorFile`.
    BrokerBus(const std::string& socket, const std::string& errorFile);
    BrokerBus(const BrokerBus&) = delete;
    BrokerBus& operator=(const BrokerBus&) = delete;

    // dbus-broker-launch (systemd-socket-activate until the first
    // connection), the broker's parent.
    pid_t pid() const noexcept { return launcher_.pid; }

private:
    // The stand-in journal: a datagram socket whose messages a thread copies
    // to the error file until the socket is shut down.
    struct Journal {
        explicit Journal(int fd) noexcept : socket(fd) {}
        ~Journal();
        Descriptor socket;
        std::jthread drain;
    };
    // Ended (SIGTERM) and waited for with its owner.
    struct Child {
        pid_t pid = -1;
        ~Child();
    };

    // Destroyed in reverse: the launcher ends before its journal and error
    // file close.
    Descriptor errors_;
    Journal journal_;
    Child launcher_;
};
} // namespace tessiva::bench
