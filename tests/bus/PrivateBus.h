// SPDX-License-Identifier: MIT
// Processes for the daemon's tests: a private bus, and tessivad on it.
// Nothing reaches the machine's buses. The bus is dbus-daemon, or
// dbus-broker when TESSIVA_TEST_BUS says so: ctest runs the suites on both,
// so that nothing depends on one bus.
#pragma once

#include "BrokerBus.h"
#include "ChildProcess.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace tessiva::test {

// A bus of the test's own, with private-bus.conf unless another
// configuration is named; listening where `listen` says (a path, or a new
// socket in a directory).
class PrivateBus {
public:
    explicit PrivateBus(const std::string& listen = "unix:tmpdir=/tmp",
                        const std::string& config = TESSIVA_BUS_CONFIG) {
        if (onBroker()) {
            broker_ = std::make_unique<BrokerBus>(socketFor(listen), config);
            address_ = broker_->address();
            return;
        }
        daemon_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{TESSIVA_DBUS_DAEMON, "--config-file=" + config, "--nofork",
                                     "--print-address=1", "--address=" + listen});
        address_ = daemon_->readLine();
        if (address_.empty())
            throw std::runtime_error("the private dbus-daemon did not start");
    }
    const std::string& address() const noexcept { return address_; }

private:
    static bool onBroker() {
        const char* bus = std::getenv("TESSIVA_TEST_BUS");
        if (bus == nullptr || std::string_view(bus) == "dbus-daemon")
            return false;
        if (std::string_view(bus) == "dbus-broker")
            return true;
        throw std::runtime_error("TESSIVA_TEST_BUS names no bus this suite knows: " +
                                 std::string(bus));
    }
    // dbus-broker listens where it is told: the path, or a fresh name in the
    // directory.
    static std::string socketFor(const std::string& listen) {
        static std::atomic<int> made{0};
        for (std::string_view prefix : {"unix:path=", "unix:dir=", "unix:tmpdir="}) {
            if (!listen.starts_with(prefix))
                continue;
            const std::string where = listen.substr(prefix.size());
            if (prefix == "unix:path=")
                return where;
            return where + "/tessiva-bus-" + std::to_string(getpid()) + "-" +
                   std::to_string(made++);
        }
        throw std::runtime_error("no socket for dbus-broker in " + listen);
    }

    std::unique_ptr<ChildProcess> daemon_;
    std::unique_ptr<BrokerBus> broker_;
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
