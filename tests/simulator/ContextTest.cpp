// Contexts and handles, invalidation, ACL evaluation, the default backend and
// the error codes of the simulated service.
#include "simulator/SimulatorTesting.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace tessiva::test {
namespace {

class SimulatedContexts : public ::testing::Test {
protected:
    ObRef<KVSimulatedService> service = KVSimulatedService::make();
};

TEST_F(SimulatedContexts, HandleReachesTheSameContextAndNoOther) {
    ObRef<KVClient> original = connect(service);
    ObRef<ObData> handle = original->externalizedContext();
    EXPECT_EQ(handle->length(), 16u);
    EXPECT_FALSE(handle->isEqual(connect(service)->externalizedContext()));
    EXPECT_EQ(original->creatorDisplayName()->text(),
              std::filesystem::read_symlink("/proc/self/exe").filename().string());

    // A copy of the bytes, as a caller that stored the handle gives it back.
    ObRef<KVClient> restored =
        connect(service, nullptr, ObData::make(handle->bytes(), handle->length()));
    EXPECT_TRUE(restored->externalizedContext()->isEqual(handle));
    Started evaluation(original);
    EXPECT_EQ(enterPassword(restored, "1234"), "success");
    EXPECT_EQ(evaluation.wait().text(), "{1 = 0; 3 = 1; 4 = 0; 5 = 0}");

    const unsigned char bytes[] = {1, 2, 3};
    // Another service's contexts are unknown here.
    for (const ObRef<ObData>& unknown :
         {ObData::make(bytes, sizeof bytes),
          connect(KVSimulatedService::make())->externalizedContext()}) {
        ObRef<ObError> error;
        EXPECT_FALSE(connect(service, nullptr, unknown, &error));
        EXPECT_EQ(describe(nullptr, error), "error -1009: No context matches the handle.");
        EXPECT_TRUE(error->domain()->isEqual(KVErrorDomain));
    }
}

TEST_F(SimulatedContexts, InvalidationEndsTheContextForEveryClient) {
    ObRef<KVClient> original = connect(service);
    ObRef<KVClient> restored = connect(service, nullptr, original->externalizedContext());
    Started evaluation(original);
    restored->invalidate();
    EXPECT_EQ(evaluation.wait().text(),
              "error -7: The context was invalidated during the evaluation.");

    const std::string invalidated = "error -1009: The context was invalidated.";
    for (const ObRef<KVClient>& client : {original, restored}) {
        EXPECT_EQ(evaluate(client).text(), invalidated);
        EXPECT_EQ(enterPassword(client, "1234"), invalidated);
        EXPECT_EQ(failEvent(client, 2, nullptr), invalidated);
        std::string acl;
        client->evaluateACL_operation_options_reply(
            str("acl"), str("op"), nullptr, [&](ObRef<ObDictionary> result, ObRef<ObError> error) {
                acl = describe(result, error);
            });
        EXPECT_EQ(acl, invalidated);
    }
    ObRef<ObError> error;
    EXPECT_FALSE(connect(service, nullptr, original->externalizedContext(), &error));
    EXPECT_EQ(error->code(), KVErrorInvalidContext);
}

TEST_F(SimulatedContexts, ACLRuleDecidesOnTheCallersObjects) {
    ObRef<KVClient> client = connect(service);
    ObRef<ObObject> acl = str("acl"), operation = num(4);
    auto evaluateACL = [&] {
        std::string text;
        client->evaluateACL_operation_options_reply(
            acl, operation, nullptr, [&](ObRef<ObDictionary> result, ObRef<ObError> error) {
                text = describe(result, error);
            });
        return text;
    };
    EXPECT_EQ(evaluateACL(), "{}");
    std::vector<ObObject*> seen;
    service->setACLRule(
        [&](const ObRef<ObObject>& givenACL, const ObRef<ObObject>& givenOperation) {
            seen = {givenACL.get(), givenOperation.get()};
            return false;
        });
    EXPECT_EQ(evaluateACL(), "error -1002: The ACL does not allow the operation.");
    EXPECT_EQ(seen, (std::vector<ObObject*>{acl.get(), operation.get()}));
    service->setACLRule(nullptr);
    EXPECT_EQ(evaluateACL(), "{}");
}

TEST_F(SimulatedContexts, DefaultServiceAnswersWhenNoBackendIsInstalled) {
    ObRef<KVSimulatedService> fallback = KVSimulatedService::defaultService();
    ASSERT_TRUE(fallback);
    {
        KVScopedClientBackend installed(service);
        ObRef<ObData> handle = connect(nullptr)->externalizedContext();
        EXPECT_TRUE(connect(service, nullptr, handle));
        EXPECT_FALSE(connect(fallback, nullptr, handle));
    }
    ObRef<ObData> handle = connect(nullptr)->externalizedContext();
    EXPECT_TRUE(connect(fallback, nullptr, handle));
    EXPECT_FALSE(connect(service, nullptr, handle));
}

TEST(SimulatedServiceErrors, TranslateToTheDocumentedVRCodes) {
    const std::pair<ObInteger, ObInteger> codes[] = {
        {KVErrorAuthenticationFailed, -1},
        {KVErrorUserCancel, -2},
        {KVErrorAppCancel, -9},
        {KVErrorBiometryNotAvailable, -6},
        {KVErrorACLDenied, -1000},
        {KVErrorTimedOut, -1001},
        {KVErrorNotInteractive, -1002},
        {KVErrorNoEventProcessed, -1003},
        {KVErrorEvaluationInProgress, -1006},
        {KVErrorInvalidContext, -1010},
        {KVErrorInvalidParameter, -1005},
        {KVErrorServiceUnavailable, -6},
    };
    for (const auto& [code, vrCode] : codes) {
        SCOPED_TRACE(code);
        ObRef<ObError> translated =
            KVLegacyHelper::vrErrorFromKVError(ObError::make(KVErrorDomain, code, nullptr));
        EXPECT_TRUE(translated->domain()->isEqual(VRErrorDomain));
        EXPECT_EQ(translated->code(), vrCode);
    }
}

} // namespace
} // namespace tessiva::test
