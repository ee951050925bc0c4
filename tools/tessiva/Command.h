// SPDX-License-Identifier: MIT
// The subcommands of the tessiva tool, their exit codes and their usage errors.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tessiva::tool {

// Exit codes of every subcommand.
inline constexpr int exitSuccess = 0;
// The library reported an error: an untranslatable hint, a failed session.
inline constexpr int exitLibraryError = 1;
// The command line or its input was wrong; nothing was asked of the library.
inline constexpr int exitUsage = 2;

// Bad input. main prints "tessiva: <what>" and a pointer to --help on
// standard error, and exits with exitUsage.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The arguments after the subcommand's name.
using Arguments = std::span<const std::string_view>;

// Throws a UsageError naming `synopsis` unless there are between `least` and
// `most` arguments.
void expectArgumentCount(Arguments arguments, std::size_t least, std::size_t most,
                         std::string_view synopsis);

int runDemo(Arguments arguments);
int runAuthenticate(Arguments arguments);
int runHints(Arguments arguments);
int runError(Arguments arguments);
int runVocabulary(Arguments arguments);
int runVersion(Arguments arguments);

} // namespace tessiva::tool
