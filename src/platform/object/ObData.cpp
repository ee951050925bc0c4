// SPDX-License-Identifier: MIT
// Immutable bytes and their hexadecimal text form.
#include "tessiva/object/ObData.h"

#include "KeyedHash.h"
#include "tessiva/object/ObString.h"

#include <string>

ObRef<ObData> ObData::make(const void* bytes, ObUInteger length) {
    const auto* first = static_cast<const unsigned char*>(bytes);
    std::vector<unsigned char> copy;
    if (first != nullptr)
        copy.assign(first, first + length);
    return ObRef<ObData>::adopt(new ObData(std::move(copy)));
}

ObRef<ObString> ObData::description() const {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text = "<";
    for (unsigned char byte : bytes_) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0f];
    }
    text += '>';
    return ObString::make(text);
}

// Keyed, unlike a string's hash, which constants carry from compile time: no
// constant carries a data's, and so a peer cannot choose bytes whose hashes
// collide.
ObUInteger ObData::hash() const noexcept {
    return tessiva::detail::keyedHashBytes(
        std::string_view(reinterpret_cast<const char*>(bytes_.data()), bytes_.size()));
}

const char* ObData::className() const noexcept {
    return "ObData";
}

bool ObData::equals(const ObObject& other) const noexcept {
    const auto* data = dynamic_cast<const ObData*>(&other);
    return data != nullptr && data->bytes_ == bytes_;
}
