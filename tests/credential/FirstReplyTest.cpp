// A service that replies twice: the synchronous forms report the first reply,
// on one thread or from two; the asynchronous forms forward both.
#include "credential/ReferenceTesting.h"

#include <thread>

namespace tessiva::test {
namespace {

// Answers every evaluation twice with the two answers given, both before the
// request returns: on the requesting thread, or each from a thread of its own,
// the second started once the first has delivered.
class TwiceReplyingClient final : public KVClient {
public:
    using Answer = std::pair<ObRef<ObDictionary>, ObRef<ObError>>;
    TwiceReplyingClient(Answer first, Answer second, bool fromTwoThreads)
        : answers_{std::move(first), std::move(second)}, fromTwoThreads_(fromTwoThreads) {}

    ObRef<ObData> externalizedContext() override { return ObData::make("c", 1); }
    void invalidate() override {}
    ObRef<ObString> creatorDisplayName() override { return nullptr; }
    void evaluatePolicy_options_reply(ObInteger, const ObRef<ObDictionary>&,
                                      KVResultReply reply) override {
        for (const Answer& answer : answers_) {
            if (fromTwoThreads_)
                std::thread([&] { reply(answer.first, answer.second); }).join();
            else
                reply(answer.first, answer.second);
        }
    }
    void evaluateACL_operation_options_reply(const ObRef<ObObject>&, const ObRef<ObObject>&,
                                             const ObRef<ObDictionary>& options,
                                             KVResultReply reply) override {
        evaluatePolicy_options_reply(0, options, std::move(reply));
    }
    void enterPassword_reply(const ObRef<ObObject>&, KVSuccessReply) override {}
    void failProcessedEvent_failureError_reply(ObInteger, const ObRef<ObObject>&,
                                               KVSuccessReply) override {}

private:
    const Answer answers_[2];
    const bool fromTwoThreads_;
};

TEST_F(ReferenceTest, SynchronousFormsReportTheFirstOfTwoRepliesAsynchronousOnesForwardBoth) {
    const TwiceReplyingClient::Answer success{ObDictionary::make(), nullptr};
    const TwiceReplyingClient::Answer failure{nullptr, serviceUnavailable()};
    for (const bool firstSucceeds : {true, false})
        for (const bool fromTwoThreads : {false, true}) {
            SCOPED_TRACE(::testing::Message() << firstSucceeds << fromTwoThreads);
            service->answerClientRequests(
                ObMake<TwiceReplyingClient>(firstSucceeds ? success : failure,
                                            firstSucceeds ? failure : success, fromTwoThreads),
                nullptr);
            const ObRef<VRCredentialReference> r = VRCredentialReference::make();
            ASSERT_TRUE(r->setupWithCredentialHandle_error(handle, nullptr));

            ObRef<ObError> error = ObError::make(ObString::make("stale"), 1, nullptr);
            EXPECT_EQ(
                r->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, nullptr, &error),
                firstSucceeds);
            EXPECT_EQ(error ? error->code() : 0, firstSucceeds ? 0 : -6);

            error = nullptr;
            EXPECT_EQ(r->evaluateACL_operation_hints_error(acl, operation, nullptr, &error),
                      firstSucceeds);
            EXPECT_EQ(error ? error->code() : 0, firstSucceeds ? 0 : -6);

            std::vector<ObRef<ObError>> forwarded;
            r->evaluatePolicy_hints_reply(VRPolicyDeviceOwnerAuthenticated, nullptr,
                                          [&](ObRef<ObError> e) { forwarded.push_back(e); });
            ASSERT_EQ(forwarded.size(), 2u);
            EXPECT_EQ(forwarded[0] == nullptr, firstSucceeds);
            EXPECT_EQ(forwarded[1] == nullptr, !firstSucceeds);
        }
}

} // namespace
} // namespace tessiva::test
