// SPDX-License-Identifier: MIT
// The formatting engine behind ObFormat.
#include "tessiva/object/ObFormat.h"

#include "Description.h"

#include <cstdint>
#include <string>

namespace {
using tessiva::detail::appendDecimal;
using tessiva::detail::FormatArgument;

constexpr std::string_view invalidText = "(invalid)";
constexpr std::string_view nullText = "(null)";

void appendObjectOrText(std::string& out, const FormatArgument& argument) {
    switch (argument.kind) {
    case FormatArgument::Kind::Object:
        if (argument.object == nullptr)
            out += nullText;
        else
            tessiva::detail::appendDescription(out, *argument.object);
        return;
    case FormatArgument::Kind::Text:
        if (argument.text == nullptr)
            out += nullText;
        else
            out.append(argument.text, argument.textLength);
        return;
    case FormatArgument::Kind::Integer:
        appendDecimal(out, argument.integer);
        return;
    case FormatArgument::Kind::UnsignedInteger:
        appendDecimal(out, static_cast<unsigned long long>(argument.integer));
        return;
    }
}

template <class Narrow> void appendInteger(std::string& out, const FormatArgument& argument) {
    if (argument.kind != FormatArgument::Kind::Integer &&
        argument.kind != FormatArgument::Kind::UnsignedInteger) {
        out += invalidText;
        return;
    }
    // Narrowing wraps modulo 2^N, as printf's conversion of the same value does.
    appendDecimal(out, static_cast<Narrow>(argument.integer));
}
} // namespace

void ObFormatAppend(std::string& out, std::string_view format, const FormatArgument* arguments,
                    ObUInteger count) {
    ObUInteger next = 0;
    auto take = [&]() -> const FormatArgument* {
        return next < count ? &arguments[next++] : nullptr;
    };
    for (std::size_t index = 0; index < format.size(); ++index) {
        const char c = format[index];
        if (c != '%' || index + 1 == format.size()) {
            out += c;
            continue;
        }
        const std::string_view rest = format.substr(index + 1);
        if (rest.front() == '%') {
            out += '%';
            index += 1;
        } else if (rest.front() == '@' || rest.front() == 's' || rest.front() == 'd') {
            const FormatArgument* argument = take();
            if (argument == nullptr)
                out += invalidText;
            else if (rest.front() == 'd')
                appendInteger<std::int32_t>(out, *argument);
            else
                appendObjectOrText(out, *argument);
            index += 1;
        } else if (rest.starts_with("ld")) {
            const FormatArgument* argument = take();
            if (argument == nullptr)
                out += invalidText;
            else
                appendInteger<ObInteger>(out, *argument);
            index += 2;
        } else {
            out += c;
        }
    }
}

ObRef<ObString> ObFormatArguments(std::string_view format, const FormatArgument* arguments,
                                  ObUInteger count) {
    std::string out;
    out.reserve(format.size() + 16 * count);
    ObFormatAppend(out, format, arguments, count);
    return ObString::make(out);
}
