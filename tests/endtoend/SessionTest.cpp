// Whole sessions through the VR interface against the simulated service, on
// the service's own threads: the caller's delegate and client requests
// answering evaluations, refusals, restored handles and invalidation.
#include "support/RecordingUIDelegate.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/Ob.h"
#include "tessiva/os/ObSemaphore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace tessiva::test {
namespace {
using ::testing::ElementsAreArray;
using Texts = std::vector<std::string>;

constexpr std::string_view passcode = "2468";
const std::string success = "success";
const std::string closing = "EventPasscode {Active = 0}";
std::string asking(int attemptsLeft) {
    return "EventPasscode {Active = 1; SimpleStatus = " + std::to_string(attemptsLeft) + "}";
}

// With one attempt, a passcode that goes astray ends the evaluation instead
// of leaving it waiting.
ObRef<ObDictionary> oneAttempt() {
    return ObDictionary::make({{VRHintMaxPasscodeFailures, ObNumber::make(1)}});
}

std::string printed(const ObRef<ObObject>& object) {
    return std::string(ObFormat("%@", object)->text());
}
// "success", or the error as "<domain> <code>: <message>".
std::string outcome(const ObRef<ObError>& error) {
    if (!error)
        return success;
    return printed(
        ObFormat("%@ %ld: %@", error->domain(), error->code(), error->localizedDescription()));
}

Texts eventTexts(const RecordingUIDelegate& delegate) {
    Texts texts;
    for (const RecordingUIDelegate::Event& event : delegate.events())
        texts.push_back(printed(event.name) + " " + printed(event.params));
    return texts;
}

// A policy evaluation started through a reference; wait() gives its outcome.
class Evaluation {
public:
    Evaluation(const ObRef<VRCredentialReference>& reference, const ObRef<ObDictionary>& hints) {
        reference->evaluatePolicy_hints_reply(VRPolicyDeviceOwnerAuthenticated, hints,
                                              [state = state_](ObRef<ObError> error) {
                                                  state->error = std::move(error);
                                                  state->thread = std::this_thread::get_id();
                                                  state->done.signal();
                                              });
    }
    ObRef<ObError> wait() {
        state_->done.wait();
        EXPECT_NE(state_->thread, std::this_thread::get_id());
        return state_->error;
    }

private:
    struct State {
        ObSemaphore done;
        ObRef<ObError> error;
        std::thread::id thread;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

class EndToEnd : public ::testing::Test {
protected:
    void SetUp() override { service->setPasscode(ObString::make(passcode)); }

    // A reference on a new context whose events go to `uiDelegate`.
    static ObRef<VRCredentialReference> setUp(const ObRef<VRUIDelegate>& uiDelegate) {
        ObRef<VRCredentialReference> reference = VRCredentialReference::make();
        auto done = std::make_shared<ObSemaphore>();
        ObRef<ObError> failure;
        reference->setupWithCredentialHandle_uiDelegate_reply(
            nullptr, uiDelegate, [&failure, done](ObRef<ObError> error) {
                failure = std::move(error);
                done->signal();
            });
        done->wait();
        EXPECT_EQ(outcome(failure), success);
        return reference;
    }

    // Client requests reply before they return: "{}" or the error.
    static std::string request(const ObRef<VRCredentialReference>& reference, ObString* name,
                               const ObRef<ObDictionary>& params) {
        std::string text = "no reply";
        reference->sendClientRequest_params_reply(
            name, params, [&](ObRef<ObDictionary> result, ObRef<ObError> error) {
                text = error ? outcome(error) : printed(result);
            });
        return text;
    }

    static void answer(const RecordingUIDelegate::Event& event, const ObRef<ObObject>& response) {
        event.reply(ObDictionary::make({{VREventConsentResponse, response}}), nullptr);
    }

