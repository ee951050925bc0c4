// Processes for the daemon's tests: a private dbus-daemon started with
// private-bus.conf, and tessivad on it. Nothing reaches the machine's buses.
#pragma once

#include "ChildProcess.h"

namespace tessiva::test {

// A dbus-daemon of the test's own; on the given address, or on one of its
// own choosing.
class PrivateBus {
public:
    explicit PrivateBus(const std::string& listen = "")
        : process_(arguments(listen)), address_(process_.readLine()) {
        if (address_.empty())
            throw std::runtime_error("the private dbus-daemon did not start");
    }
    const std::string& address() const noexcept { return address_; }

private:
    static std::vector<std::string> arguments(const std::string& listen) {
        std::vector<std::string> argv = {TESSIVA_DBUS_DAEMON, "--config-file=" TESSIVA_BUS_CONFIG,
                                         "--nofork", "--print-address=1"};
        if (!listen.empty())
            argv.push_back("--address=" + listen);
        return argv;
    }
    ChildProcess process_;
    std::string address_;
};

// tessivad on a private bus, ready once constructed.
class DaemonProcess {
public:
    DaemonProcess(const std::string& address, std::vector<std::string> options = {},
                  std::vector<std::string> env = {})
        : process_(arguments(address, std::move(options)), std::move(env)) {
        if (process_.readLine() != "tessivad: ready")
            throw std::runtime_error("tessivad did not start");
    }
    // Stops it as systemd would; its exit status.
    int stop() {
        process_.signal(SIGTERM);
        return process_.wait();
    }

private:
    static std::vector<std::string> arguments(const std::string& address,
                                              std::vector<std::string> options) {
        std::vector<std::string> argv = {TESSIVA_DAEMON, "--address", address};
        argv.insert(argv.end(), options.begin(), options.end());
        return argv;
    }
    ChildProcess process_;
};

} // namespace tessiva::test
