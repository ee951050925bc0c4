// SPDX-License-Identifier: MIT
// PasswordPrompt: reads one password line from standard input, with the
// terminal's echo off when it is a terminal, until a line, end of input or
// an interruption.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace tessiva::tool {
class PasswordPrompt {
public:
    // `interruptFd` becomes readable when the user interrupts.
    explicit PasswordPrompt(int interruptFd) noexcept : interruptFd_(interruptFd) {}
    ~PasswordPrompt();

    enum class Outcome { line, endOfInput, interrupted };
    // Writes the prompt to standard error and reads one line, hidden unless
    // `visible` (a yes or no); the line, without its newline, is line() until
    // the next ask or destruction.
    Outcome ask(std::string_view prompt, bool visible = false);
    std::string_view line() const noexcept { return {buffer_.data(), length_}; }

private:
    void wipe() noexcept;

    const int interruptFd_;
    // A password is held only here, and wiped as soon as it is handed on.
    std::array<char, 1024> buffer_{};
    std::size_t length_ = 0;
};
} // namespace tessiva::tool
