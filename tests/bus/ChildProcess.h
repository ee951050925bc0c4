// SPDX-License-Identifier: MIT
// A child process of the test's, for the daemon's suites and the tool's: its
// standard output read line by line, and, when piped, its input written and
// its errors read. Every read ends by the test's deadline.
#pragma once

#include "support/Deadline.h"

#include <algorithm>
#include <chrono>
#include <csignal>
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

class ChildProcess {
public:
    // Runs argv with this process's environment and the variables added;
    // its standard input and error are the test's too unless `piped`, or
    // its errors go to the file `errorFile` when one is named.
    ChildProcess(const std::vector<std::string>& argv,
                 const std::vector<std::string>& extraEnv = {}, bool piped = false,
                 const std::string& errorFile = {})
        : name_(argv[0]) {
        int out[2], in[2] = {-1, -1}, err[2] = {-1, -1};
        if (pipe2(out, O_CLOEXEC) != 0 ||
            (piped && (pipe2(in, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)))
            throw std::runtime_error("pipe failed");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        if (piped) {
            posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
            posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
        } else if (!errorFile.empty()) {
            posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile.c_str(),
                                             O_WRONLY | O_CREAT | O_TRUNC, 0600);
        }
        // The variables added replace those of the same name.
        std::vector<std::string> env = extraEnv;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string_view name(*entry, std::strcspn(*entry, "=") + 1); // with its "="
            if (std::none_of(extraEnv.begin(), extraEnv.end(),
                             [&](const std::string& added) { return added.starts_with(name); }))
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
        for (int unused : {out[1], in[0], err[1]})
            if (unused >= 0)
                close(unused);
        output_ = out[0];
        input_ = in[1];
        errors_ = err[0];
        if (result != 0)
            throw std::runtime_error("cannot start " + name_ + ": " + std::strerror(result));
    }
    ~ChildProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            wait();
        }
        for (int open : {output_, input_, errors_})
            if (open >= 0)
                close(open);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The next line of its standard output without the newline; at the end,
    // what is left.
    std::string readLine() {
        const auto deadline = deadlineFromNow();
        while (buffer_.find('\n') == std::string::npos)
            if (!readSome(output_, buffer_, deadline))
                return std::exchange(buffer_, {});
        const std::size_t end = buffer_.find('\n');
        std::string line = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        return line;
    }
    // All the rest of its standard output.
    std::string readRest() {
        for (const auto deadline = deadlineFromNow(); readSome(output_, buffer_, deadline);) {
        }
        return std::exchange(buffer_, {});
    }
    // Piped only: writes to its standard input, or ends it.
    bool write(const std::string& text) const {
        return ::write(input_, text.data(), text.size()) == ssize_t(text.size());
    }
    void closeInput() { close(std::exchange(input_, -1)); }
    // Piped only: its standard error, read until it holds `text`, or to its
    // end when `text` is empty.
    const std::string& readErrors(const std::string& text = "") {
        const auto deadline = deadlineFromNow();
        while ((text.empty() || errorText_.find(text) == std::string::npos) &&
               readSome(errors_, errorText_, deadline)) {
        }
        return errorText_;
    }
    void signal(int number) const { kill(pid_, number); }
    pid_t pid() const noexcept { return pid_; }
    // Its wait status, once it has ended.
    int wait() {
        int status = 0;
        if (pid_ > 0)
            waitUntil([&] { return waitpid(pid_, &status, WNOHANG) != 0; }, name_ + " to end");
        pid_ = -1;
        return status;
    }

private:
    // Appends what the stream has next; false at its end.
    bool readSome(int fd, std::string& into, std::chrono::steady_clock::time_point deadline) const {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd ready{fd, POLLIN, 0};
        const int polled = left.count() > 0 ? poll(&ready, 1, int(left.count())) : 0;
        if (polled == 0)
            throw WaitTimedOut("output from " + name_);
        char chunk[512];
        const ssize_t got = polled > 0 ? read(fd, chunk, sizeof chunk) : 0;
        if (got <= 0)
            return false;
        into.append(chunk, std::size_t(got));
        return true;
    }

    std::string name_;
    pid_t pid_ = -1;
    int output_ = -1, input_ = -1, errors_ = -1;
    std::string buffer_, errorText_;
};

} // namespace tessiva::test
