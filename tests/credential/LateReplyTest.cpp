// A reply that comes from another thread once the request has returned: the
// synchronous evaluation waits for it and reports it.
#include "credential/ReferenceTesting.h"

#include <future>

namespace tessiva::test {
namespace {

// Hands each evaluation's reply to the test instead of answering.
class HoldingClient final : public KVClient {
public:
    ObRef<ObData> externalizedContext() override { return ObData::make("c", 1); }
    void invalidate() override {}
    ObRef<ObString> creatorDisplayName() override { return nullptr; }
    void evaluatePolicy_options_reply(ObInteger, const ObRef<ObDictionary>&,
                                      KVResultReply reply) override {
        held.set_value(std::move(reply));
    }
    void evaluateACL_operation_options_reply(const ObRef<ObObject>&, const ObRef<ObObject>&,
                                             const ObRef<ObDictionary>&, KVResultReply) override {}
    void enterPassword_reply(const ObRef<ObObject>&, KVSuccessReply) override {}
    void failProcessedEvent_failureError_reply(ObInteger, const ObRef<ObObject>&,
                                               KVSuccessReply) override {}

    std::promise<KVResultReply> held;
};

TEST_F(ReferenceTest, SynchronousEvaluationWaitsForAReplyFromAnotherThread) {
    const ObRef<ObObject> used = ObNumber::makeBool(true);
    for (const bool succeeds : {true, false}) {
        SCOPED_TRACE(succeeds ? "success" : "failure");
        const ObRef<HoldingClient> client = ObMake<HoldingClient>();
        service->answerClientRequests(client, nullptr);
        const ObRef<VRCredentialReference> r = VRCredentialReference::make();
        ASSERT_TRUE(r->setupNewReferenceWithError(nullptr));

        ObRef<ObError> error = ObError::make(ObString::make("stale"), 1, nullptr);
        std::future<bool> evaluated = std::async(std::launch::async, [&] {
            return r->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, nullptr, &error);
        });
        // Given on this thread, whether the evaluating one is waiting yet or not.
        const KVResultReply reply = client->held.get_future().get();
        reply(ObDictionary::make({{ObNumber::make(3), used}}),
              succeeds ? nullptr : serviceUnavailable());

        EXPECT_EQ(evaluated.get(), succeeds);
        EXPECT_EQ(error ? error->code() : 0, succeeds ? 0 : -6);
        EXPECT_EQ(r->resultForTag(VRResultTagUsedPasscode), used);
    }
}

} // namespace
} // namespace tessiva::test
