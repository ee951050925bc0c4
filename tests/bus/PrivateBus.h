// SPDX-License-Identifier: MIT
// Processes for the daemon's tests: a private dbus-daemon started with
// private-bus.conf, and tessivad on it. Nothing reaches the machine's buses.
#pragma once

#include "ChildProcess.h"

namespace tessiva::test {

// A dbus-daemon of the test's own; on the given address, or on one it
// chooses in /tmp; with private-bus.conf unless another configuration is
// named.
class PrivateBus {
public:
    explicit PrivateBus(const std::string& listen = "unix:tmpdir=/tmp",
                        const std::string& config = TESSIVA_BUS_CONFIG)
        : process_({TESSIVA_DBUS_DAEMON, "--config-file=" + config, "--nofork", "--print-address=1",
                    "--address=" + listen}),
          address_(process_.readLine()) {
        if (address_.empty())
            throw std::runtime_error("the private dbus-daemon did not start");
    }
    const std::string& address() const noexcept { return address_; }

private:
    ChildProcess process_;
    std::string address_;
};

#ifdef TESSIVA_DAEMON
// tessivad on a private bus, ready once constructed; for the suites that
// build it.
class DaemonProcess {
public:
    DaemonProcess(const std::string& address, std::vector<std::string> options = {},
                  std::vector<std::string> env = {})
        : process_(withDaemon(address, std::move(options)), std::move(env)) {
        if (process_.readLine() != "tessivad: ready")
            throw std::runtime_error("tessivad did not start");
    }
    // Stops it as systemd would; its exit status.
    int stop() {
        process_.signal(SIGTERM);
        return process_.wait();
    }

private:
    static std::vector<std::string> withDaemon(const std::string& address,
                                               std::vector<std::string> options) {
        options.insert(options.begin(), {TESSIVA_DAEMON, "--address", address});
        return options;
    }
    ChildProcess process_;
};
#endif

} // namespace tessiva::test
