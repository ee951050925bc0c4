// SPDX-License-Identifier: MIT
// JSON text to objects, through nlohmann::json.
#include "JsonConversion.h"

#include "Command.h"
#include "tessiva/object/Ob.h"

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <vector>

namespace tessiva::tool {
namespace {

// Ordered, so that dictionaries enumerate in the order written: the first
// failing hint and the winner of two structured hints depend on it.
using Json = nlohmann::ordered_json;

// Deep enough for any hints dictionary, shallow enough for the stack.
constexpr std::size_t deepestNesting = 256;

std::string location(const Json::json_pointer& pointer) {
    return pointer.empty() ? "the top level" : pointer.to_string();
}

// Integers of at most 64 bits only: the parser reads anything else (a
// fraction, an exponent, more digits) as a double.
ObRef<ObNumber> integerFrom(const Json& value, const Json::json_pointer& pointer) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<ObInteger>::max());
    if (!value.is_number_integer() ||
        (value.is_number_unsigned() && value.get<std::uint64_t>() > largest))
        throw UsageError("number " + value.dump() + " at " + location(pointer) +
                         " is not an integer of at most 64 bits");
    return ObNumber::make(value.get<ObInteger>());
}

ObRef<ObObject> objectFrom(const Json& value, const Json::json_pointer& pointer,
                           std::size_t depth) {
    if (depth > deepestNesting)
        throw UsageError("JSON nested deeper than " + std::to_string(deepestNesting) + " levels");
    switch (value.type()) {
    case Json::value_t::string:
        return ObString::make(value.get_ref<const Json::string_t&>());
    case Json::value_t::boolean:
        return ObNumber::makeBool(value.get<bool>());
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float:
        return integerFrom(value, pointer);
    case Json::value_t::array: {
        std::vector<ObRef<ObObject>> items;
        for (std::size_t index = 0; index < value.size(); ++index)
            items.push_back(objectFrom(value[index], pointer / index, depth + 1));
        return ObArray::make(std::move(items));
    }
    case Json::value_t::object: {
        std::vector<ObDictionary::Entry> entries;
        for (const auto& [key, item] : value.items())
            entries.emplace_back(ObString::make(key), objectFrom(item, pointer / key, depth + 1));
        return ObDictionary::make(std::move(entries));
    }
    case Json::value_t::null:
        throw UsageError("null at " + location(pointer) +
                         " has no counterpart: containers hold present objects only");
    case Json::value_t::binary:
    case Json::value_t::discarded:
        break;
    }
    throw UsageError("unsupported JSON value at " + location(pointer));
}

} // namespace

ObRef<ObObject> objectFromJson(std::string_view text) {
    Json parsed;
    try {
        parsed = Json::parse(text);
    } catch (const Json::parse_error& error) {
        // Drop the library's "[json.exception.parse_error.101] " prefix.
        std::string_view message = error.what();
        if (const std::size_t end = message.find("] "); end != std::string_view::npos)
            message.remove_prefix(end + 2);
        throw UsageError("malformed JSON: " + std::string(message));
    }
    return objectFrom(parsed, Json::json_pointer(), 0);
}

} // namespace tessiva::tool
