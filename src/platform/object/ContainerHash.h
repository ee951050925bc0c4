// SPDX-License-Identifier: MIT
// Hashes of containers built from their contents with bounded work.
#pragma once

#include "ExactKind.h"
#include "tessiva/object/ObArray.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObString.h"

namespace tessiva::detail {

// How many leading items an array's hash reads.
inline constexpr ObUInteger hashedArrayItems = 8;

inline ObUInteger mixHash(ObUInteger hash, ObUInteger part) noexcept {
    constexpr ObUInteger golden = sizeof(ObUInteger) == 8
                                      ? static_cast<ObUInteger>(0x9E3779B97F4A7C15ULL)
                                      : static_cast<ObUInteger>(0x9E3779B9UL);
    return ((hash << 5 | hash >> (sizeof(ObUInteger) * 8 - 5)) ^ part) * golden;
}

// An item's contribution to its container's hash: a container inside counts
// by its size alone, so a hash never descends more than one level.
inline ObUInteger itemHash(const ObObject& item) noexcept {
    const std::type_info& type = typeid(item);
    if (isExactly<ObConstantString>(type) || isExactly<ObString>(type) || isExactly<ObNumber>(type))
        return item.hash();
    if (const auto* array = dynamic_cast<const ObArray*>(&item))
        return array->count();
    if (const auto* dictionary = dynamic_cast<const ObDictionary*>(&item))
        return dictionary->count();
    return item.hash();
}

} // namespace tessiva::detail
