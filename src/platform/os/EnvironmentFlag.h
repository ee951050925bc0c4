// SPDX-License-Identifier: MIT
// The one reading of an on/off environment variable, shared by every switch
// so that they all accept the same words, in any case.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace tessiva::detail {

// Equal when the two differ at most in the case of ASCII letters.
inline bool equalsIgnoringCase(std::string_view text, std::string_view word) noexcept {
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return text.size() == word.size() &&
           std::equal(text.begin(), text.end(), word.begin(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

// On for "1", "true", "yes" and "on", in any case; off when unset or anything else.
inline bool environmentFlag(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr)
        return false;
    const std::string_view text(value);
    for (const std::string_view word : {"1", "true", "yes", "on"}) {
        if (equalsIgnoringCase(text, word))
            return true;
    }
    return false;
}

} // namespace tessiva::detail
