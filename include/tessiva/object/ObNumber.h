// SPDX-License-Identifier: MIT
// ObNumber: a boxed signed integer or boolean.
#pragma once

#include "tessiva/object/ObImmortal.h"
#include "tessiva/object/ObRef.h"

#include <concepts>
#include <type_traits>

class TESSIVA_PLATFORM_API ObNumber : public ObObject {
public:
    static ObRef<ObNumber> make(ObInteger value);
    // Booleans are shared constants; true holds 1 and false holds 0.
    static ObRef<ObNumber> makeBool(bool value) noexcept;

    // A pointer, a character or a bool is almost never meant as an integer.
    template <class T>
    requires std::is_pointer_v<T> || std::same_as<T, bool> || std::same_as<T, char>
    static ObRef<ObNumber> make(T) = delete;
    template <class T>
    requires(!std::same_as<T, bool>) static ObRef<ObNumber> makeBool(T) = delete;

    ObInteger integerValue() const noexcept { return value_; }
    bool boolValue() const noexcept { return value_ != 0; }
    bool isBoolean() const noexcept { return isBoolean_; }

    // Decimal; booleans print 1 and 0.
    ObRef<ObString> description() const override;
    // Equality and hash go by integer value alone, so true equals 1.
    ObUInteger hash() const noexcept override;
    const char* className() const noexcept override;

protected:
    bool equals(const ObObject& other) const noexcept override;

private:
    friend class ObImmortal<ObNumber>;
    constexpr ObNumber(ImmortalTag, bool value) noexcept
        : ObObject(immortal), value_(value ? 1 : 0), isBoolean_(true) {}
    // An immortal integer, for numbers kept as constants (dictionary keys).
    constexpr ObNumber(ImmortalTag, ObInteger value) noexcept : ObObject(immortal), value_(value) {}
    explicit ObNumber(ObInteger value) noexcept : value_(value) {}

    ObInteger value_;
    bool isBoolean_ = false;
};
