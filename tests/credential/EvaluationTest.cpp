// Policy and ACL evaluation: what reaches the service, what the reference
// keeps, what the caller receives, and the log lines of every operation.
#include "credential/ReferenceTesting.h"
#include "support/TestSupport.h"
#include "tessiva/VRConstants.h"
#include "tessiva/object/ObClass.h"

#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace {
using namespace tessiva::test;

const VRErrorReply ignoreError = [](ObRef<ObError>) {};

template <class Reference> class EvaluationTest : public SetUpReferenceTest<Reference> {
protected:
    const ObRef<ObObject> acl = ObString::make("acl");
    const ObRef<ObObject> operation = ObData::make("op", 2);
    const ObRef<ObDictionary> hints = ObDictionary::make(
        {{VRHintTimeout, ObNumber::make(30)}, {VRHintNotInteractive, ObNumber::makeBool(true)}});
    const ObRef<ObDictionary> badHints =
        ObDictionary::make({{ObString::make("Bogus"), ObNumber::make(1)}});
};
TYPED_TEST_SUITE(EvaluationTest, ReferenceKinds);

TYPED_TEST(EvaluationTest, SendsTranslatedOptionsAndTheCallersObjects) {
    auto& r = *this->reference;
    r.evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, ignoreError);
    r.evaluatePolicy_hints_reply(ObString::make("DeviceOwnerAuthenticated"), this->hints,
                                 ignoreError);
    r.evaluateACL_operation_hints_reply(this->acl, this->operation, nullptr, ignoreError);
    r.evaluateACL_operation_hints_reply(this->acl, this->operation, this->hints, ignoreError);
    // The class look-up was done once; a class appearing later is not seen.
    ObRegisterClass("ScandraIdentity");
    r.evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, ignoreError);

    const auto policies = this->service->policyRequests();
    ASSERT_EQ(policies.size(), 3u);
    // Every policy constant holds "" in this build, which translates to 1007.
    EXPECT_EQ(policies[0].policy, 1007);
    EXPECT_EQ(printed(policies[0].options), "{1009 = 0}");
    EXPECT_EQ(policies[1].policy, 1000);
    EXPECT_EQ(printed(policies[1].options), "{1001 = 30; 1000 = 1; 1009 = 0}");
    for (const auto& request : policies)
        EXPECT_TRUE(carriesScandraIdentity(request.options, false));

    const auto acls = this->service->aclRequests();
    ASSERT_EQ(acls.size(), 2u);
    EXPECT_EQ(printed(acls[0].options), "{}");
    EXPECT_EQ(printed(acls[1].options), "{1001 = 30; 1000 = 1}");
    for (const auto& request : acls) {
        EXPECT_EQ(request.acl, this->acl);
        EXPECT_EQ(request.operation, this->operation);
    }
}

TYPED_TEST(EvaluationTest, KeepsTheLastPolicyResultOnly) {
    auto& r = *this->reference;
    const ObRef<ObObject> usedRidgescan = ObString::make("ridgescan");
    const ObRef<ObObject> usedPasscode = ObNumber::makeBool(true);
    this->service->answerEvaluations(
        ObDictionary::make({{ObNumber::make(1), usedRidgescan}, {ObNumber::make(3), usedPasscode}}),
        nullptr);
    // Kept before the caller's reply runs.
    ObRef<ObObject> readInReply;
    r.evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, [&](ObRef<ObError>) {
        readInReply = r.resultForTag(VRResultTagUsedPasscode);
    });
    EXPECT_EQ(readInReply, usedPasscode);

    this->service->answerEvaluations(ObDictionary::make({{ObNumber::make(3), this->acl}}), nullptr);
    ObRef<ObError> error = serviceUnavailable();
    EXPECT_TRUE(r.evaluateACL_operation_hints_error(this->acl, this->operation, nullptr, &error));
    EXPECT_EQ(error, nullptr);

    for (const ObRef<ObString>& tag :
         {ObRef<ObString>(VRResultTagUsedRidgescan), ObRef<ObString>(VRResultTagUsedRidgeScan),
          ObString::make("UsedRidgescan")}) {
        SCOPED_TRACE(printed(tag));
        EXPECT_EQ(r.resultForTag(tag), usedRidgescan);
    }
    EXPECT_EQ(r.resultForTag(VRResultTagUsedPasscode), usedPasscode);

    // A failed evaluation leaves nothing to read; its error comes translated.
    this->service->answerEvaluations(nullptr, serviceUnavailable());
    EXPECT_FALSE(r.evaluatePolicy_hints_error(VRPolicyTirsa, nullptr, &error));
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->domain()->isEqual(VRErrorDomain));
    EXPECT_EQ(error->code(), -6);
    EXPECT_EQ(r.resultForTag(VRResultTagUsedPasscode), nullptr);
    EXPECT_FALSE(r.evaluateACL_operation_hints_error(this->acl, this->operation, nullptr, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), -6);
}

