// Results by tag and client requests: what the caller receives, what the
// service is sent, and the trace message of a missing result.
#include "credential/ReferenceTesting.h"
#include "support/TestSupport.h"
#include "tessiva/VRConstants.h"

#include <functional>
#include <gtest/gtest.h>
#include <utility>

namespace {
using namespace tessiva::test;

using Entries = std::vector<std::pair<std::string, std::string>>;

struct RequestReply {
    ObRef<ObDictionary> result;
    ObRef<ObError> error;
};

template <class Reference> class ResultsAndRequestsTest : public SetUpReferenceTest<Reference> {
protected:
    VRDictionaryReply recordRequestReply() {
        return [this](ObRef<ObDictionary> result, ObRef<ObError> error) {
            requestReplies.push_back({std::move(result), std::move(error)});
        };
    }

    const ObRef<CapturingTraceSink> traces = ObMake<CapturingTraceSink>();
    const ObScopedTraceSink installedTraces{traces};
    std::vector<RequestReply> requestReplies;
};
TYPED_TEST_SUITE(ResultsAndRequestsTest, ReferenceKinds);

TYPED_TEST(ResultsAndRequestsTest, AMissingResultIsAnErrorOrATraceMessage) {
    const ObRef<TypeParam> fresh = TypeParam::make();
    std::vector<std::pair<ObRef<ObObject>, ObRef<ObError>>> results;
    fresh->resultForTag_reply(VRResultTagUsedPasscode,
                              [&](ObRef<ObObject> value, ObRef<ObError> error) {
                                  results.emplace_back(std::move(value), std::move(error));
                              });
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].first, nullptr);
    ASSERT_TRUE(results[0].second);
    EXPECT_TRUE(results[0].second->domain()->isEqual(VRErrorDomain));
    EXPECT_EQ(results[0].second->code(), -10);
    EXPECT_EQ(results[0].second->localizedDescription()->text(), "Result not available.");
    EXPECT_TRUE(this->traces->messages().empty());

    // The payload holds the tag: the caller's string is gone when it runs.
    EXPECT_EQ(fresh->resultForTag(ObString::make("UsedPasscode")), nullptr);
    const auto messages = this->traces->messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].format, "Failed getting result for tag: error %d");
    EXPECT_EQ(messages[0].argument, -10);
    ObTraceMessage payload;
    messages[0].payload(payload);
    EXPECT_EQ(payload.entries(),
              (Entries{{"tag", "UsedPasscode"},
                       {"error", "Error Domain=org.tessiva.VRErrorDomain Code=-10 "
                                 "\"Result not available.\""}}));

    // A value found writes nothing to the trace log.
    const ObRef<ObObject> value = ObString::make("yes");
    this->service->answerEvaluations(ObDictionary::make({{ObNumber::make(3), value}}), nullptr);
    ASSERT_TRUE(this->reference->evaluatePolicy_hints_error(VRPolicyTirsa, nullptr, nullptr));
    EXPECT_EQ(this->reference->resultForTag(VRResultTagUsedPasscode), value);
    EXPECT_EQ(this->traces->messages().size(), 1u);
}

TYPED_TEST(ResultsAndRequestsTest, KnownRequestsReachTheServiceUnchanged) {
    auto& r = *this->reference;
    const ObRef<ObObject> password = ObData::make("pw", 2);
    const ObRef<ObObject> failure = ObString::make("not now");
    const ObRef<ObError> kvError = serviceUnavailable();
    for (const bool success : {true, false}) {
        SCOPED_TRACE(success);
        this->service->answerClientActions(success, success ? nullptr : kvError);
        r.sendClientRequest_params_reply(
            VRClientRequestEnterPassword,
            ObDictionary::make({{VRClientRequestParamPassword, password}}),
            this->recordRequestReply());
        // Matched by text; absent parameters read as absent.
        r.sendClientRequest_params_reply(ObString::make("EnterPassword"), nullptr,
                                         this->recordRequestReply());
        r.sendClientRequest_params_reply(
            VRClientRequestStopEvents,
            ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode},
                                {VRClientRequestParamError, failure}}),
            this->recordRequestReply());
        r.sendClientRequest_params_reply(
            ObString::make("StopEvents"),
            ObDictionary::make({{VRClientRequestParamEvent, ObString::make("EventConsent")}}),
            this->recordRequestReply());

        for (const RequestReply& reply : this->requestReplies) {
            if (success) {
                ASSERT_TRUE(reply.result);
                EXPECT_EQ(reply.result->count(), 0u);
                EXPECT_EQ(reply.error, nullptr);
            } else {
                EXPECT_EQ(reply.result, nullptr);
                ASSERT_TRUE(reply.error);
                EXPECT_TRUE(reply.error->domain()->isEqual(VRErrorDomain));
                EXPECT_EQ(reply.error->code(), -6);
            }
        }
        EXPECT_EQ(this->requestReplies.size(), 4u);
        this->requestReplies.clear();
    }
    const auto passwords = this->service->passwordRequests();
    ASSERT_EQ(passwords.size(), 4u);
    EXPECT_EQ(passwords[0].password, password);
    EXPECT_EQ(passwords[1].password, nullptr);
    const auto failures = this->service->failEventRequests();
    ASSERT_EQ(failures.size(), 4u);
    EXPECT_EQ(failures[0].event, 2);
    EXPECT_EQ(failures[0].failureError, failure);
    EXPECT_EQ(failures[1].event, 3);
    EXPECT_EQ(failures[1].failureError, nullptr);
}

