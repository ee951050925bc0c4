// The library's one logging convention for operations and their replies.
#pragma once

#include "tessiva/object/ObFormat.h"

#include <string_view>

namespace tessiva::detail {

// Log tags.
inline constexpr const char* credentialReferenceTag = "VRCredReference";
inline constexpr const char* freeFunctionTag = "VRTessiva";

// Writes "<tag>: <name> <argument text>" to the system log when KVLogger
// says logging is enabled.
void writeCallLog(const char* tag, const char* name, const ObRef<ObString>& argumentText);

// Logs an operation's entry or a reply. The argument text is formatted even
// when logging is off, so that its cost and its calls on the arguments do not
// depend on the switch.
template <class... Arguments>
void logCall(const char* tag, const char* name, std::string_view format,
             const Arguments&... arguments) {
    const ObRef<ObString> argumentText = ObFormat(format, arguments...);
    writeCallLog(tag, name, argumentText);
}

} // namespace tessiva::detail
