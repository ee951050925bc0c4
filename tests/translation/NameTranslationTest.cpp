// Policy, hint, event and result names to service numbers, and their errors.
#include "support/TestSupport.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "translation/ExpectedTables.h"

#include <gtest/gtest.h>

namespace {

using tessiva::test::TranslateOrRaise;
using tessiva::test::TranslateWithError;

const ObRef<ObError> staleError = KVErrorHelper::parameterErrorWithMessage(ObString::make("stale"));

TEST(NameTranslation, EveryKnownNameTranslatesInEveryForm) {
    for (const auto& table : tessiva::test::expectedNameTables()) {
        for (const auto& row : table.rows) {
            SCOPED_TRACE(ObFormat("%s '%@'", table.label, row.name)->text());
            ObRef<ObError> error = staleError;
            EXPECT_EQ(table.translate(row.name, &error), row.number);
            EXPECT_TRUE(error == nullptr) << "a success leaves a stale error behind";
            EXPECT_EQ(table.translate(row.name, nullptr), row.number);
            if (table.raising != nullptr) {
                EXPECT_EQ(table.raising(row.name), row.number);
            }
        }
    }
}

TEST(NameTranslation, UnknownNamesReportAParameterErrorOrRaiseIt) {
    struct Case {
        TranslateWithError translate;
        TranslateOrRaise raising;
        ObRef<ObString> name;
        std::string_view message;
    };
    const auto policy = &KVLegacyHelper::policyFromVRPolicy_error;
    const auto hint = &KVLegacyHelper::optionFromVRHint_error;
    const auto event = &KVLegacyHelper::eventFromVREvent_error;
    const auto result = &KVLegacyHelper::resultFromVRResult_error;
    const Case cases[] = {
        {policy, &KVLegacyHelper::policyFromVRPolicy, ObString::make("HumanPresence"),
         "Unknown policy: 'HumanPresence'"},
        {policy, &KVLegacyHelper::policyFromVRPolicy, nullptr, "Unknown policy: '(null)'"},
        {hint, nullptr, VRHintEventFilter, "Unknown hint: 'EventFilter'"},
        {hint, nullptr, VRHintEventParamRemoteViewControllerName,
         "Unknown hint: 'EventParamRemoteViewControllerName'"},
        {hint, nullptr, nullptr, "Unknown hint: '(null)'"},
        {event, &KVLegacyHelper::eventFromVREvent, VREventUserCancel2,
         "Unknown event: 'EventUserCancel2'"},
        {event, &KVLegacyHelper::eventFromVREvent, VREventConsentResponse,
         "Unknown event: 'ConsentResponse'"},
        {result, &KVLegacyHelper::resultFromVRResult, ObString::make("usedpasscode"),
         "Unknown result: 'usedpasscode'"},
        {result, &KVLegacyHelper::resultFromVRResult, nullptr, "Unknown result: '(null)'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        ObRef<ObError> error = staleError;
        EXPECT_EQ(c.translate(c.name, &error), 0);
        ASSERT_TRUE(error);
        EXPECT_TRUE(error->domain()->isEqual(KVErrorDomain));
        EXPECT_EQ(error->code(), KVErrorInvalidParameter);
        EXPECT_EQ(error->localizedDescription()->text(), c.message);
        EXPECT_EQ(c.translate(c.name, nullptr), 0);
        if (c.raising == nullptr)
            continue;
        try {
            c.raising(c.name);
            ADD_FAILURE() << "no exception";
        } catch (const KVException& exception) {
            EXPECT_EQ(exception.error()->localizedDescription()->text(), c.message);
        }
    }
}

} // namespace
