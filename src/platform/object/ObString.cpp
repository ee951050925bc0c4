// SPDX-License-Identifier: MIT
// Dynamic strings keep their characters in the same allocation as the object.
#include "tessiva/object/ObString.h"

#include <cstring>
#include <new>

ObRef<ObString> ObString::make(std::string_view text) {
    void* memory = ::operator new(sizeof(ObString) + text.size() + 1);
    char* characters = static_cast<char*>(memory) + sizeof(ObString);
    if (!text.empty())
        std::memcpy(characters, text.data(), text.size());
    characters[text.size()] = '\0';
    return ObRef<ObString>::adopt(
        new (memory) ObString(characters, text.size(), tessiva::detail::hashBytes(text)));
}

ObRef<ObString> ObString::description() const {
    return ObRef<ObString>(const_cast<ObString*>(this));
}

const char* ObString::className() const noexcept {
    return "ObString";
}

bool ObString::equals(const ObObject& other) const noexcept {
    const auto* string = tessiva::detail::kindOf<const ObString>(&other);
    return string != nullptr && string->hash_ == hash_ && string->text() == text();
}

const char* ObConstantString::className() const noexcept {
    return "ObString";
}
