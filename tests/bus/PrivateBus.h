// Processes for the daemon's tests: a private dbus-daemon started with
// private-bus.conf, and tessivad on it. Nothing reaches the machine's buses.
#pragma once

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
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
        output_ = fdopen(out[0], "r");
    }
    ~ChildProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            wait();
        }
        if (output_ != nullptr)
            std::fclose(output_);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The next line of its standard output without the newline; empty at the end.
    std::string readLine() {
        char* line = nullptr;
        std::size_t size = 0;
        const ssize_t length = getline(&line, &size, output_);
        std::string text = length > 0 ? std::string(line, std::size_t(length)) : std::string();
        std::free(line);
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        return text;
    }
    void signal(int number) const { kill(pid_, number); }
    // Its wait status, once it has ended.
    int wait() {
        int status = 0;
        if (pid_ > 0)
            waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }
    pid_t pid() const noexcept { return pid_; }

private:
    pid_t pid_ = -1;
    std::FILE* output_ = nullptr;
};

// A dbus-daemon of the test's own.
class PrivateBus {
public:
    PrivateBus()
        : process_({TESSIVA_DBUS_DAEMON, "--config-file=" TESSIVA_BUS_CONFIG, "--nofork",
                    "--print-address=1"}),
          address_(process_.readLine()) {
        if (address_.empty())
            throw std::runtime_error("the private dbus-daemon did not start");
    }
    const std::string& address() const noexcept { return address_; }

private:
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