TYPED_TEST(ResultsAndRequestsTest, UnknownRequestsAreAnsweredAtOnceWithoutTheService) {
    const LogCapture capture;
    const ScopedLogging logging(true);
    const struct {
        ObRef<ObString> request;
        const char* message;
    } cases[] = {
        {ObString::make("Bogus"), "Unknown client request: 'Bogus'"},
        {ObString::make("stopEvents"), "Unknown client request: 'stopEvents'"},
        {nullptr, "Unknown client request: '(null)'"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        std::vector<std::string> linesAtReply;
        ObRef<ObError> error;
        ObRef<ObDictionary> result = ObDictionary::make();
        this->reference->sendClientRequest_params_reply(
            c.request, ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode}}),
            [&](ObRef<ObDictionary> received, ObRef<ObError> receivedError) {
                linesAtReply = capture.lines();
                result = std::move(received);
                error = std::move(receivedError);
            });
        EXPECT_EQ(result, nullptr);
        ASSERT_TRUE(error);
        EXPECT_TRUE(error->domain()->isEqual(VRErrorDomain));
        EXPECT_EQ(error->code(), -1005);
        EXPECT_EQ(error->localizedDescription()->text(), c.message);
        ASSERT_FALSE(linesAtReply.empty());
        EXPECT_EQ(linesAtReply.back(), "VRCredReference: -[VRCredentialReference "
                                       "sendClientRequest:params:reply:] (reply) -> 0, " +
                                           printed(error));
    }
    EXPECT_TRUE(this->service->passwordRequests().empty());
    EXPECT_TRUE(this->service->failEventRequests().empty());
}

TYPED_TEST(ResultsAndRequestsTest, UntranslatableNamesRaiseBeforeAnythingIsSent) {
    auto& r = *this->reference;
    const auto stopEvents = [&](ObRef<ObDictionary> params) {
        return [&r, this, params] {
            r.sendClientRequest_params_reply(VRClientRequestStopEvents, params,
                                             this->recordRequestReply());
        };
    };
    const ObRef<ObObject> failure = ObString::make("failure");
    expectEachRaises({
        {"no parameters", stopEvents(nullptr), "Unknown event: '(null)'"},
        {"no event", stopEvents(ObDictionary::make({{VRClientRequestParamError, failure}})),
         "Unknown event: '(null)'"},
        {"event not a string",
         stopEvents(ObDictionary::make({{VRClientRequestParamEvent, ObNumber::make(2)}})),
         "Unknown event: '(null)'"},
        {"unknown event",
         stopEvents(ObDictionary::make({{VRClientRequestParamEvent, ObString::make("Bogus")}})),
         "Unknown event: 'Bogus'"},
        {"unknown tag", [&] { r.resultForTag_reply(ObString::make("Bogus"), {}); },
         "Unknown result: 'Bogus'"},
        {"unknown tag, synchronous", [&] { r.resultForTag(ObString::make("Bogus")); },
         "Unknown result: 'Bogus'"},
        {"absent tag, synchronous", [&] { r.resultForTag(nullptr); }, "Unknown result: '(null)'"},
    });
    EXPECT_TRUE(this->requestReplies.empty());
    EXPECT_TRUE(this->service->failEventRequests().empty());
    EXPECT_TRUE(this->traces->messages().empty());
}
} // namespace
