// SPDX-License-Identifier: MIT
// The library's one logging convention for operations and their replies.
#pragma once

#include "tessiva/object/ObFormat.h"

#include <cstddef>
#include <optional>
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

// A buffer for argument texts that keeps its room between operations on one
// thread, so that formatting allocates nothing once warm. Formatting may call
// a caller's description, which may log in turn: a nested text, finding the
// thread's buffer taken, uses a buffer of its own.
class ArgumentTextBuffer {
public:
    ArgumentTextBuffer();
    ~ArgumentTextBuffer();
    ArgumentTextBuffer(const ArgumentTextBuffer&) = delete;
    ArgumentTextBuffer& operator=(const ArgumentTextBuffer&) = delete;

    std::string& text() noexcept { return *text_; }

    // A thread's buffer and whether a text is being formatted in it.
    struct ThreadBuffer;

private:
    ThreadBuffer* owned_; // the thread's buffer, or null for a nested text
    std::string* text_;
    std::optional<std::string> nested_;
};

// Logs an operation's entry or a reply. The argument text is formatted even
// when logging is off, so that its cost and its calls on the arguments do not
// depend on the switch; it becomes a string object only when it is written.
template <class... Arguments>
void logCall(const char* tag, const char* name, std::string_view format,
             const Arguments&... arguments) {
    const FormatArgument captured[sizeof...(Arguments) + 1] = {formatArgument(arguments)..., {}};
    ArgumentTextBuffer buffer;
    ObFormatAppend(buffer.text(), format, captured, sizeof...(Arguments));
    writeCallLog(tag, name, buffer.text());
}

} // namespace tessiva::detail
