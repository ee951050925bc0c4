// SPDX-License-Identifier: MIT
// The credential reference against the fake service: what reaches the
// service, what the reference keeps, what the caller receives, and the log
// and trace lines it writes, bounded for hostile hints and with secrets
// redacted on request; replies that come twice or late.
#include "credential/ReferenceTesting.h"
#include "support/RecordingUIDelegate.h"
#include "support/TestSupport.h"
#include "tessiva/object/ObClass.h"

#include <algorithm>
#include <atomic>
#include <latch>
#include <thread>

namespace tessiva::test {
namespace {

TEST_F(ReferenceTest, EverySetUpFormSendsTheHandleAndOnlyTheDelegate) {
    VRCredentialReference& r = *reference;
    const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    const std::function<void(VRErrorReply)> forms[] = {
        [&](auto reply) { r.setupNewReferenceWithReply(reply); },
        [&](auto reply) { r.setupWithCredentialHandle_reply(handle, reply); },
        [&](auto reply) { r.setupWithCredentialHandle_domain_reply(handle, acl, reply); },
        [&](auto reply) { r.setupWithCredentialHandle_uiDelegate_reply(handle, delegate, reply); },
        [&](auto reply) {
            r.setupWithCredentialHandle_domain_uiDelegate_reply(handle, acl, delegate, reply);
        },
    };
    r.invalidate(); // without a client, nothing to tell
    service->setCreatorDisplayName(ObString::make("Maker"));
    for (std::size_t form = 0; form < std::size(forms); ++form) {
        SCOPED_TRACE(form);
        forms[form](recordReply());
        const FakeClientRequest request = service->clientRequests().back();
        EXPECT_EQ(request.context, form == 0 ? nullptr : handle);
        EXPECT_EQ(r.credentialHandle(), form == 0 ? service->newContext() : handle);
        EXPECT_EQ(request.uiDelegate != nullptr, form >= 3);
    }
    EXPECT_EQ(replies, std::vector<ObRef<ObError>>(std::size(forms)));
    EXPECT_EQ(printed(r.creatorDisplayName()), "Maker");

    // The synchronous forms wait for a reply from another thread, and always
    // write a given error, clearing it on success. A failed set-up leaves
    // neither client nor handle; the client it replaced is dropped, not
    // invalidated.
    service->setReplyMode(FakeReplyMode::OwnThread);
    service->answerClientRequests(nullptr, serviceUnavailable());
    ObRef<ObError> error;
    EXPECT_FALSE(r.setupWithCredentialHandle_error(handle, &error));
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(service->clientRequests().back().context, handle);
    EXPECT_EQ(r.credentialHandle(), nullptr);
    EXPECT_EQ(r.creatorDisplayName(), nullptr);
    EXPECT_EQ(service->destroyedClientCount(), 5);
    EXPECT_EQ(service->invalidateCount(), 0);
    service->answerClientRequests(service->makeClient(handle), nullptr);
    EXPECT_TRUE(r.setupNewReferenceWithError(&error));
    EXPECT_EQ(error, nullptr);
    // Invalidating tells the client, and keeps it with its handle.
    r.invalidate();
    EXPECT_EQ(service->invalidateCount(), 1);
    EXPECT_EQ(r.credentialHandle(), handle);
}

// A pending reply holds the reference; when it goes, the reference releases
// its client without invalidating it.
TEST_F(ReferenceTest, APendingReplyKeepsTheReferenceAlive) {
    struct Observed : VRCredentialReference {
        explicit Observed(std::atomic<bool>& gone) : gone_(gone) {}
        ~Observed() override { gone_ = true; }
        std::atomic<bool>& gone_;
    };
    service->setReplyMode(FakeReplyMode::OwnThread);
    const std::function<void(VRCredentialReference&, VRErrorReply)> starts[] = {
        [](auto& r, auto reply) { r.setupNewReferenceWithReply(reply); },
        [](auto& r, auto reply) { r.evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, reply); },
    };
    for (const auto& start : starts) {
        std::atomic<bool> gone{false};
        ObRef<Observed> r = ObMake<Observed>(gone);
        ASSERT_TRUE(r->setupNewReferenceWithError(nullptr));
        service->joinReplyThreads(); // so that only the pending reply holds it
        std::latch replying(1), dropped(1);
        start(*r, [&](auto) {
            replying.count_down();
            dropped.wait();
        });
        replying.wait();
        r = nullptr;
        EXPECT_FALSE(gone);
        dropped.count_down();
        service->joinReplyThreads();
        EXPECT_TRUE(gone);
    }
    EXPECT_EQ(service->invalidateCount(), 0);
}

TEST_F(ReferenceTest, EvaluationsSendTranslatedOptionsKeepPolicyResultsAndLog) {
    const ObRef<VRCredentialReference> r = VRCredReference::make(); // the older name logs alike
    ASSERT_TRUE(r->setupNewReferenceWithError(nullptr));
    const ObRef<ObObject> used = ObNumber::makeBool(true);
    service->answerEvaluations(ObDictionary::make({{ObNumber::make(3), used}}), nullptr);
    const ObRef<ObDictionary> hints = ObDictionary::make({{VRHintTimeout, ObNumber::make(30)}});
    const LogCapture capture;
    KVLogger::sharedInstance()->setLoggingEnabled(true);
    // Kept before the caller's reply runs.
    r->evaluatePolicy_hints_reply(ObString::make("DeviceOwnerAuthenticated"), hints, [&](auto) {
        EXPECT_EQ(r->resultForTag(VRResultTagUsedPasscode), used);
    });
    service->answerEvaluations(ObDictionary::make({{ObNumber::make(3), acl}}),
                               serviceUnavailable());
    r->evaluateACL_operation_hints_reply(acl, operation, hints, recordReply());
    // Its reply line is written before the reply runs.
    r->sendClientRequest_params_reply(ObString::make("Bogus"), nullptr,
                                      [&](auto...) { EXPECT_EQ(capture.lines().size(), 7u); });
    service->answerClientRequests(nullptr, serviceUnavailable());
    r->setupWithCredentialHandle_domain_uiDelegate_reply(handle, acl, nullptr, recordReply());
    r->invalidate();
    KVLogger::sharedInstance()->setLoggingEnabled(false);
    // Not logged: ACL results are dropped, and a failed set-up keeps the result.
    EXPECT_EQ(r->resultForTag(VRResultTagUsedPasscode), used);

    const FakePolicyRequest policy = service->policyRequests().at(0);
    EXPECT_EQ(std::to_string(policy.policy) + printed(policy.options), "1000{1001 = 30; 1009 = 0}");
    const FakeACLRequest request = service->aclRequests().at(0);
    EXPECT_TRUE(request.acl == acl && request.operation == operation);
    EXPECT_EQ(printed(request.options), "{1001 = 30}");
    std::string logged;
    for (const std::string& line : capture.lines())
        logged += line + "\n";
    EXPECT_EQ(
        logged,
        R"(VRCredReference: -[VRCredentialReference evaluatePolicy:hints:reply:] DeviceOwnerAuthenticated, {Timeout = 30}
VRCredReference: -[VRCredentialReference evaluatePolicy:hints:reply:] (reply) -> {3 = 1}, (null)
VRCredReference: -[VRCredentialReference resultForTag:reply:] UsedPasscode
VRCredReference: -[VRCredentialReference evaluateACL:operation:hints:reply:] acl, <6f70>, {Timeout = 30}
VRCredReference: -[VRCredentialReference evaluateACL:operation:hints:reply:] (reply) -> {3 = acl}, Error Domain=org.kavelin.KVErrorDomain Code=-1000 "gone"
VRCredReference: -[VRCredentialReference sendClientRequest:params:reply:] Bogus, (null)
VRCredReference: -[VRCredentialReference sendClientRequest:params:reply:] (reply) -> 0, Error Domain=org.tessiva.VRErrorDomain Code=-1005 "Unknown client request: 'Bogus'"
VRCredReference: -[VRCredentialReference setupWithCredentialHandle:domain:uiDelegate:reply:] <0102>, acl, (null)
VRCredReference: -[VRCredentialReference setupWithCredentialHandle:domain:uiDelegate:reply:] (reply) -> (null), Error Domain=org.kavelin.KVErrorDomain Code=-1000 "gone"
)"
        "VRCredReference: -[VRCredentialReference invalidate] \n");
}