TYPED_TEST(EvaluationTest, UntranslatableArgumentsRaiseBeforeAnythingIsSent) {
    auto& r = *this->reference;
    const ObRef<ObString> badPolicy = ObString::make("Bogus");
    const ObRef<ObError> stale = serviceUnavailable();
    ObRef<ObError> error = stale;
    expectEachRaises({
        {"policy: hints and policy bad",
         [&] { r.evaluatePolicy_hints_reply(badPolicy, this->badHints, this->recordReply()); },
         "Unknown hint: 'Bogus'"},
        {"policy, synchronous: policy bad",
         [&] { r.evaluatePolicy_hints_error(badPolicy, this->hints, &error); },
         "Unknown policy: 'Bogus'"},
        {"policy, synchronous: hints bad",
         [&] { r.evaluatePolicy_hints_error(VRPolicyTirsa, this->badHints, &error); },
         "Unknown hint: 'Bogus'"},
        {"ACL, synchronous: hints bad",
         [&] {
             r.evaluateACL_operation_hints_error(this->acl, this->operation, this->badHints,
                                                 &error);
         },
         "Unknown hint: 'Bogus'"},
    });
    EXPECT_EQ(error, stale);
    EXPECT_TRUE(this->replies.empty());
    EXPECT_TRUE(this->service->policyRequests().empty());
    EXPECT_TRUE(this->service->aclRequests().empty());
}

TYPED_TEST(EvaluationTest, WithoutAClientNothingIsSentAndNoReplyComes) {
    const ObRef<TypeParam> r = TypeParam::make();
    std::size_t requestReplies = 0;
    const auto countReply = [&](ObRef<ObDictionary>, ObRef<ObError>) { ++requestReplies; };
    r->evaluatePolicy_hints_reply(VRPolicyTirsa, this->hints, this->recordReply());
    r->evaluateACL_operation_hints_reply(this->acl, this->operation, nullptr, this->recordReply());
    r->sendClientRequest_params_reply(VRClientRequestEnterPassword, nullptr, countReply);
    r->sendClientRequest_params_reply(
        VRClientRequestStopEvents,
        ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode}}), countReply);
    EXPECT_TRUE(this->replies.empty());
    EXPECT_EQ(requestReplies, 0u);
    // Only the fixture's own reference reached the service.
    EXPECT_EQ(this->service->clientRequests().size(), 1u);
    EXPECT_TRUE(this->service->policyRequests().empty());
    EXPECT_TRUE(this->service->aclRequests().empty());
    EXPECT_TRUE(this->service->passwordRequests().empty());
    EXPECT_TRUE(this->service->failEventRequests().empty());
}

TYPED_TEST(EvaluationTest, RepliesArriveOnTheServiceThread) {
    auto& r = *this->reference;
    this->service->setReplyMode(FakeReplyMode::OwnThread);
    const std::function<void(std::promise<std::thread::id>&)> calls[] = {
        [&](auto& replied) {
            r.evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, [&](ObRef<ObError>) {
                replied.set_value(std::this_thread::get_id());
            });
        },
        [&](auto& replied) {
            r.evaluateACL_operation_hints_reply({}, {}, nullptr, [&](ObRef<ObError>) {
                replied.set_value(std::this_thread::get_id());
            });
        },
        [&](auto& replied) {
            r.sendClientRequest_params_reply(VRClientRequestEnterPassword, nullptr,
                                             [&](ObRef<ObDictionary>, ObRef<ObError>) {
                                                 replied.set_value(std::this_thread::get_id());
                                             });
        },
    };
    // Outlive the loop: a reply thread may still be leaving set_value.
    std::promise<std::thread::id> replied[std::size(calls)];
    for (std::size_t i = 0; i < std::size(calls); ++i) {
        calls[i](replied[i]);
        EXPECT_NE(replied[i].get_future().get(), std::this_thread::get_id());
    }
    // The synchronous forms wait for the other thread and clear a stale error.
    ObRef<ObError> error = serviceUnavailable();
    EXPECT_TRUE(r.evaluatePolicy_hints_error(VRPolicyTirsa, nullptr, &error));
    EXPECT_EQ(error, nullptr);
    EXPECT_TRUE(r.evaluateACL_operation_hints_error({}, {}, nullptr, nullptr));
    this->service->joinReplyThreads();
}

TYPED_TEST(EvaluationTest, LogsEveryOperationAndReplyInOrder) {
    auto& r = *this->reference;
    const LogCapture capture;
    const ScopedLogging logging(true);
    this->service->answerEvaluations(ObDictionary::make({{ObNumber::make(3), ObString::make("y")}}),
                                     nullptr);
    r.evaluatePolicy_hints_reply(VRPolicyTirsa, ObDictionary::make({{VRHintTimeout, this->acl}}),
                                 ignoreError);
    this->service->answerEvaluations(nullptr, serviceUnavailable());
    r.evaluateACL_operation_hints_reply(this->acl, this->operation, nullptr, ignoreError);
    EXPECT_TRUE(r.resultForTag(VRResultTagUsedPasscode));
    r.sendClientRequest_params_reply(VRClientRequestEnterPassword, nullptr,
                                     [](ObRef<ObDictionary>, ObRef<ObError>) {});

    const std::string prefix = "VRCredReference: -[VRCredentialReference ";
    const std::vector<std::string> expected = {
        prefix + "evaluatePolicy:hints:reply:] , {Timeout = acl}",
        prefix + "evaluatePolicy:hints:reply:] (reply) -> {3 = y}, (null)",
        prefix + "evaluateACL:operation:hints:reply:] acl, <6f70>, (null)",
        prefix + "evaluateACL:operation:hints:reply:] (reply) -> (null), " +
            printed(serviceUnavailable()),
        prefix + "resultForTag:reply:] UsedPasscode",
        prefix + "sendClientRequest:params:reply:] EnterPassword, (null)",
        prefix + "sendClientRequest:params:reply:] (reply) -> 1, (null)",
    };
    EXPECT_EQ(capture.lines(), expected);
}
} // namespace
