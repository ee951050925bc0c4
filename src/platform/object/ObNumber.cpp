// SPDX-License-Identifier: MIT
// Boxed integers and the two shared booleans.
#include "tessiva/object/ObNumber.h"

#include "Description.h"
#include "tessiva/object/ObString.h"

#include <string>

namespace {
constinit ObImmortal<ObNumber> yes{ObObject::immortal, true};
constinit ObImmortal<ObNumber> no{ObObject::immortal, false};
} // namespace

ObRef<ObNumber> ObNumber::make(ObInteger value) {
    return ObRef<ObNumber>::adopt(new ObNumber(value));
}

ObRef<ObNumber> ObNumber::makeBool(bool value) noexcept {
    return ObRef<ObNumber>(value ? &yes.get() : &no.get());
}

ObRef<ObString> ObNumber::description() const {
    std::string text;
    tessiva::detail::appendIntegerDescription(text, value_);
    return ObString::make(text);
}

ObUInteger ObNumber::hash() const noexcept {
    // Spread the bits so that small consecutive integers do not share slots.
    auto bits = static_cast<ObUInteger>(value_);
    bits ^= bits >> (sizeof(ObUInteger) * 4);
    return bits * static_cast<ObUInteger>(0x9E3779B97F4A7C15ULL);
}

const char* ObNumber::className() const noexcept {
    return "ObNumber";
}

bool ObNumber::equals(const ObObject& other) const noexcept {
    const auto* number = tessiva::detail::kindOf<const ObNumber>(&other);
    return number != nullptr && number->value_ == value_;
}
