// SPDX-License-Identifier: MIT
// Text the tool echoes back, made safe for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace tessiva::tool {

// The text with every control character (below 0x20, and 0x7f) written as an
// escape: \n, \r and \t by name, any other as \xHH. Other bytes, UTF-8
// sequences included, are kept.
std::string escaped(std::string_view text);

} // namespace tessiva::tool
