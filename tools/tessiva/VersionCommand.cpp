// SPDX-License-Identifier: MIT
// tessiva --version: the package's version, then, in words, the level of
// the VR interface that the library it runs with implements, read from the
// library's own version symbols.
#include "Command.h"
#include "tessiva/VRVersion.h"

#include <iostream>
#include <string_view>

namespace tessiva::tool {
namespace {

// "Tessiva-1.30.1.30" from "@(#)PROGRAM:Tessiva  PROJECT:Tessiva-1.30.1.30\n".
std::string_view projectVersion() {
    constexpr std::string_view marker = "PROJECT:";
    std::string_view text(reinterpret_cast<const char*>(TessivaVersionString));
    const std::size_t start = text.find(marker);
    if (start == std::string_view::npos)
        return text;
    text.remove_prefix(start + marker.size());
    return text.substr(0, text.find('\n'));
}

} // namespace

int runVersion(Arguments arguments) {
    expectArgumentCount(arguments, 0, 0, "--version");
    std::cout << "tessiva " << TESSIVA_TOOL_VERSION << '\n'
              << "VR interface level " << TessivaVersionNumber
              << " (the version libTessiva reports to callers: " << projectVersion() << ")\n"
              << "Copyright (C) 2026 The Tessiva developers\n"
              << "License MIT: <https://opensource.org/licenses/MIT>\n";
    return exitSuccess;
}

} // namespace tessiva::tool
