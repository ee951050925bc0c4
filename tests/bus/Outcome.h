// How the bus tests and their peer process put what they got into words: a
// call's result as its text form or its error's code and message, and a
// context's handle as hex digits for a command line, and back.
#pragma once

#include "tessiva/object/Ob.h"

#include <cstdio>
#include <string>

namespace tessiva::test {

inline std::string describe(const ObRef<ObObject>& result, const ObRef<ObError>& error) {
    if (!error)
        return std::string(ObFormat("%@", result)->text());
    return std::string(
        ObFormat("error %ld: %@", error->code(), error->localizedDescription())->text());
}

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
