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
    char digits[24];
    const auto written = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, written.ptr);
}

} // namespace tessiva::detail
