// SPDX-License-Identifier: MIT
#include "translation/OptionKeys.h"

#include <cstddef>
#include <utility>

namespace tessiva::detail {
namespace {

// The numbers first to first + Count - 1, constant-initialised.
template <ObInteger First, std::size_t Count> class ImmortalNumbers {
public:
    consteval ImmortalNumbers() : ImmortalNumbers(std::make_index_sequence<Count>()) {}

    ObNumber* find(ObInteger number) noexcept {
        if (number < First || number >= First + static_cast<ObInteger>(Count))
            return nullptr;
        return &numbers_[static_cast<std::size_t>(number - First)].get();
    }

private:
    template <std::size_t... Index>
    consteval explicit ImmortalNumbers(std::index_sequence<Index...>)
        : numbers_{
              ObImmortal<ObNumber>(ObObject::immortal, static_cast<ObInteger>(First + Index))...} {}

    ObImmortal<ObNumber> numbers_[Count];
};

constinit ImmortalNumbers<0, 16> lowOptions;
constinit ImmortalNumbers<1000, 16> highOptions;

} // namespace

ObRef<ObNumber> optionKey(ObInteger number) {
    if (ObNumber* key = lowOptions.find(number))
        return ObRef<ObNumber>(key);
    if (ObNumber* key = highOptions.find(number))
        return ObRef<ObNumber>(key);
    return ObNumber::make(number);
}

} // namespace tessiva::detail
