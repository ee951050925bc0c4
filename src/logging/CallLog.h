// The library's one logging convention for operations and their replies.
#pragma once

#include "tessiva/object/ObFormat.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace tessiva::detail {

// Room for the usual argument text, a few short objects, without regrowing.
inline constexpr std::size_t argumentTextCapacity = 256;

// Log tags.
inline constexpr const char* credentialReferenceTag = "VRCredReference";
inline constexpr const char* freeFunctionTag = "VRTessiva";

// Writes "<tag>: <name> <argument text>" to the system log when KVLogger
// says logging is enabled.
void writeCallLog(const char* tag, const char* name, std::string_view argumentText);

// Logs an operation's entry or a reply. The argument text is formatted even
// when logging is off, so that its cost and its calls on the arguments do not
// depend on the switch; it becomes a string object only when it is written.
template <class... Arguments>
void logCall(const char* tag, const char* name, std::string_view format,
             const Arguments&... arguments) {
    const FormatArgument captured[sizeof...(Arguments) + 1] = {formatArgument(arguments)..., {}};
    std::string argumentText;
    argumentText.reserve(argumentTextCapacity);
    ObFormatAppend(argumentText, format, captured, sizeof...(Arguments));
    writeCallLog(tag, name, argumentText);
}

} // namespace tessiva::detail
