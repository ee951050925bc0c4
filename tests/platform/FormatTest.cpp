// Text forms of every object kind and the ObFormat conversions.
#include "platform/PlatformTestSupport.h"
#include "tessiva/object/Ob.h"

#include <climits>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>

namespace {
using tessiva::test::str;

std::string printed(const char* format, auto value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

struct Case {
    ObRef<ObString> result;
    std::string expected;
};

void expectAll(std::initializer_list<Case> cases) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected);
        EXPECT_EQ(c.result->text(), c.expected);
    }
}

TEST(TextForm, EveryKindPrintsExactly) {
    const unsigned char data[] = {0x01, 0xff};
    const auto userInfo = ObDictionary::make({{ObLocalizedDescriptionKey, str("It broke.")}});
    const std::pair<ObRef<ObObject>, std::string_view> cases[] = {
        {str("plain text"), "plain text"},
        {ObNumber::make(-42), "-42"},
        {ObNumber::makeBool(true), "1"},
        {ObNumber::makeBool(false), "0"},
        {ObData::make(data, sizeof data), "<01ff>"},
        {ObArray::make({str("a"), str("b")}), "(a, b)"},
        {ObArray::make({}), "()"},
        {ObDictionary::make({{str("k"), str("v")}, {str("k2"), ObNumber::make(2)}}),
         "{k = v; k2 = 2}"},
        {ObMutableDictionary::make(), "{}"},
        {ObArray::make({ObDictionary::make({{str("n"), ObArray::make({ObNumber::make(1)})}}),
                        ObArray::make({})}),
         "({n = (1)}, ())"},
        {ObError::make(str("D"), 7, userInfo), "Error Domain=D Code=7 \"It broke.\""},
        {ObError::make(str("D"), -3, nullptr),
         "Error Domain=D Code=-3 \"The operation could not be completed. (D error -3.)\""},
        {ObError::make(str("D"), 1, ObDictionary::make({{str("other"), str("x")}})),
         "Error Domain=D Code=1 \"The operation could not be completed. (D error 1.)\""},
        {ObRegisterClass("TessivaFormatProbe"), "<class TessivaFormatProbe>"},
    };
    for (const auto& [object, expected] : cases) {
        EXPECT_EQ(object->description()->text(), expected);
        EXPECT_EQ(ObFormat("%@", object)->text(), expected);
    }
}

// Containers write their own classes' texts straight into one buffer; any
// other object, a subclass of those included, is still asked for its own.
TEST(TextForm, ContainersAskEveryOtherClassForItsOwnText) {
    tessiva::test::ShoutingString shouting("quiet");
    const ObRef<ObObject> loud(&shouting);
    const auto nested = ObArray::make(
        {loud, ObDictionary::make({{loud, ObNumber::make(LONG_MIN)}, {str("k"), loud}})});
    const std::string expected = "(LOUD, {LOUD = " + printed("%ld", LONG_MIN) + "; k = LOUD})";
    EXPECT_EQ(nested->description()->text(), expected);
    EXPECT_EQ(ObFormat("<%@>", nested)->text(), "<" + expected + ">");
}

TEST(Format, ConversionsAndMalformedFormats) {
    const char* nullText = nullptr;
    expectAll({
        {ObFormat("[%@|%@]", ObRef<ObObject>(), nullptr), "[(null)|(null)]"},
        {ObFormat("%@ %@", str("x"), 12), "x 12"},
        {ObFormat("%s|%s|%s", "c", std::string("owned"), std::string_view("view")), "c|owned|view"},
        {ObFormat("%s %s", nullText, ObNumber::make(3)), "(null) 3"},
        {ObFormat("%d %ld", 5, 6L), "5 6"},
        {ObFormat("100%% of %d%%", 3), "100% of 3%"},
        {ObFormat("no conversions"), "no conversions"},
        // Malformed formats have defined results.
        {ObFormat("%@ and %@", str("one")), "one and (invalid)"},
        {ObFormat("%d|%ld|%s", "text", str("obj")), "(invalid)|(invalid)|(invalid)"},
        {ObFormat("%d %d", "skipped", 2), "(invalid) 2"},
        {ObFormat("%x %q %l %5d", 1), "%x %q %l %5d"},
        {ObFormat("ends with %", 1), "ends with %"},
        {ObFormat("%d", 1, 2, 3), "1"},
    });
}

TEST(Format, IntegersMatchPrintf) {
    expectAll({
        {ObFormat("%d", INT32_MIN), printed("%d", INT32_MIN)},
        {ObFormat("%d", INT32_MAX), printed("%d", INT32_MAX)},
        {ObFormat("%ld", LONG_MIN), printed("%ld", LONG_MIN)},
        {ObFormat("%ld", LONG_MAX), printed("%ld", LONG_MAX)},
        {ObFormat("%ld", ULONG_MAX), printed("%ld", static_cast<long>(ULONG_MAX))},
        // %d keeps the low 32 bits of a wider value, as printf does with an int.
        {ObFormat("%d", (1LL << 32) + 5), printed("%d", 5)},
        {ObFormat("%d", 0x80000000LL), printed("%d", INT32_MIN)},
        {ObFormat("%d", 0xFFFFFFFFu), printed("%d", -1)},
        {ObFormat("%@", ULONG_MAX), printed("%lu", ULONG_MAX)},
        {ObFormat("%@ %s", LLONG_MIN, true), printed("%lld", LLONG_MIN) + " 1"},
    });
}

} // namespace
