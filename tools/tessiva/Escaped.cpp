// SPDX-License-Identifier: MIT
// Escaping of control characters in what the tool prints.
#include "Escaped.h"

namespace tessiva::tool {

std::string escaped(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else {
            constexpr char digits[] = "0123456789abcdef";
            out += "\\x";
            out += digits[byte >> 4];
            out += digits[byte & 0xf];
        }
    }
    return out;
}

} // namespace tessiva::tool
