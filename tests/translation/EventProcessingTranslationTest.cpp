#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "translation/TranslationTesting.h"

#include <gtest/gtest.h>

namespace {
using namespace tessiva::test;

using Conversion = ObRef<ObMutableDictionary> (*)(const ObRef<ObObject>&, ObRef<ObError>*);
constexpr Conversion processing = &KVLegacyHelper::_eventProcessingFromVREventProcessing_error;
constexpr Conversion filter = &KVLegacyHelper::_eventProcessingFromVREventFilter_error;

TEST(EventProcessingTranslation, ConvertsOrReportsTheFirstFailure) {
    const ObRef<ObObject> getRemote = VRHintEventProcessingGetRemoteViewController;
    const std::string notDictionary =
        "error: VRHintEventProcessing value must be of type ObDictionary.";
    const std::string notArray = "error: VRHintEventFilter value must be of type ObArray.";
    const struct {
        Conversion convert;
        ObRef<ObObject> value;
        std::string expected;
    } cases[] = {
        {processing, nullptr, notDictionary},
        {processing, array({}), notDictionary},
        {processing, mutableDict({}), "{}"},
        {processing,
         dict({{VREventPasscode, dict({{getRemote, num(1)}})},
               {VREventConsent, mutableDict({{getRemote, num(0)}})}}),
         "{2 = {0 = 1}; 3 = {0 = 0}}"},
        {processing,
         dict({{VREventPasscode, dict({{VRHintEventParamRemoteViewControllerBundleID, str("b")},
                                       {VRHintEventParamRemoteViewControllerName, num(3)}})}}),
         "{2 = {}}"},
        {processing, dict({{VREventPasscode, dict({{getRemote, str("yes")}})}}),
         "error: VRHintEventProcessingGetRemoteViewController value must be of type ObNumber."},
        {processing, dict({{VREventUserCancel2, dict({})}}),
         "error: Unknown event: 'EventUserCancel2'"},
        {processing, dict({{VREventPasscode, str("s")}}),
         "error: VREventProcessing dictionary keys must be ObDictionary"},
        // Key type, then event name, then value type.
        {processing, dict({{num(5), str("s")}}),
         "error: VREventProcessing dictionary keys must be ObString"},
        {processing, dict({{str("Nope"), str("s")}}), "error: Unknown event: 'Nope'"},
        {processing, dict({{VREventPasscode, dict({})}, {VREventConsent, num(1)}}),
         "error: VREventProcessing dictionary keys must be ObDictionary"},
        {filter, nullptr, notArray},
        {filter, array({}), "{}"},
        {filter, array({VREventPasscode, str("EventPasscode"), str("Nope")}),
         "{EventPasscode = {}; Nope = {}}"},
        {filter, array({VREventPasscode, num(3)}),
         "error: VRHintEventFilter array must contain ObString items."},
    };
    const ObRef<ObError> stale = ObError::make(str("stale"), 1, nullptr);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        ObRef<ObError> error = stale;
        EXPECT_EQ(outcome(c.convert(c.value, &error), error), c.expected);
        EXPECT_EQ(static_cast<bool>(c.convert(c.value, nullptr)), c.expected.starts_with("{"));
    }
}
} // namespace
