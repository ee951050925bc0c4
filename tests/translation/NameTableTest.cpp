// SPDX-License-Identifier: MIT
// The name tables: every text found whatever object carries it, in a table
// that gives each text its own slot and in one forced to probe; and the text
// comparison that confirms a slot.
#include "translation/NameTable.h"

#include "platform/PlatformTestSupport.h"
#include "tessiva/brindle/KVErrorHelper.h"

#include <gtest/gtest.h>
#include <string>

namespace {
using tessiva::detail::NameTable;
using tessiva::detail::sameText;

OB_CONSTANT_STRING(alpha, "Alpha");
OB_CONSTANT_STRING(alphaAgain, "Alpha"); // the same text: the later number wins
// Differs from "Alpha" by 16 in one byte, so the low bits of both hashes, and
// the home slot of a probing table, agree (on both word sizes).
OB_CONSTANT_STRING(alphq, "Alphq");
OB_CONSTANT_STRING(shortName, "ab");
OB_CONSTANT_STRING(empty, "");
OB_CONSTANT_STRING(longName, "AlphaBetaGammaDelta");

std::vector<NameTable::Row> rows() {
    return {{&alpha, 1}, {&alphq, 2},    {&shortName, 3},
            {&empty, 4}, {&longName, 5}, {&alphaAgain, 7}};
}

NameTable searched{rows, "Unknown thing: '%@'"};
NameTable probing{rows, "Unknown thing: '%@'", 0};

// The number, or the error's message, from the error form; the raising form
// must agree.
std::string translated(NameTable& table, const ObRef<ObString>& name) {
    ObRef<ObError> error = ObError::make(ObString::make("stale"), 1, nullptr);
    const ObInteger number = table.translate(name, &error);
    std::string raised = std::to_string(number);
    try {
        table.translateOrRaise(name);
    } catch (const KVException& exception) {
        raised = std::string(exception.error()->localizedDescription()->text());
    }
    const std::string given =
        error ? std::string(error->localizedDescription()->text()) : std::to_string(number);
    EXPECT_EQ(raised, given);
    return given;
}

TEST(NameTable, FindsEveryTextByAnyObjectInEitherLayout) {
    for (NameTable* table : {&searched, &probing}) {
        SCOPED_TRACE(table == &searched ? "searched layout" : "probing layout");
        // Each row's own object and another with its text; "Alpha" has 7.
        for (const auto& [name, number] : rows()) {
            const std::string expected = std::to_string(name->isEqual(&alpha) ? 7 : number);
            EXPECT_EQ(translated(*table, name), expected);
            EXPECT_EQ(translated(*table, ObString::make(name->text())), expected);
        }
        // "AlphA" shares the home slot of "Alpha" and "Alphq".
        for (const std::string text : {"AlphA", "Alph"})
            EXPECT_EQ(translated(*table, ObString::make(text)), "Unknown thing: '" + text + "'");
        EXPECT_EQ(translated(*table, nullptr), "Unknown thing: '(null)'");
    }
}

// Texts of each length class (bytes, half words, whole words with an
// overlapping tail), equal, one byte longer, and one byte off at the start,
// middle and end.
TEST(NameTable, ComparesTextByLengthAndEveryByte) {
    const auto same = [](const std::string& left, const std::string& right) {
        return sameText(*ObString::make(left), *ObString::make(right));
    };
    for (const std::string text :
         {"", "ab", "Alpha", "Passcode", "EventPassphrase!", "AlphaBetaGammaDelta"}) {
        SCOPED_TRACE(text);
        EXPECT_TRUE(same(text, text));
        EXPECT_FALSE(same(text, text + "x"));
        for (std::size_t at = 0; !text.empty() && at < 3; ++at) {
            std::string off = text;
            off[at * (text.size() - 1) / 2] ^= 0x20;
            EXPECT_FALSE(same(text, off)) << at;
        }
    }
}

} // namespace
