// SPDX-License-Identifier: MIT
// The translations into the service's vocabulary: names to numbers, hints
// dictionaries to options, and service errors back into VR errors.
#include "translation/ExpectedTables.h"
#include "translation/TranslationTesting.h"

#include <gtest/gtest.h>

namespace {
using namespace tessiva::test;

const ObRef<ObError> staleError = ObError::make(str("stale"), 1, nullptr);

// Each table is checked with its rows, one name it lacks and the absent name;
// a name it lacks gives a parameter error naming it, or raises it.
TEST(NameTranslation, EveryFormTranslatesKnownNamesAndReportsTheOthers) {
    // In the tables' order: policy, hint, event, result.
    const ObRef<ObString> unknown[] = {str("HumanPresence"), VRHintEventFilter, VREventUserCancel2,
                                       str("usedpasscode")};
    std::vector<NameTableCase> tables = expectedNameTables();
    for (std::size_t t = 0; t < tables.size(); ++t) {
        const NameTableCase& table = tables[t];
        tables[t].rows.insert(table.rows.end(), {{unknown[t], 0}, {nullptr, 0}});
        for (const NameRow& row : table.rows) {
            const std::string expected(
                row.number != 0
                    ? ObFormat("%ld", row.number)->text()
                    : ObFormat("error: Unknown %s: '%@'", table.label, row.name)->text());
            SCOPED_TRACE(expected);
            ObRef<ObError> error = staleError;
            EXPECT_EQ(table.translate(row.name, &error), row.number);
            EXPECT_EQ(error ? outcome(nullptr, error) : std::to_string(row.number), expected);
            EXPECT_EQ(table.translate(row.name, nullptr), row.number);
            try {
                if (table.raising != nullptr) {
                    EXPECT_EQ(std::to_string(table.raising(row.name)), expected);
                }
            } catch (const KVException& exception) {
                EXPECT_EQ(outcome(nullptr, exception.error()), expected);
            }
        }
    }
}

TEST(HintsTranslation, TranslatesOrReportsTheFirstFailure) {
    CallerString filterKey("EventFilter");
    const ObRef<ObObject> getRemote = VRHintEventProcessingGetRemoteViewController;
    const ObRef<ObMutableDictionary> mutableSettings = ObMutableDictionary::make();
    mutableSettings->setObject_forKey(num(0), getRemote);
    const ObRef<ObDictionary> passcode = dict({{VREventPasscode, dict({})}});
    const auto processing = [](const ObRef<ObObject>& value) {
        return dict({{VRHintEventProcessing, value}});
    };
    const struct {
        ObRef<ObDictionary> hints;
        std::string expected;
    } cases[] = {
        {nullptr, "{}"},
        // Only the one processing parameter is read, and a mutable dictionary will do.
        {processing(dict(
             {{VREventPasscode, dict({{VRHintEventParamRemoteViewControllerBundleID, str("b")}})},
              {VREventConsent, mutableSettings}})),
         "{1007 = {2 = {}; 3 = {0 = 0}}}"},
        // A filter is found by the text of its name; its events are neither
        // translated nor checked.
        {dict({{&filterKey, array({VREventPasscode, str("EventPasscode"), str("Nope")})}}),
         "{1007 = {EventPasscode = {}; Nope = {}}}"},
        // Both structured hints share one option; the later one replaces the earlier.
        {dict({{VRHintEventProcessing, passcode}, {VRHintEventFilter, array({VREventConsent})}}),
         "{1007 = {EventConsent = {}}}"},
        {dict({{VRHintEventFilter, array({VREventConsent})}, {VRHintEventProcessing, passcode}}),
         "{1007 = {2 = {}}}"},
        // The first failing entry names the error; names match by exact text.
        {dict({{VRHintTimeout, num(1)}, {num(7), num(1)}}),
         "error: Hint dictionary keys must be of class ObString."},
        {dict({{str("eventFilter"), num(1)}, {num(7), num(1)}}),
         "error: Unknown hint: 'eventFilter'"},
        {dict({{VRHintEventFilter, array({VREventPasscode, num(3)})}}),
         "error: VRHintEventFilter array must contain ObString items."},
        {processing(array({})), "error: VRHintEventProcessing value must be of type ObDictionary."},
        {processing(dict({{VREventPasscode, dict({{getRemote, str("yes")}})}})),
         "error: VRHintEventProcessingGetRemoteViewController value must be of type ObNumber."},
        // Processing entries are checked for key type, then event name, then value type.
        {processing(dict({{num(5), str("s")}})),
         "error: VREventProcessing dictionary keys must be ObString"},
        {processing(dict({{str("Nope"), str("s")}})), "error: Unknown event: 'Nope'"},
        {processing(dict({{VREventPasscode, dict({})}, {VREventConsent, str("s")}})),
         "error: VREventProcessing dictionary keys must be ObDictionary"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        ObRef<ObError> error = staleError;
        EXPECT_EQ(outcome(KVLegacyHelper::optionsFromVRHints_error(c.hints, &error), error),
                  c.expected);
        EXPECT_EQ(static_cast<bool>(KVLegacyHelper::optionsFromVRHints_error(c.hints, nullptr)),
                  c.expected.starts_with("{"));
        try {
            EXPECT_EQ(outcome(KVLegacyHelper::optionsFromVRHints(c.hints), nullptr), c.expected);
        } catch (const KVException& raised) {
            EXPECT_EQ(outcome(nullptr, raised.error()), c.expected);
        }
    }
}

// Values reach the service as the very objects the caller gave. The table
// lookup makes no error of its own, so an unknown name is printed once, for
// the error reported, and never for one thrown away.
TEST(HintsTranslation, PassesTheCallersObjectsThroughAndPrintsAnUnknownHintOnce) {
    CallerString event("EventPasscode"), bogus("Bogus");
    const ObRef<ObObject> flag = num(1), filter = array({&event});
    const auto option = [](ObString* hint, const ObRef<ObObject>& value, ObInteger number) {
        return KVLegacyHelper::optionsFromVRHints(dict({{hint, value}}))->objectForKey(num(number));
    };
    const auto processed = ob_cast<ObDictionary>(option(
        VRHintEventProcessing,
        dict({{&event, dict({{VRHintEventProcessingGetRemoteViewController, flag}})}}), 1007));
    EXPECT_EQ(ob_cast<ObDictionary>(processed->objectForKey(num(2)))->objectForKey(num(0)), flag);
    const auto filtered = ob_cast<ObDictionary>(option(VRHintEventFilter, filter, 1007));
    EXPECT_EQ(filtered->begin()->first.get(), &event);

    ObRef<ObError> error;
    EXPECT_FALSE(KVLegacyHelper::optionsFromVRHints_error(dict({{&bogus, num(1)}}), &error));
    EXPECT_EQ(outcome(nullptr, error), "error: Unknown hint: 'Bogus#1'");
}
} // namespace
