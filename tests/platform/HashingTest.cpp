// SPDX-License-Identifier: MIT
// Keyed hashing: SipHash against its published values, and dictionaries
// whose keys' public hashes collide.
#include "platform/PlatformTestSupport.h"
#include "platform/object/KeyedHash.h"

#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace {
using namespace tessiva::test;
using tessiva::detail::sipHash;

// SipHash-2-4's value from its authors' paper, and SipHash-1-3's published
// values for an empty message, a tail alone and one whole word, all under
// the key 00 01 .. 0f over the message 00 01 .. (length - 1).
TEST(KeyedHash, SipHashGivesThePublishedValues) {
    const std::uint64_t key[2] = {0x0706050403020100ULL, 0x0f0e0d0c0b0a0908ULL};
    const char message[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
    EXPECT_EQ((sipHash<2, 4>(key, {message, 15})), 0xa129ca6149be45e5ULL);
    EXPECT_EQ((sipHash<1, 3>(key, {message, 0})), 0xabac0158050fc4dcULL);
    EXPECT_EQ((sipHash<1, 3>(key, {message, 7})), 0xd3927d989bb11140ULL);
    EXPECT_EQ((sipHash<1, 3>(key, {message, 8})), 0x369095118d299a8eULL);
}

// Three pairs of blocks, each pair with one FNV-1a hash in the word size
// from the state the pairs before it leave, so that taking either block of
// each pair gives eight texts of one hash, as a peer can make as many as it
// wants. Found offline by lattice reduction.
constexpr std::string_view blockPairs[3][2] = {
    {sizeof(ObUInteger) == 8 ? "%!<=!3%h>#&0!3" : "E!{YS!",
     sizeof(ObUInteger) == 8 ? ",=#1ly%!23!1Y-" : "Rwf!s!"},
    {sizeof(ObUInteger) == 8 ? "!3n+S!6h>#&0!3" : "s!{YS!",
     sizeof(ObUInteger) == 8 ? "*+O#Pc8!23!1Y-" : "dwf!s!"},
    {sizeof(ObUInteger) == 8 ? "!3n+S!6h>#&0!3" : "s!{YS!",
     sizeof(ObUInteger) == 8 ? "*+O#Pc8!23!1Y-" : "dwf!s!"},
};

// A caller's string that counts the times it is compared with another text.
class CountingString final : public ObString {
public:
    explicit CountingString(std::string_view text) noexcept : ObString(immortal, text) {}
    int mismatches() const noexcept { return mismatches_; }

protected:
    bool equals(const ObObject& other) const noexcept override {
        const bool equal = ObString::equals(other);
        mismatches_ += equal ? 0 : 1;
        return equal;
    }

private:
    mutable int mismatches_ = 0;
};

// Strings of one hash do not share one probe run: storing each and looking
// each up again compares it with at most one other key of the hash, where a
// shared run costs every earlier one. Each is found by an equal plain string,
// also once the first of them, which the others were placed around, is gone.
TEST(KeyedHash, StringsOfOneHashAreComparedWithOneOtherAtMost) {
    std::deque<std::string> texts;
    std::deque<CountingString> keys;
    const ObRef<ObMutableDictionary> dictionary = ObMutableDictionary::make();
    for (ObInteger choice = 0; choice < 8; ++choice) {
        std::string& text = texts.emplace_back();
        for (int pair = 0; pair < 3; ++pair)
            text += blockPairs[pair][choice >> pair & 1];
        dictionary->setObject_forKey(num(choice), &keys.emplace_back(text));
        ASSERT_EQ(keys.back().hash(), keys.front().hash()) << text;
    }
    const auto found = [&](ObInteger choice) {
        const auto value = ob_cast<ObNumber>(dictionary->objectForKey(str(texts[choice])));
        return value ? value->integerValue() : -1;
    };
    for (ObInteger choice = 0; choice < 8; ++choice)
        EXPECT_EQ(found(choice), choice);
    int comparisons = 0;
    for (const CountingString& key : keys)
        comparisons += key.mismatches();
    EXPECT_LE(comparisons, 2 * 7);

    dictionary->removeObjectForKey(str(texts[0]));
    EXPECT_EQ(found(0), -1);
    for (ObInteger choice = 1; choice < 8; ++choice)
        EXPECT_EQ(found(choice), choice);
}

} // namespace
