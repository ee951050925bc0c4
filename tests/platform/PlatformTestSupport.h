// SPDX-License-Identifier: MIT
// Short ways to make objects, and a caller's own string class, for the
// platform suites and the suites built on them.
#pragma once

#include "tessiva/object/Ob.h"

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

// A caller's subclass of the library's string, which the library's shortcuts
// for its own exact classes must not take for one of theirs. Each printing of
// it is numbered, so a text shows which formatting produced it.
class CallerString final : public ObString {
public:
    explicit CallerString(std::string_view text) noexcept : ObString(immortal, text) {}
    ObRef<ObString> description() const override { return ObFormat("%s#%d", text(), ++printed_); }

private:
    mutable int printed_ = 0;
};

} // namespace tessiva::test
