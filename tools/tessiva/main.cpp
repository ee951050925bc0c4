// tessiva: runs the VR interface against Tessiva's services from the
// command line. This file reads the command line and dispatches.
#include "Command.h"
#include "Escaped.h"

#include <cstdlib>
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
  --version             print the tool's version and the library's

JSON values: strings, integers, true and false, arrays and objects. null and
numbers with a fraction or exponent have no counterpart and are refused.

Control characters in anything printed back are escaped (\n, \t, \xHH).

Exit status: 0 success, 1 the library reported an error, 2 bad usage or input.
)";

int runHelp(Arguments arguments) {
    expectArgumentCount(arguments, 0, 0, "help");
    std::cout << helpText;
    return exitSuccess;
}

struct Command {
    std::string_view name;
    int (*run)(Arguments);
};

constexpr Command commands[] = {
    {"demo", runDemo},
    {"authenticate", runAuthenticate},
    {"hints", runHints},
    {"error", runError},
    {"vocabulary", runVocabulary},
    {"help", runHelp},
    {"--help", runHelp},
    {"-h", runHelp},
    {"--version", runVersion},
};

int dispatch(const std::vector<std::string_view>& words) {
    if (words.empty())
        throw UsageError("missing command");
    for (const Command& command : commands) {
        if (command.name == words.front())
            return command.run(Arguments(words).subspan(1));
    }
    throw UsageError("unknown command '" + std::string(words.front()) + "'");
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
    try {
        return dispatch(std::vector<std::string_view>(argv + 1, argv + argc));
    } catch (const UsageError& error) {
        std::cerr << "tessiva: " << escaped(error.what()) << "\nTry 'tessiva --help' for more.\n";
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "tessiva: " << escaped(error.what()) << '\n';
        return exitLibraryError;
    }
}
