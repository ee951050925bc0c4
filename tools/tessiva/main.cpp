// SPDX-License-Identifier: MIT
// tessiva: runs the VR interface against Tessiva's services from the
// command line. This file reads the command line and dispatches.
#include "Command.h"
#include "Escaped.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <vector>

namespace tessiva::tool {
namespace {

constexpr std::string_view helpText = R"(Usage: tessiva COMMAND [ARGUMENT...]

Runs Tessiva's VR interface against the authentication service simulated
inside the library, or against PAM (authenticate).

Commands:
  demo                  run a scripted session against the simulated service,
                        step by step; the library's log goes to standard error
  authenticate [--policy NAME] [--service PAM-SERVICE] [--user NAME]
                        authenticate a user for real through PAM (service
                        "tessiva", the process's user by default): the
                        password is read with echo off, one line per prompt
                        from standard input when it is not a terminal;
                        exit status 1 when authentication fails, 130 on Ctrl-C
  hints JSON            translate a hints dictionary, given as a JSON object,
                        into the service's options dictionary; JSON is the
                        object itself, - to read it from standard input, or
                        @FILE to read it from a file
  error CODE [MESSAGE]  print the VR error that a KVErrorDomain error with this
                        code (and this message) becomes
  vocabulary            list every exported constant, its value and its alias
  help, --help, -h      print this help
  --version             print the version and the VR interface level

Every command also takes --help (or -h), which prints its usage, and
--version. An argument after -- is never taken for either.

JSON values: strings, integers, true and false, arrays and objects. null and
numbers with a fraction or exponent have no counterpart and are refused.

Control characters in anything printed back are escaped (\n, \t, \xHH).

Exit status: 0 success, 1 the library reported an error or the output could
not be written, 2 bad usage or input.
)";

int runHelp(Arguments arguments) {
    expectArgumentCount(arguments, 0, 0, "help");
    std::cout << helpText;
    return exitSuccess;
}

struct Command {
    std::string_view name;
    int (*run)(Arguments);
    // What `tessiva NAME --help` prints; empty for help and --version.
    std::string_view usage;
};

constexpr Command commands[] = {
    {"demo", runDemo,
     "Usage: tessiva demo\n"
     "Runs a scripted session against the simulated service, step by step; the\n"
     "library's log goes to standard error.\n"},
    {"authenticate", runAuthenticate,
     "Usage: tessiva authenticate [--policy NAME] [--service PAM-SERVICE] [--user NAME]\n"
     "Authenticates a user for real: through the system service in this process\n"
     "(PAM service \"tessiva\" for the password, fprintd for fingerprints; the\n"
     "process's user by default), or through the backend that TESSIVA_SERVICE\n"
     "names (bus: the tessivad daemon). NAME is a VR policy, by its constant's\n"
     "name or its literal (DeviceOwnerAuthenticatedWithBiometrics: a fingerprint).\n"
     "Each event is answered here: the password with echo off, one line per prompt\n"
     "(from standard input when it is not a terminal), consent as y or n; the\n"
     "reader's progress and what is available are shown as they come.\n"
     "Exit status 1 when authentication fails, 130 on Ctrl-C.\n"},
    {"hints", runHints,
     "Usage: tessiva hints JSON|-|@FILE\n"
     "Translates a hints dictionary, a JSON object, into the service's options\n"
     "dictionary: JSON is the object itself, - reads it from standard input,\n"
     "@FILE from a file.\n"},
    {"error", runError,
     "Usage: tessiva error CODE [MESSAGE]\n"
     "Prints the VR error that a KVErrorDomain error with this code (and this\n"
     "message) becomes.\n"},
    {"vocabulary", runVocabulary,
     "Usage: tessiva vocabulary\n"
     "Lists every exported constant, its value and its alias.\n"},
    {"help", runHelp, {}},
    {"--help", runHelp, {}},
    {"-h", runHelp, {}},
    {"--version", runVersion, {}},
};

// A command's arguments up to a "--", which ends the options: whether one of
// them asks for help or the version, and the arguments without the "--".
int runCommand(const Command& command, std::vector<std::string_view> arguments) {
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (*argument == "--") {
            arguments.erase(argument);
            break;
        }
        if (!command.usage.empty() && (*argument == "--help" || *argument == "-h")) {
            std::cout << command.usage << "Try 'tessiva --help' for every command.\n";
            return exitSuccess;
        }
        if (!command.usage.empty() && *argument == "--version")
            return runVersion({});
    }
    return command.run(arguments);
}

int dispatch(const std::vector<std::string_view>& words) {
    if (words.empty())
        throw UsageError("missing command");
    for (const Command& command : commands) {
        if (command.name == words.front())
            return runCommand(command, {words.begin() + 1, words.end()});
    }
    if (words.front().starts_with('-'))
        throw UsageError("unrecognized option '" + std::string(words.front()) + "'");
    throw UsageError("unknown command '" + std::string(words.front()) + "'");
}

// Whatever the command printed must have reached standard output: a full
// disk or a closed pipe is a failure, as in any other GNU tool.
int closeStandardOutput(int status) {
    std::cout.flush();
    bool failed = !std::cout.good() || std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    int error = errno;
    if (std::fclose(stdout) != 0 && !failed) {
        failed = true;
        error = errno;
    }
    if (!failed)
        return status;
    std::cerr << "tessiva: write error" << (error != 0 ? ": " : "")
              << (error != 0 ? std::strerror(error) : "") << '\n';
    return status == exitSuccess ? exitLibraryError : status;
}

} // namespace

void expectArgumentCount(Arguments arguments, std::size_t least, std::size_t most,
                         std::string_view synopsis) {
    if (arguments.size() < least)
        throw UsageError("missing argument; usage: tessiva " + std::string(synopsis));
    if (arguments.size() > most)
        throw UsageError("unexpected argument '" + std::string(arguments[most]) +
                         "'; usage: tessiva " + std::string(synopsis));
}

} // namespace tessiva::tool

int main(int argc, char** argv) {
    using namespace tessiva::tool;
    // Read with the first log line, so it must be set before anything logs.
    setenv("TESSIVA_LOG_STDERR", "1", 1);
    int status = exitSuccess;
    try {
        status = dispatch(std::vector<std::string_view>(argv + 1, argv + argc));
    } catch (const UsageError& error) {
        std::cerr << "tessiva: " << escaped(error.what())
                  << "\nTry 'tessiva --help' for more information.\n";
        status = exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "tessiva: " << escaped(error.what()) << '\n';
        status = exitLibraryError;
    }
    return closeStandardOutput(status);
}
