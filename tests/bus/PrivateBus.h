// Processes for the daemon's tests: a private dbus-daemon started with
// private-bus.conf, and tessivad on it. Nothing reaches the machine's buses.
#pragma once

#include "support/Deadline.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

extern char** environ;

namespace tessiva::test {

// A child process whose standard output the test reads line by line.
class ChildProcess {
public:
    // Runs argv with this process's environment and the variables added.
    ChildProcess(const std::vector<std::string>& argv,
                 const std::vector<std::string>& extraEnv = {}) {
        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe failed");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        // The variables added replace those of the same name.
        std::vector<std::string> env = extraEnv;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string_view name(*entry, std::strcspn(*entry, "="));
            if (std::none_of(extraEnv.begin(), extraEnv.end(), [&](const std::string& added) {
                    return added.compare(0, name.size() + 1, std::string(name) + "=") == 0;
                }))
                env.emplace_back(*entry);
        }
        std::vector<char*> args, envp;
        for (const auto& arg : argv)
            args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        for (const auto& entry : env)
            envp.push_back(const_cast<char*>(entry.c_str()));
        envp.push_back(nullptr);
        const int result = posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        if (result != 0)
            throw std::runtime_error("cannot start " + argv[0] + ": " + std::strerror(result));
        output_ = out[0];
        name_ = argv[0];
    }
    ~ChildProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            wait();
        }
        if (output_ >= 0)
            close(output_);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The next line of its standard output without the newline; at the end,
    // what is left.
    std::string readLine() {
        const auto deadline = deadlineFromNow();
        for (std::size_t end; (end = buffer_.find('\n')) == std::string::npos;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd ready{output_, POLLIN, 0};
            const int polled = left.count() > 0 ? poll(&ready, 1, int(left.count())) : 0;
            if (polled == 0)
                throw WaitTimedOut("a line from " + name_);
            char chunk[512];
            const ssize_t got = polled > 0 ? read(output_, chunk, sizeof chunk) : 0;
            if (polled > 0 && got <= 0)
                return std::exchange(buffer_, {});
            buffer_.append(chunk, std::size_t(std::max<ssize_t>(got, 0)));
        }
        const std::size_t end = buffer_.find('\n');
        std::string line = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        return line;
    }
    void signal(int number) const { kill(pid_, number); }
    // Its wait status, once it has ended.
    int wait() {
        int status = 0;
        if (pid_ > 0)
            waitUntil([&] { return waitpid(pid_, &status, WNOHANG) != 0; }, name_ + " to end");
        pid_ = -1;
        return status;
    }
    pid_t pid() const noexcept { return pid_; }

private:
    pid_t pid_ = -1;
    int output_ = -1;
    std::string name_, buffer_;
};

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