TEST_F(ReferenceTest, UntranslatableOrUnknownRequestsNeverReachTheService) {
    VRCredentialReference& r = *reference;
    ASSERT_TRUE(r.setupNewReferenceWithError(nullptr));
    const ObRef<ObString> bogus = ObString::make("Bogus");
    const ObRef<ObDictionary> badHints = ObDictionary::make({{bogus, ObNumber::make(1)}});
    ObRef<ObError> error = serviceUnavailable();
    const std::pair<std::function<void()>, std::string> cases[] = {
        // Hints first: when both are bad, the hints' exception is the one raised.
        {[&] { r.evaluatePolicy_hints_reply(bogus, badHints, recordReply()); }, "hint: 'Bogus'"},
        {[&] { r.evaluatePolicy_hints_error(bogus, nullptr, &error); }, "policy: 'Bogus'"},
        {[&] { r.evaluateACL_operation_hints_error(acl, operation, badHints, &error); },
         "hint: 'Bogus'"},
        {[&] { r.sendClientRequest_params_reply(VRClientRequestStopEvents, nullptr, {}); },
         "event: '(null)'"},
        {[&] { (void)r.resultForTag(bogus); }, "result: 'Bogus'"},
    };
    for (const auto& [call, message] : cases)
        EXPECT_THAT(call, testing::ThrowsMessage<KVException>("Unknown " + message));
    EXPECT_NE(error, nullptr); // left as it was
    EXPECT_TRUE(service->policyRequests().empty() && service->aclRequests().empty());

    // Client requests are matched by text; any other, absent included, is
    // answered at once without the service.
    service->answerClientActions(false, serviceUnavailable());
    std::string received;
    const VRDictionaryReply reply = [&](auto result, auto failure) {
        received += printed(result) + " " + printed(failure) + "\n";
    };
    const auto params = ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode}});
    for (const char* request : {"EnterPassword", "StopEvents", "stopEvents"})
        r.sendClientRequest_params_reply(ObString::make(request), params, reply);
    r.sendClientRequest_params_reply(nullptr, params, reply);
    // Without a client nothing is sent, and no reply ever comes.
    const ObRef<VRCredentialReference> unset = VRCredentialReference::make();
    unset->evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, recordReply());
    unset->evaluateACL_operation_hints_reply(acl, operation, nullptr, recordReply());
    unset->sendClientRequest_params_reply(VRClientRequestEnterPassword, nullptr, reply);
    EXPECT_TRUE(replies.empty());
    EXPECT_EQ(received, R"((null) Error Domain=org.tessiva.VRErrorDomain Code=-6 "gone"
(null) Error Domain=org.tessiva.VRErrorDomain Code=-6 "gone"
(null) Error Domain=org.tessiva.VRErrorDomain Code=-1005 "Unknown client request: 'stopEvents'"
(null) Error Domain=org.tessiva.VRErrorDomain Code=-1005 "Unknown client request: '(null)'"
)");
}

