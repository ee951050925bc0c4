// SPDX-License-Identifier: MIT
// What the harnesses share: a failed invariant stops the run with a message,
// and the texts the library's errors can carry.
#pragma once

#include "tessiva/object/Ob.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>

namespace tessiva::fuzz {

// Stops the run, so that libFuzzer keeps the input that broke the invariant.
[[noreturn]] inline void fail(std::string_view what, std::string_view detail = {}) {
    std::fprintf(stderr, "invariant broken: %.*s %.*s\n", static_cast<int>(what.size()),
                 what.data(), static_cast<int>(detail.size()), detail.data());
    std::abort();
}

// Stops the run unless `holds`; the detail, often a printed graph, is worked
// out only then, so that a passing check costs no text.
#define FUZZ_CHECK(holds, what, ...)                                                               \
    do {                                                                                           \
        if (!(holds))                                                                              \
            ::tessiva::fuzz::fail(what __VA_OPT__(, std::string(__VA_ARGS__)));                    \
    } while (false)

inline std::string printed(const ObRef<ObObject>& object) {
    return std::string(ObFormat("%@", object)->text());
}

// True when `text` is `pieces` one after another. It builds no string: a
// check run for every input should cost what the code under test costs.
inline bool isSpelledAs(std::string_view text, std::initializer_list<std::string_view> pieces) {
    for (const std::string_view piece : pieces) {
        if (text.substr(0, piece.size()) != piece)
            return false;
        text.remove_prefix(piece.size());
    }
    return text.empty();
}

// A number's decimal digits, kept in place.
class Decimal {
public:
    explicit Decimal(long long value)
        : length_(static_cast<std::size_t>(std::to_chars(digits_, std::end(digits_), value).ptr -
                                           digits_)) {}
    operator std::string_view() const { return {digits_, length_}; }

private:
    char digits_[24];
    std::size_t length_;
};

inline std::string messageOf(const ObRef<ObError>& error) {
    return std::string(error->localizedDescription()->text());
}

// True when `message` is `format` with its one "%@" replaced by `name`'s text form.
inline bool isFilledWith(std::string_view message, std::string_view format,
                         const ObRef<ObObject>& name) {
    return message == std::string(ObFormat(format, name)->text());
}

} // namespace tessiva::fuzz
