// SPDX-License-Identifier: MIT
// The object library: equality, kind-of tests, containers, text forms and
// the storage of constants.
#include "platform/PlatformTestSupport.h"
#include "tessiva/VRConstants.h"
#include "tessiva/brindle/KVErrorHelper.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>
#include <typeinfo>

namespace {
using namespace tessiva::test;

// Fails to compile unless a constant string is constant-initialised.
OB_CONSTANT_STRING(greeting, "hello");

// Distinct objects compare by contents, entries in any order, and equal ones
// hash alike. Exact classes are recognised by type first; a caller's subclass
// still passes kind-of tests through its ancestry, compares and hashes by its
// text, and keeps its own text form inside containers.
TEST(Objects, CompareByContentsAndPassKindOfTestsThroughTheirAncestry) {
    CallerString caller("quiet");
    const ObRef<ObObject> one = num(1), yes = ObNumber::makeBool(true);
    const struct {
        ObRef<ObObject> a, b;
        bool equal;
    } cases[] = {
        {str("hello"), &greeting, true},
        {&caller, str("quiet"), true},
        {one, yes, true},
        {one, num(2), false},
        {ObData::make("A", 1), ObData::make("A", 1), true},
        {dict({{str("k"), array({one})}}), dict({{str("k"), array({yes})}}), true},
        {dict({{str("a"), one}, {str("b"), num(2)}}), dict({{str("b"), num(2)}, {str("a"), yes}}),
         true},
        {str("1"), one, false},
        {str("A"), ObData::make("A", 1), false},
        {array({}), dict({}), false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.a->isEqual(c.b), c.equal) << ObFormat("%@ and %@", c.a, c.b)->text();
        EXPECT_EQ(c.b->isEqual(c.a), c.equal);
        EXPECT_TRUE(!c.equal || c.a->hash() == c.b->hash());
        EXPECT_FALSE(c.a->isEqual(nullptr));
    }
    const ObRef<ObObject> mutableDictionary = ObMutableDictionary::make();
    EXPECT_EQ(ob_cast<ObDictionary>(mutableDictionary), mutableDictionary);
    EXPECT_EQ(ob_cast<ObMutableDictionary>(ObRef<ObObject>(dict({}))), nullptr);
    EXPECT_EQ(ob_cast_raw<ObString>(ObRef<ObObject>(&caller)), &caller);
    const auto nested = array({&caller, dict({{&caller, num(LONG_MIN)}, {str("k"), &caller}})});
    EXPECT_EQ(ObFormat("<%@>", nested)->text(),
              "<(quiet#1, {quiet#2 = " + std::to_string(LONG_MIN) + "; k = quiet#3})>");
}

// A constant is one type wherever it is defined, so the exact-type fast paths
// recognise a caller's constants and the library's alike; it still reports
// itself as a string.
TEST(Objects, ConstantStringsShareOneTypeAcrossLibrariesAndCallers) {
    const std::type_info& callers = typeid(greeting);
    EXPECT_EQ(&callers, &typeid(*VRHintTimeout));
    EXPECT_EQ(&callers, &typeid(*KVErrorDomain));
    EXPECT_STREQ(greeting.className(), "ObString");
}

// Removing closes the gap in order; dictionaries of different sizes differ
// whichever is asked, even when one holds all of the other.
TEST(Dictionary, KeepsInsertionOrderThroughReplaceAndRemoveAndCopies) {
    auto dictionary = ObMutableDictionary::make();
    for (const char* key : {"zeta", "alpha", "mid", "beta"})
        dictionary->setObject_forKey(str(key), str(key));
    dictionary->setObject_forKey(ObNumber::make(2), str("alpha"));
    dictionary->removeObjectForKey(str("mid"));
    dictionary->setObject_forKey(str("again"), str("mid"));
    // 1 and true are one key.
    dictionary->setObject_forKey(str("integer"), ObNumber::make(1));
    dictionary->setObject_forKey(str("boolean"), ObNumber::makeBool(true));
    const ObRef<ObDictionary> copy = dictionary->copy();
    dictionary->removeObjectForKey(str("zeta"));
    EXPECT_EQ(ob_cast<ObMutableDictionary>(copy), nullptr);
    EXPECT_EQ(copy->description()->text(),
              "{zeta = zeta; alpha = 2; beta = beta; mid = again; 1 = boolean}");
    EXPECT_EQ(dictionary->description()->text(),
              "{alpha = 2; beta = beta; mid = again; 1 = boolean}");
    EXPECT_EQ(dictionary->objectForKey(str("zeta")), nullptr);
    EXPECT_EQ(dictionary->objectForKey(nullptr), nullptr);
    EXPECT_FALSE(copy->isEqual(dictionary));
    EXPECT_FALSE(dictionary->isEqual(copy));
    EXPECT_FALSE(dict({})->isEqual(dictionary));
    dictionary->setObject_forKey(str("zeta"), str("zeta"));
    EXPECT_TRUE(copy->isEqual(dictionary));
}

// Enough keys to grow the index several times, then removals in the middle
// of probe runs: every remaining key must still be found.
TEST(Dictionary, FindsEveryKeyAfterGrowingAndRemoving) {
    constexpr ObInteger count = 1000;
    auto dictionary = ObMutableDictionary::make();
    for (ObInteger i = 0; i < count; ++i)
        dictionary->setObject_forKey(ObNumber::make(i), ObNumber::make(i * 65536));
    for (ObInteger i = 0; i < count; i += 2)
        dictionary->removeObjectForKey(ObNumber::make(i * 65536));
    ASSERT_EQ(dictionary->count(), ObUInteger{count / 2});
    for (ObInteger i = 0; i < count; ++i) {
        auto value = ob_cast<ObNumber>(dictionary->objectForKey(ObNumber::make(i * 65536)));
        ASSERT_EQ(value ? value->integerValue() : -1, i % 2 == 0 ? -1 : i) << i;
    }
}

TEST(TextForm, EveryKindAndConversionPrintsExactly) {
    const unsigned char data[] = {0x01, 0xff};
    const auto info = dict({{ObLocalizedDescriptionKey, str("It broke.")}});
    const std::pair<ObRef<ObString>, std::string> cases[] = {
        {ObFormat("%@|%@|%@|%@|%@", ObNumber::makeBool(true), ObData::make(data, sizeof data),
                  ObMutableDictionary::make(), ObRegisterClass("TessivaFormatProbe"),
                  array({dict({{str("n"), array({str("a b")})}}), array({})})),
         "1|<01ff>|{}|<class TessivaFormatProbe>|({n = (a b)}, ())"},
        {ObFormat("%@ / %@", ObError::make(str("D"), 7, info),
                  ObError::make(str("D"), -3, dict({{str("other"), str("x")}}))),
         "Error Domain=D Code=7 \"It broke.\" / "
         "Error Domain=D Code=-3 \"The operation could not be completed. (D error -3.)\""},
        // Absent texts print "(null)"; malformed formats have defined results.
        {ObFormat("%s %s %d|%ld|%d %@", static_cast<const char*>(nullptr), std::string_view("v"),
                  "text", str("obj"), 2),
         "(null) v (invalid)|(invalid)|2 (invalid)"},
        {ObFormat("%x %q %l %5d and %d%%, ends with %", 1, 2), "%x %q %l %5d and 1%, ends with %"},
        // Integers print as printf would; %d keeps the low 32 bits of a wider value.
        {ObFormat("%d %d %d", INT32_MIN, (1LL << 32) + 5, 0xFFFFFFFFu), "-2147483648 5 -1"},
        {ObFormat("%ld %ld %@ %@", LONG_MIN, ULONG_MAX, UINT64_MAX, LLONG_MIN),
         std::to_string(LONG_MIN) + " -1 18446744073709551615 -9223372036854775808"},
    };
    for (const auto& [result, expected] : cases)
        EXPECT_EQ(result->text(), expected);
}

// Constants live in ObImmortal storage so that threads outliving main() never
// meet a destroyed one; leaving the storage's scope must not end the object.
constinit int probeDestructions = 0;
struct DestructionProbe {
    constexpr DestructionProbe() noexcept = default;
    ~DestructionProbe() { ++probeDestructions; }
};

TEST(ObjectLifetime, ImmortalStorageNeverDestroysItsObject) {
    { [[maybe_unused]] ObImmortal<DestructionProbe> storage{}; }
    EXPECT_EQ(probeDestructions, 0);
}

} // namespace
