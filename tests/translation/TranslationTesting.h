// Values and checks shared by the translation suites.
#pragma once

#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/Ob.h"

#include <initializer_list>
#include <string>
#include <string_view>

namespace tessiva::test {

inline ObRef<ObString> str(std::string_view text) {
    return ObString::make(text);
}
inline ObRef<ObNumber> num(ObInteger value) {
    return ObNumber::make(value);
}
inline ObRef<ObArray> array(std::initializer_list<ObRef<ObObject>> items) {
    return ObArray::make(items);
}
inline ObRef<ObDictionary> dict(std::initializer_list<ObDictionary::Entry> entries) {
    return ObDictionary::make(entries);
}
inline ObRef<ObDictionary> mutableDict(std::initializer_list<ObDictionary::Entry> entries) {
    ObRef<ObMutableDictionary> made = ObMutableDictionary::make();
    for (const ObDictionary::Entry& entry : entries)
        made->setObject_forKey(entry.second, entry.first);
    return made;
}

// What a translation gave back, as one text: the result's text form, or
// "error: <message>" for a service parameter error with no result. Anything
// else (both, neither, another kind of error) reads as "inconsistent".
inline std::string outcome(const ObRef<ObDictionary>& result, const ObRef<ObError>& error) {
    if (result && !error)
        return std::string(result->description()->text());
    if (!result && error && error->domain()->isEqual(KVErrorDomain) &&
        error->code() == KVErrorInvalidParameter)
        return "error: " + std::string(error->localizedDescription()->text());
    return "inconsistent";
}

// A caller's own string class. Each printing of it is numbered, so a message
// shows which formatting of the name produced it.
class CallerString final : public ObString {
public:
    explicit CallerString(std::string_view text) noexcept : ObString(immortal, text) {}
    ObRef<ObString> description() const override { return ObFormat("%s#%d", text(), ++printed_); }

private:
    mutable int printed_ = 0;
};

} // namespace tessiva::test
