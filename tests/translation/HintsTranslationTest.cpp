#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "translation/TranslationTesting.h"

#include <gtest/gtest.h>

namespace {
using namespace tessiva::test;

TEST(HintsTranslation, TranslatesOrReportsTheFirstFailure) {
    CallerString filterKey("EventFilter");
    const ObRef<ObDictionary> passcode = dict({{VREventPasscode, mutableDict({})}});
    const struct {
        ObRef<ObDictionary> hints;
        std::string expected;
    } cases[] = {
        {nullptr, "{}"},
        {dict({}), "{}"},
        // Ordinary values pass unexamined.
        {mutableDict({{VRHintTimeout, str("soon")}, {VRHintTagNotInteractive, num(1)}}),
         "{1001 = soon; 1000 = 1}"},
        {dict({{VRHintEventProcessing, passcode}}), "{1007 = {2 = {}}}"},
        {dict({{&filterKey, array({VREventPasscode})}}), "{1007 = {EventPasscode = {}}}"},
        // Both structured hints share one option; the later one replaces the earlier.
        {dict({{VRHintEventProcessing, passcode}, {VRHintEventFilter, array({VREventConsent})}}),
         "{1007 = {EventConsent = {}}}"},
        {dict({{VRHintEventFilter, array({VREventConsent})}, {VRHintEventProcessing, passcode}}),
         "{1007 = {2 = {}}}"},
        {dict({{str("eventFilter"), array({})}}), "error: Unknown hint: 'eventFilter'"},
        {dict({{VRHintEventProcessingGetRemoteViewController, num(1)}}),
         "error: Unknown hint: 'EventProcessingGetRemoteViewController'"},
        {dict({{VRHintEventParamRemoteViewControllerName, num(1)}}),
         "error: Unknown hint: 'EventParamRemoteViewControllerName'"},
        {dict({{num(7), num(1)}}), "error: Hint dictionary keys must be of class ObString."},
        {dict({{str("Bogus"), num(1)}, {num(7), num(1)}}), "error: Unknown hint: 'Bogus'"},
        {dict({{VRHintTimeout, num(30)}, {VRHintEventFilter, num(5)}}),
         "error: VRHintEventFilter value must be of type ObArray."},
        {dict({{VRHintEventProcessing, dict({{VREventUserCancel2, dict({})}})}}),
         "error: Unknown event: 'EventUserCancel2'"},
    };
    const ObRef<ObError> stale = ObError::make(str("stale"), 1, nullptr);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        ObRef<ObError> error = stale;
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

TEST(HintsTranslation, PassesTheCallersObjectsThrough) {
    CallerString event("EventPasscode");
    const ObRef<ObNumber> flag = num(0);
    const ObRef<ObDictionary> timeout = dict({});
    const auto option1007 = [](ObString* hint, const ObRef<ObObject>& value) {
        const auto options = KVLegacyHelper::optionsFromVRHints(dict({{hint, value}}));
        return ob_cast<ObDictionary>(options->objectForKey(num(1007)));
    };
    const auto processed =
        option1007(VRHintEventProcessing,
                   dict({{&event, dict({{VRHintEventProcessingGetRemoteViewController, flag}})}}));
    const auto filtered = option1007(VRHintEventFilter, array({&event}));
    ASSERT_TRUE(processed && filtered);
    EXPECT_EQ(ob_cast<ObDictionary>(processed->objectForKey(num(2)))->objectForKey(num(0)), flag);
    EXPECT_EQ(filtered->begin()->first.get(), &event);
    const auto options = KVLegacyHelper::optionsFromVRHints(dict({{VRHintTimeout, timeout}}));
    EXPECT_EQ(options->objectForKey(num(1001)), timeout);
}

TEST(HintsTranslation, UnknownHintErrorIsMadeAfresh) {
    // The table lookup prints the name once for its own error; the error
    // reported must come from printing it again.
    CallerString bogus("Bogus");
    ObRef<ObError> error;
    EXPECT_FALSE(KVLegacyHelper::optionsFromVRHints_error(dict({{&bogus, num(1)}}), &error));
    EXPECT_EQ(outcome(nullptr, error), "error: Unknown hint: 'Bogus#2'");
}
} // namespace