// The synchronous evaluation waits for a reply from another thread and keeps
// its result. A failed evaluation leaves no result to read by tag: the caller
// gets the error -10, which the synchronous form reports to the trace log.
TEST_F(ReferenceTest, AMissingResultIsAnErrorOrATraceMessage) {
    ASSERT_TRUE(reference->setupNewReferenceWithError(nullptr));
    service->setReplyMode(FakeReplyMode::OwnThread);
    service->answerEvaluations(ObDictionary::make({{ObNumber::make(3), acl}}), nullptr);
    ObRef<ObError> error = serviceUnavailable();
    ASSERT_TRUE(reference->evaluatePolicy_hints_error(VRPolicyTirsa, nullptr, &error));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(reference->resultForTag(VRResultTagUsedPasscode), acl);
    // The identity class was looked up once; a class appearing later is not seen.
    (void)ObRegisterClass("ScandraIdentity");
    // A failure's result is kept all the same.
    service->answerEvaluations(ObDictionary::make({{ObNumber::make(3), operation}}),
                               serviceUnavailable());
    EXPECT_FALSE(reference->evaluatePolicy_hints_error(VRPolicyTirsa, nullptr, &error));
    EXPECT_EQ(error ? error->code() : 0, -6);
    EXPECT_EQ(reference->resultForTag(VRResultTagUsedPasscode), operation);
    EXPECT_EQ(printed(service->policyRequests().at(1).options), "{1009 = 0}");
    service->answerEvaluations(nullptr, serviceUnavailable());
    EXPECT_FALSE(reference->evaluatePolicy_hints_error(VRPolicyTirsa, nullptr, nullptr));

    // Only the synchronous form writes a trace message; its payload holds the
    // tag, as the caller's string is gone when it runs.
    const ObRef<CapturingTraceSink> traces = ObMake<CapturingTraceSink>();
    const ObScopedTraceSink tracing(traces);
    reference->resultForTag_reply(VRResultTagUsedPasscode, [](auto...) {});
    EXPECT_EQ(reference->resultForTag(ObString::make("UsedPasscode")), nullptr);
    const auto messages = traces->messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].format + " " + std::to_string(messages[0].argument),
              "Failed getting result for tag: error %d -10");
    ObTraceMessage payload;
    messages[0].payload(payload);
    EXPECT_EQ(payload.entries(),
              (std::vector<std::pair<std::string, std::string>>{
                  {"tag", "UsedPasscode"},
                  {"error",
                   "Error Domain=org.tessiva.VRErrorDomain Code=-10 \"Result not available.\""}}));
}

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