    const ObRef<KVSimulatedService> service = KVSimulatedService::make();
    const KVScopedClientBackend installed{service};
    const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
};

TEST_F(EndToEnd, DelegateAnswersUntilRightOrOutOfAttempts) {
    struct Case {
        std::vector<ObRef<ObObject>> answers;
        ObRef<ObDictionary> hints;
        Texts events;
        std::string outcome;
        std::string usedPasscode;
    };
    const ObRef<ObObject> right = ObString::make(passcode), wrong = ObString::make("0000");
    const Case cases[] = {
        {{right}, nullptr, {asking(3), closing}, success, "1"},
        {{wrong, right}, nullptr, {asking(3), asking(2), closing}, success, "1"},
        {{wrong, wrong},
         ObDictionary::make({{VRHintMaxPasscodeFailures, ObNumber::make(2)}}),
         {asking(2), asking(1), closing},
         "org.tessiva.VRErrorDomain -1: Authentication failed: too many wrong passcodes (2).",
         "(null)"},
        {{ObNumber::makeBool(false)},
         nullptr,
         {asking(3), closing},
         "org.tessiva.VRErrorDomain -2: The user declined to enter the passcode.",
         "(null)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.outcome);
        const ObRef<RecordingUIDelegate> caller = RecordingUIDelegate::make();
        const ObRef<VRCredentialReference> reference = setUp(caller);
        Evaluation evaluation(reference, c.hints);
        for (std::size_t index = 0; index < c.answers.size(); ++index)
            answer(caller->waitForEvent(index), c.answers[index]);
        EXPECT_EQ(outcome(evaluation.wait()), c.outcome);
        EXPECT_THAT(eventTexts(*caller), ElementsAreArray(c.events));
        EXPECT_EQ(printed(reference->resultForTag(VRResultTagUsedPasscode)), c.usedPasscode);
    }
}

TEST_F(EndToEnd, RefusalAndTimeOutNeedNoAnswer) {
    const std::tuple<ObRef<ObDictionary>, Texts, std::string> cases[] = {
        {ObDictionary::make({{VRHintNotInteractive, ObNumber::makeBool(true)}}),
         {},
         "org.tessiva.VRErrorDomain -1002: The evaluation needs the user, and user interaction "
         "is not allowed."},
        {ObDictionary::make({{VRHintTimeout, ObNumber::make(1)}}),
         {asking(3), closing},
         "org.tessiva.VRErrorDomain -1001: The user did not authenticate in time."},
    };
    for (const auto& [hints, events, expected] : cases) {
        SCOPED_TRACE(expected);
        const ObRef<RecordingUIDelegate> caller = RecordingUIDelegate::make();
        EXPECT_EQ(outcome(Evaluation(setUp(caller), hints).wait()), expected);
        EXPECT_THAT(eventTexts(*caller), ElementsAreArray(events));
    }
}

TEST_F(EndToEnd, ClientRequestsAnswerOrStopTheRunningEvaluation) {
    const ObRef<VRCredentialReference> reference = setUp(delegate);
    const ObRef<ObDictionary> password =
        ObDictionary::make({{VRClientRequestParamPassword, ObString::make(passcode)}});
    EXPECT_EQ(request(reference, VRClientRequestEnterPassword, password),
              "org.tessiva.VRErrorDomain -1003: No evaluation is waiting for a passcode.");

    Evaluation answered(reference, oneAttempt());
    (void)delegate->waitForEvent(0);
    EXPECT_EQ(request(reference, VRClientRequestEnterPassword, password), "{}");
    EXPECT_EQ(outcome(answered.wait()), success);
    EXPECT_EQ(printed(reference->resultForTag(VRResultTagUsedPasscode)), "1");

    // The caller's own error reaches the evaluation's reply as it was given.
    const ObRef<ObError> stop = ObError::make(ObString::make("org.example.Caller"), 3, nullptr);
    Evaluation stopped(reference, nullptr);
    (void)delegate->waitForEvent(2);
    EXPECT_EQ(request(reference, VRClientRequestStopEvents,
                      ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode},
                                          {VRClientRequestParamError, stop}})),
              "{}");
    EXPECT_EQ(stopped.wait(), stop);
    EXPECT_EQ(reference->resultForTag(VRResultTagUsedPasscode), nullptr);
    EXPECT_THAT(eventTexts(*delegate), ElementsAreArray({asking(1), closing, asking(3), closing}));
}

TEST_F(EndToEnd, RestoredHandleReachesTheSameContext) {
    const ObRef<VRCredentialReference> original = setUp(delegate);
    const ObRef<VRCredentialReference> restored = VRCredentialReference::make();
    ObRef<ObError> error;
    ASSERT_TRUE(restored->setupWithCredentialHandle_error(original->credentialHandle(), &error));
    EXPECT_TRUE(restored->credentialHandle()->isEqual(original->credentialHandle()));

    Evaluation evaluation(original, oneAttempt());
    (void)delegate->waitForEvent(0);
    EXPECT_EQ(
        request(restored, VRClientRequestEnterPassword,
                ObDictionary::make({{VRClientRequestParamPassword, ObString::make(passcode)}})),
        "{}");
    EXPECT_EQ(outcome(evaluation.wait()), success);

    const unsigned char unknown[16] = {};
    EXPECT_FALSE(VRCredentialReference::make()->setupWithCredentialHandle_error(
        ObData::make(unknown, sizeof unknown), &error));
    EXPECT_EQ(outcome(error), "org.tessiva.VRErrorDomain -1010: No context matches the handle.");
}

TEST_F(EndToEnd, InvalidationEndsTheRunningEvaluationAndEveryLaterOne) {
    const ObRef<VRCredentialReference> reference = setUp(delegate);
    const ObRef<ObData> handle = reference->credentialHandle();
    Evaluation running(reference, nullptr);
    (void)delegate->waitForEvent(0);
    reference->invalidate();
    EXPECT_EQ(outcome(running.wait()),
              "org.tessiva.VRErrorDomain -9: The context was invalidated during the evaluation.");

    ObRef<ObError> error;
    EXPECT_FALSE(
        reference->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, nullptr, &error));
    EXPECT_EQ(outcome(error), "org.tessiva.VRErrorDomain -1010: The context was invalidated.");
    EXPECT_FALSE(VRCredentialReference::make()->setupWithCredentialHandle_error(handle, &error));
    EXPECT_EQ(outcome(error), "org.tessiva.VRErrorDomain -1010: No context matches the handle.");
}

} // namespace
} // namespace tessiva::test
