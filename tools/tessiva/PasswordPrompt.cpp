// SPDX-License-Identifier: MIT
// Reading a password byte by byte, so that each prompt takes exactly one
// line of a script's input, and waiting on the interrupt pipe alongside.
#include "PasswordPrompt.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace tessiva::tool {
namespace {
// Turns the terminal's echo off for its lifetime (nothing when not a
// terminal, or when the answer may be seen), and ends the prompt's line.
class EchoOff {
public:
    explicit EchoOff(bool enabled) : enabled_(enabled) {
        if (enabled && isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &saved_) == 0) {
            termios quiet = saved_;
            quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
            active_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
        }
    }
    ~EchoOff() {
        if (active_)
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
        // The newline typed unseen, or never shown when the input is a script.
        if (enabled_)
            (void)!write(STDERR_FILENO, "\n", 1);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    const bool enabled_;
    termios saved_{};
    bool active_ = false;
};
} // namespace

PasswordPrompt::~PasswordPrompt() {
    wipe();
}

void PasswordPrompt::wipe() noexcept {
    explicit_bzero(buffer_.data(), buffer_.size());
    length_ = 0;
}

PasswordPrompt::Outcome PasswordPrompt::ask(std::string_view prompt, bool visible) {
    wipe();
    (void)!write(STDERR_FILENO, prompt.data(), prompt.size());
    const EchoOff echoOff(!visible);
    for (;;) {
        pollfd fds[] = {{STDIN_FILENO, POLLIN, 0}, {interruptFd_, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return Outcome::endOfInput;
        }
        if (fds[1].revents != 0)
            return Outcome::interrupted;
        char byte = 0;
        const ssize_t got = read(STDIN_FILENO, &byte, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return Outcome::endOfInput;
        if (byte == '\n')
            return Outcome::line;
        // A longer line is cut; no password is that long.
        if (length_ < buffer_.size())
            buffer_[length_++] = byte;
    }
}
} // namespace tessiva::tool
