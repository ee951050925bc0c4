// SPDX-License-Identifier: MIT
// Text forms appended straight into one buffer, so that formatting a
// container makes no string object for each thing inside it.
#pragma once

#include "tessiva/object/ObArray.h"
#include "tessiva/object/ObDictionary.h"

#include <charconv>
#include <cstddef>
#include <iterator>
#include <string>

namespace tessiva::detail {

// The bounds of one text form, which containers that hold themselves or are
// nested very deep would otherwise make endless or exhaust the stack with.
// A container met again inside itself prints as cycleMarker; one nested
// deeper than maxDescriptionDepth prints as cutMarker; once the text has
// grown past maxDescriptionLength bytes, each container ends with cutMarker
// in place of its items after the first.
inline constexpr std::size_t maxDescriptionDepth = 256;
inline constexpr std::size_t maxDescriptionLength = std::size_t{1} << 20;
inline constexpr std::string_view cycleMarker = "<cycle>";
inline constexpr std::string_view cutMarker = "<...>";

// Appends the object's description(). For the library's own string, number,
// dictionary and array classes the text is written here directly; for any
// other class, subclasses of those included, description() is called, so the
// text is always the one description() gives. A description() that formats
// its own contents with "%@" takes part in the same bounds.
void appendDescription(std::string& out, const ObObject& object);

// The bodies of ObArray::description() and ObDictionary::description().
void appendArrayDescription(std::string& out, const ObArray& array);
void appendDictionaryDescription(std::string& out, const ObDictionary& dictionary);
// Any integer's decimal digits, written straight into the text.
template <class Integer> void appendDecimal(std::string& out, Integer value) {
    char digits[24];
    out.append(digits, std::to_chars(digits, std::end(digits), value).ptr);
}

// ObNumber::description() of a number holding `value`. Booleans and small
// counts, most of the numbers printed, take no call.
void appendMultiDigitInteger(std::string& out, ObInteger value);
inline void appendIntegerDescription(std::string& out, ObInteger value) {
    if (value >= 0 && value <= 9)
        out += static_cast<char>('0' + value);
    else
        appendMultiDigitInteger(out, value);
}

} // namespace tessiva::detail
