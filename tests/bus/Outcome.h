// SPDX-License-Identifier: MIT
// A context's handle as hex digits for a command line, and back, as the bus
// tests and their peer process pass it.
#pragma once

#include "tessiva/object/Ob.h"

#include <cstdio>
#include <string>

namespace tessiva::test {

inline std::string hex(const ObRef<ObData>& data) {
    std::string text;
    char digits[3];
    for (ObUInteger i = 0; i < data->length(); ++i) {
        std::snprintf(digits, sizeof digits, "%02x", unsigned(data->bytes()[i]));
        text += digits;
    }
    return text;
}

inline ObRef<ObData> unhex(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(char(std::stoi(text.substr(i, 2), nullptr, 16)));
    return ObData::make(bytes.data(), bytes.size());
}

} // namespace tessiva::test