// Counts how often its text form is asked for: once per call, whether
// logging is on or off.
class CountingObject final : public ObObject {
public:
    ObRef<ObString> description() const override {
        ++described;
        return ObString::make("counted");
    }
    mutable int described = 0;
};

TEST_F(ReferenceTest, HintsAHundredThousandLevelsDeepReachTheServiceAndLogBounded) {
    ASSERT_TRUE(reference->setupWithCredentialHandle_error(handle, nullptr));
    ObRef<ObObject> deep = ObString::make("leaf");
    for (int level = 0; level < 100'000; ++level)
        deep = ObArray::make({deep});
    for (const bool logging : {false, true}) {
        SCOPED_TRACE(logging ? "logging on" : "logging off");
        KVLogger::sharedInstance()->setLoggingEnabled(logging);
        const LogCapture capture;
        const auto counting = ObMake<CountingObject>();
        reference->evaluatePolicy_hints_reply(
            VRPolicyDeviceOwnerAuthenticated,
            ObDictionary::make({{VRHintTimeout, deep}, {VRHintCallerPID, counting}}),
            recordReply());
        EXPECT_EQ(counting->described, 1);
        const auto requests = service->policyRequests();
        ASSERT_FALSE(requests.empty());
        EXPECT_EQ(requests.back().options->objectForKey(ObNumber::make(1001)), deep);
        const auto lines = capture.lines();
        if (!logging) {
            EXPECT_TRUE(lines.empty());
            continue;
        }
        ASSERT_EQ(lines.size(), 2u);
        const std::string opened(255, '('), closed(255, ')');
        EXPECT_EQ(lines[0], "VRCredReference: -[VRCredentialReference evaluatePolicy:hints:reply:] "
                            ", {Timeout = " +
                                opened + "<...>" + closed + "; CallerPID = counted}");
    }
}

TEST_F(ReferenceTest, RedactionReplacesOnlyThePasswordInClientRequestLines) {
    ASSERT_TRUE(reference->setupWithCredentialHandle_error(handle, nullptr));
    const ObRef<ObDictionary> params =
        ObDictionary::make({{VRClientRequestParamPassword, ObString::make("s3cret")},
                            {ObString::make("Other"), ObString::make("kept")}});
    for (const bool redacting : {false, true}) {
        const std::string logged = redacting ? "<redacted>" : "s3cret";
        SCOPED_TRACE(logged);
        KVLogger::sharedInstance()->setLoggingEnabled(true);
        KVLogger::sharedInstance()->setRedactingSecrets(redacting);
        const LogCapture capture;
        reference->sendClientRequest_params_reply(VRClientRequestEnterPassword, params,
                                                  [](ObRef<ObDictionary>, ObRef<ObError>) {});
        const auto lines = capture.lines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines[0],
                  std::string("VRCredReference: -[VRCredentialReference "
                              "sendClientRequest:params:reply:] EnterPassword, {Password = ") +
                      logged + "; Other = kept}");
        const bool secretLogged = std::any_of(lines.begin(), lines.end(), [](const auto& line) {
            return line.find("s3cret") != std::string::npos;
        });
        EXPECT_EQ(secretLogged, !redacting);
    }
}

} // namespace
} // namespace tessiva::test
