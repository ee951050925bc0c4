// SPDX-License-Identifier: MIT
// The integers of the interface are the machine's word: 32 bits in the i386
// build, 64 in the x86-64 one, and the libraries agree with their callers.
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/object/Ob.h"

#include <gtest/gtest.h>
#include <limits>
#include <string>

static_assert(sizeof(ObInteger) == TESSIVA_EXPECTED_WORD_SIZE,
              "ObInteger is not the word size this build was configured for");
static_assert(sizeof(ObUInteger) == TESSIVA_EXPECTED_WORD_SIZE);

namespace {

// The extremes of the word pass through the libraries unchanged.
TEST(WordSize, ExtremesCrossTheLibrariesIntact) {
    constexpr ObInteger lowest = std::numeric_limits<ObInteger>::min();
    constexpr ObInteger highest = std::numeric_limits<ObInteger>::max();
    for (ObInteger value : {lowest, highest}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(ObNumber::make(value)->integerValue(), value);
        EXPECT_EQ(KVLegacyHelper::vrErrorWithCode_andMessage(value, nullptr)->code(), value);
        EXPECT_EQ(ObFormat("%ld", value)->text(), std::to_string(value));
    }
    EXPECT_EQ(ObFormat("%@", ObNumber::make(highest))->text(),
              TESSIVA_EXPECTED_WORD_SIZE == 4 ? "2147483647" : "9223372036854775807");
}

} // namespace
