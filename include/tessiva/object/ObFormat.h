// SPDX-License-Identifier: MIT
// ObFormat: type-safe printf-style formatting into an ObString.
//
// Conversions:
//   %@   an object's description(), "(null)" for absent; a string argument
//        prints its text and an integer its decimal value
//   %s   a NUL-terminated or std::string_view text, "(null)" for a null
//        pointer; an object prints as with %@
//   %d   an integer narrowed to a signed 32-bit value
//   %ld  an integer narrowed to ObInteger
//   %%   a single percent sign
// A conversion with no argument left, or %d / %ld given a non-integer,
// prints "(invalid)". Any other character after '%' is copied as it stands,
// and arguments beyond the last conversion are ignored.
#pragma once

#include "tessiva/object/ObString.h"

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

namespace tessiva::detail {
// One captured argument; only ever built by ObFormat itself.
struct FormatArgument {
    // UnsignedInteger keeps values above LLONG_MAX printing as themselves.
    enum class Kind : unsigned char { Object, Text, Integer, UnsignedInteger };
    Kind kind = Kind::Object;
    const ObObject* object = nullptr;
    const char* text = nullptr;
    ObUInteger textLength = 0;
    long long integer = 0;
};

inline FormatArgument formatArgument(const ObObject* object) noexcept {
    FormatArgument argument;
    argument.object = object;
    return argument;
}
template <class T> FormatArgument formatArgument(const ObRef<T>& ref) noexcept {
    return formatArgument(static_cast<const ObObject*>(ref.get()));
}
inline FormatArgument formatArgument(std::nullptr_t) noexcept {
    return {};
}
// A null C string keeps the Text kind and prints "(null)".
inline FormatArgument formatArgument(const char* text) noexcept {
    FormatArgument argument;
    argument.kind = FormatArgument::Kind::Text;
    argument.text = text;
    argument.textLength = text == nullptr ? 0 : std::char_traits<char>::length(text);
    return argument;
}
inline FormatArgument formatArgument(std::string_view text) noexcept {
    FormatArgument argument;
    argument.kind = FormatArgument::Kind::Text;
    argument.text = text.data() == nullptr ? "" : text.data();
    argument.textLength = text.size();
    return argument;
}
inline FormatArgument formatArgument(const std::string& text) noexcept {
    return formatArgument(std::string_view(text));
}
template <std::integral T> FormatArgument formatArgument(T value) noexcept {
    FormatArgument argument;
    argument.kind = std::is_unsigned_v<T> ? FormatArgument::Kind::UnsignedInteger
                                          : FormatArgument::Kind::Integer;
    argument.integer = static_cast<long long>(value);
    return argument;
}
} // namespace tessiva::detail

// Formats the captured arguments; ObFormat is the way in.
TESSIVA_PLATFORM_API ObRef<ObString>
ObFormatArguments(std::string_view format, const tessiva::detail::FormatArgument* arguments,
                  ObUInteger count);

// Appends the formatted text to a string; the engine behind ObFormatArguments.
TESSIVA_PLATFORM_API void ObFormatAppend(std::string& out, std::string_view format,
                                         const tessiva::detail::FormatArgument* arguments,
                                         ObUInteger count);

template <class... Arguments>
ObRef<ObString> ObFormat(std::string_view format, const Arguments&... arguments) {
    const tessiva::detail::FormatArgument captured[sizeof...(Arguments) + 1] = {
        tessiva::detail::formatArgument(arguments)..., {}};
    return ObFormatArguments(format, captured, sizeof...(Arguments));
}
