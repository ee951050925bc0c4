// SPDX-License-Identifier: MIT
// tessiva hints JSON|-|@FILE: a hints dictionary translated into service options.
#include "Command.h"
#include "Escaped.h"
#include "JsonConversion.h"
#include "tessiva/KVLegacyHelper.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

namespace tessiva::tool {
namespace {

// The JSON text an argument stands for: "-" standard input, "@FILE" the
// file's contents, anything else itself (no JSON text starts with either).
std::string jsonText(std::string_view argument) {
    if (argument == "-") {
        std::ostringstream text;
        text << std::cin.rdbuf();
        return std::move(text).str();
    }
    if (!argument.starts_with('@'))
        return std::string(argument);
    const std::string path(argument.substr(1));
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file.is_open() || file.bad())
        throw UsageError("cannot read '" + path + "': " + std::strerror(errno));
    return text;
}

} // namespace

int runHints(Arguments arguments) {
    expectArgumentCount(arguments, 1, 1, "hints JSON|-|@FILE");
    const ObRef<ObDictionary> hints = ob_cast<ObDictionary>(objectFromJson(jsonText(arguments[0])));
    if (!hints)
        throw UsageError("the hints must be a JSON object");

    ObRef<ObError> error;
    const ObRef<ObMutableDictionary> options =
        KVLegacyHelper::optionsFromVRHints_error(hints, &error);
    if (!options) {
        std::cerr << "error: " << escaped(error->localizedDescription()->text()) << '\n';
        return exitLibraryError;
    }
    std::cout << escaped(options->description()->text()) << '\n';
    return exitSuccess;
}

} // namespace tessiva::tool
