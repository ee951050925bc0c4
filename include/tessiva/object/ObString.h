// SPDX-License-Identifier: MIT
// ObString: immutable UTF-8 text, and constant strings made at compile time.
#pragma once

#include "tessiva/object/ObImmortal.h"
#include "tessiva/object/ObRef.h"

#include <string_view>

namespace tessiva::detail {
// FNV-1a over the bytes, in the word size; usable at compile time so that
// constants carry their hash from the start.
constexpr ObUInteger hashBytes(std::string_view bytes) noexcept {
    ObUInteger hash = sizeof(ObUInteger) == 8 ? static_cast<ObUInteger>(14695981039346656037ULL)
                                              : static_cast<ObUInteger>(2166136261UL);
    const ObUInteger prime = sizeof(ObUInteger) == 8 ? static_cast<ObUInteger>(1099511628211ULL)
                                                     : static_cast<ObUInteger>(16777619UL);
    for (char c : bytes) {
        hash ^= static_cast<unsigned char>(c);
        hash *= prime;
    }
    return hash;
}
} // namespace tessiva::detail

class TESSIVA_PLATFORM_API ObString : public ObObject {
public:
    // A new string holding a copy of the text.
    static ObRef<ObString> make(std::string_view text);

    std::string_view text() const noexcept { return {characters_, length_}; }
    // NUL-terminated; the text itself holds no NUL unless it was given one.
    const char* cString() const noexcept { return characters_; }
    ObUInteger length() const noexcept { return length_; }

    // The text itself.
    ObRef<ObString> description() const override;
    ObUInteger hash() const noexcept override { return hash_; }
    const char* className() const noexcept override;

protected:
    // An immortal constant over a string literal; see ObConstantString.
    constexpr ObString(ImmortalTag, std::string_view literal) noexcept
        : ObObject(immortal), characters_(literal.data()), length_(literal.size()),
          hash_(tessiva::detail::hashBytes(literal)) {}

    bool equals(const ObObject& other) const noexcept override;

private:
    ObString(const char* characters, ObUInteger length, ObUInteger hash) noexcept
        : characters_(characters), length_(length), hash_(hash) {}

    const char* characters_;
    ObUInteger length_;
    ObUInteger hash_;
};

// A constant string: immortal, constant-initialised and never destroyed, so it
// can be used from any static initialiser in any translation unit and from
// threads that outlive main(). Define one at namespace scope with
// `OB_CONSTANT_STRING(name, "text");`, which makes `name` an
// ObConstantString&. The literal must outlive it.
//
// Exported, with its type information defined once, in the platform library
// (className() is out of line for that), so that a constant is recognised by
// its exact type wherever it is defined: in either library or in a caller.
class TESSIVA_PLATFORM_API ObConstantString final : public ObString {
public:
    template <std::size_t N>
    consteval explicit ObConstantString(const char (&literal)[N]) noexcept
        : ObString(immortal, std::string_view(literal, N - 1)) {}

    // "ObString", as for any other string.
    const char* className() const noexcept override;
};

#define OB_CONSTANT_STRING(name, literal)                                                          \
    constinit ObImmortal<ObConstantString> name##Storage{literal};                                 \
    constinit ObConstantString& name = name##Storage.get()

// Strings are mostly constants: ob_cast<ObString> recognises both by type_info.
template <> struct ObKindShortcut<ObString> {
    static bool matches(const std::type_info& type) noexcept {
        return &type == &typeid(ObString) || &type == &typeid(ObConstantString);
    }
};
