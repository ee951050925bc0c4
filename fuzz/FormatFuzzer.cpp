// SPDX-License-Identifier: MIT
// Formats of any text with arguments of every kind, and the text forms and
// equality of arbitrary object graphs, against a plain reading of the rules.
#include "FuzzCheck.h"
#include "ObjectGraphDecoder.h"

#include <cstdint>
#include <string>
#include <vector>

using namespace tessiva::fuzz;
using tessiva::detail::FormatArgument;

namespace {

// The text form each class documents, built from the parts.
std::string expectedDescription(const ObObject* object) {
    if (object == nullptr)
        return "(null)";
    if (const auto* string = dynamic_cast<const ObString*>(object))
        return std::string(string->text());
    if (const auto* number = dynamic_cast<const ObNumber*>(object))
        return std::to_string(number->integerValue());
    if (const auto* data = dynamic_cast<const ObData*>(object)) {
        static constexpr char digits[] = "0123456789abcdef";
        std::string text = "<";
        for (ObUInteger i = 0; i < data->length(); ++i) {
            text += digits[data->bytes()[i] >> 4];
            text += digits[data->bytes()[i] & 0x0f];
        }
        return text + ">";
    }
    if (const auto* array = dynamic_cast<const ObArray*>(object)) {
        std::string text;
        for (const ObRef<ObObject>& item : *array)
            text += (text.empty() ? "(" : ", ") + expectedDescription(item.get());
        return (text.empty() ? "(" : text) + ")";
    }
    if (const auto* dictionary = dynamic_cast<const ObDictionary*>(object)) {
        std::string text;
        for (const auto& [key, value] : *dictionary)
            text += (text.empty() ? "{" : "; ") + expectedDescription(key.get()) + " = " +
                    expectedDescription(value.get());
        return (text.empty() ? "{" : text) + "}";
    }
    if (const auto* error = dynamic_cast<const ObError*>(object)) {
        const ObObject* message =
            error->userInfo() ? error->userInfo()->peekObjectForKey(ObLocalizedDescriptionKey)
                              : nullptr;
        const std::string domain = expectedDescription(error->domain().get());
        const std::string code = std::to_string(error->code());
        const std::string text =
            dynamic_cast<const ObString*>(message) != nullptr
                ? expectedDescription(message)
                : "The operation could not be completed. (" + domain + " error " + code + ".)";
        return "Error Domain=" + domain + " Code=" + code + " \"" + text + "\"";
    }
    return "<CallerObject>";
}

std::string expectedValue(const FormatArgument& argument) {
    switch (argument.kind) {
    case FormatArgument::Kind::Object:
        return expectedDescription(argument.object);
    case FormatArgument::Kind::Text:
        return argument.text == nullptr ? "(null)"
                                        : std::string(argument.text, argument.textLength);
    case FormatArgument::Kind::Integer:
        return std::to_string(argument.integer);
    case FormatArgument::Kind::UnsignedInteger:
        return std::to_string(static_cast<unsigned long long>(argument.integer));
    }
    return {};
}

bool isInteger(const FormatArgument& argument) {
    return argument.kind == FormatArgument::Kind::Integer ||
           argument.kind == FormatArgument::Kind::UnsignedInteger;
}

// ObFormat's conversions as its header states them.
std::string expectedFormat(std::string_view format, const std::vector<FormatArgument>& arguments) {
    std::string out;
    std::size_t next = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%' || i + 1 == format.size()) {
            out += format[i];
            continue;
        }
        const std::string_view rest = format.substr(i + 1);
        const bool isLong = rest.starts_with("ld");
        if (rest[0] == '%') {
            out += '%';
        } else if (rest[0] == '@' || rest[0] == 's' || rest[0] == 'd' || isLong) {
            if (next == arguments.size())
                out += "(invalid)";
            else if (const FormatArgument& argument = arguments[next++]; rest[0] == 'd')
                out += isInteger(argument)
                           ? std::to_string(static_cast<std::int32_t>(argument.integer))
                           : "(invalid)";
            else if (isLong)
                out += isInteger(argument)
                           ? std::to_string(static_cast<ObInteger>(argument.integer))
                           : "(invalid)";
            else
                out += expectedValue(argument);
        } else {
            out += '%';
            continue;
        }
        i += isLong ? 2 : 1;
    }
    return out;
}

void checkEquality(const ObRef<ObObject>& a, const ObRef<ObObject>& b) {
    if (!a || !b)
        return;
    FUZZ_CHECK(a->isEqual(a), "an object unequal to itself", printed(a));
    const bool equal = a->isEqual(b);
    FUZZ_CHECK(equal == b->isEqual(a), "equality is not symmetric",
               printed(a) + " / " + printed(b));
    FUZZ_CHECK(!equal || a->hash() == b->hash(), "equal objects hash apart",
               printed(a) + " / " + printed(b));
    if (const ObMutableDictionary* dictionary = ob_cast_raw<ObMutableDictionary>(a))
        FUZZ_CHECK(dictionary->copy()->isEqual(a), "a copy differs", printed(a));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ObjectGraphDecoder decoder(data, size);
    const std::string format = decoder.bytes().ConsumeRandomLengthString(96);
    std::vector<ObRef<ObObject>> objects;
    std::vector<std::string> texts;
    texts.reserve(8);
    std::vector<FormatArgument> arguments;
    for (std::size_t i = decoder.count(6); i > 0; --i) {
        switch (decoder.bytes().ConsumeIntegralInRange(0, 4)) {
        case 0:
            objects.push_back(decoder.object());
            arguments.push_back(tessiva::detail::formatArgument(objects.back()));
            break;
        case 1:
            texts.push_back(decoder.bytes().ConsumeRandomLengthString(16));
            arguments.push_back(tessiva::detail::formatArgument(std::string_view(texts.back())));
            break;
        case 2:
            arguments.push_back(tessiva::detail::formatArgument(static_cast<const char*>(nullptr)));
            break;
        case 3:
            arguments.push_back(tessiva::detail::formatArgument(decoder.integer()));
            break;
        default:
            arguments.push_back(tessiva::detail::formatArgument(
                decoder.bytes().ConsumeIntegral<unsigned long long>()));
            break;
        }
    }
    const ObRef<ObString> formatted = ObFormatArguments(format, arguments.data(), arguments.size());
    FUZZ_CHECK(formatted->text() == expectedFormat(format, arguments), "formatted",
               formatted->text());

    const ObRef<ObObject> first = decoder.object(), second = decoder.object();
    for (const ObRef<ObObject>& object : {first, second}) {
        const std::string text = expectedDescription(object.get());
        FUZZ_CHECK(printed(object) == text, "text form", printed(object) + " / " + text);
    }
    checkEquality(first, second);
    return 0;
}
