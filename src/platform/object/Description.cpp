// The dispatch behind appendDescription, and the text form of an integer.
#include "Description.h"

#include "ExactKind.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObString.h"

#include <charconv>
#include <typeinfo>

namespace tessiva::detail {

void appendDescription(std::string& out, const ObObject& object) {
    const std::type_info& type = typeid(object);
    if (isExactly<ObConstantString>(type) || isExactly<ObString>(type))
        out += static_cast<const ObString&>(object).text();
    else if (isExactly<ObNumber>(type))
        appendIntegerDescription(out, static_cast<const ObNumber&>(object).integerValue());
    else if (isExactly<ObDictionary>(type) || isExactly<ObMutableDictionary>(type))
        appendDictionaryDescription(out, static_cast<const ObDictionary&>(object));
    else if (isExactly<ObArray>(type))
        appendArrayDescription(out, static_cast<const ObArray&>(object));
    else
        out += object.description()->text();
}

void appendIntegerDescription(std::string& out, ObInteger value) {
    // Most integers in argument texts are flags and small codes.
    if (value >= 0 && value < 10) {
        out.push_back(static_cast<char>('0' + value));
        return;
    }
    char digits[24];
    const auto written = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, written.ptr);
}

} // namespace tessiva::detail
