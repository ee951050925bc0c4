// The one reading of an on/off environment variable, shared by every switch
// so that they all accept the same words.
#pragma once

#include <cstdlib>
#include <string_view>

namespace tessiva::detail {

// On for "1", "true", "yes" and "on"; off when unset or anything else.
inline bool environmentFlag(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr)
        return false;
    const std::string_view text(value);
    return text == "1" || text == "true" || text == "yes" || text == "on";
}

} // namespace tessiva::detail
