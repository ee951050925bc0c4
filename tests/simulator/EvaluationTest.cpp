// Policy evaluations of the simulated service, end to end on its threads.
#include "simulator/SimulatorTesting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <latch>
#include <stdexcept>

namespace tessiva::test {
namespace {
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using Answers = std::vector<ScriptedDelegate::Answer>;

const std::string success = "{1 = 0; 3 = 1; 4 = 0; 5 = 0}";
const std::string closing = "2 {0 = 0}";
std::string asking(int attemptsLeft) {
    return "2 {0 = 1; 5 = " + std::to_string(attemptsLeft) + "}";
}

class SimulatedEvaluation : public ::testing::Test {
protected:
    ObRef<KVSimulatedService> service = KVSimulatedService::make();
};

TEST_F(SimulatedEvaluation, AsksForThePasscodeUntilRightOrOutOfAttempts) {
    ObRef<ObError> refused = ObError::make(str("Caller"), 7, nullptr);
    auto wrong = ScriptedDelegate::passcode("0000"), right = ScriptedDelegate::passcode("1234");
    struct Case {
        Answers answers;
        ObRef<ObDictionary> options;
        std::vector<std::string> events;
        std::string outcome;
    };
    const Case cases[] = {
        {{right}, nullptr, {asking(3), closing}, success},
        {{wrong, right}, nullptr, {asking(3), asking(2), closing}, success},
        {{wrong, wrong},
         options({{1004, num(2)}, {1009, ObNumber::makeBool(false)}}),
         {asking(2), asking(1), closing},
         "error -1: Authentication failed: too many wrong passcodes (2)."},
        {{ScriptedDelegate::response(ObNumber::makeBool(false))},
         nullptr,
         {asking(3), closing},
         "error -2: The user declined to enter the passcode."},
        {{[](const KVUIReply&) { throw std::runtime_error("Unknown response key: Passcode"); }},
         nullptr,
         {asking(3), closing},
         "error -1008: The user-interface delegate raised an exception: Unknown response key: "
         "Passcode"},
        {{[&](const KVUIReply& reply) { reply(nullptr, refused); }},
         nullptr,
         {asking(3), closing},
         describe(nullptr, refused)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.outcome);
        auto delegate = ObMake<ScriptedDelegate>(c.answers);
        Outcome outcome = evaluate(connect(service, delegate), c.options);
        EXPECT_EQ(outcome.text(), c.outcome);
        EXPECT_NE(outcome.thread, std::this_thread::get_id());
        EXPECT_THAT(delegate->events(), ElementsAreArray(c.events));
        if (outcome.error && outcome.error->code() == 7) {
            EXPECT_EQ(outcome.error, refused); // the very object the delegate gave
        }
    }
}

TEST_F(SimulatedEvaluation, RefusesWhatItCannotStartWithoutRaisingEvents) {
    const std::tuple<ObInteger, ObRef<ObDictionary>, std::string> cases[] = {
        {1000, options({{1000, ObNumber::makeBool(true)}}),
         "error -1004: The evaluation needs the user, and user interaction is not allowed."},
        {1, nullptr, "error -1001: This device has no ridge-scan sensor."},
        {42, nullptr, "error -1008: Unknown policy: 42"},
        {1000, options({{1001, str("soon")}}),
         "error -1008: Option 1001 (time-out) must be a positive number of seconds."},
        {1000, options({{1007, array({})}}),
         "error -1008: Option 1007 (event processing) must be a dictionary."},
    };
    for (const auto& [policy, options, expected] : cases) {
        SCOPED_TRACE(expected);
        auto delegate = ObMake<ScriptedDelegate>(Answers{ScriptedDelegate::passcode("1234")});
        Outcome outcome = evaluate(connect(service, delegate), options, policy);
        EXPECT_EQ(outcome.text(), expected);
        EXPECT_NE(outcome.thread, std::this_thread::get_id());
        EXPECT_TRUE(delegate->events().empty());
    }
}

TEST_F(SimulatedEvaluation, TimesOutWhenNobodyAnswers) {
    auto delegate = ObMake<ScriptedDelegate>();
    Outcome outcome = evaluate(connect(service, delegate), options({{1001, num(1)}}));
    EXPECT_EQ(outcome.text(), "error -1003: The user did not authenticate in time.");
    EXPECT_THAT(delegate->events(), ElementsAre(asking(3), closing));
}

TEST_F(SimulatedEvaluation, EnterPasswordAnswersTheCurrentEventOfTheOneEvaluation) {
    auto delegate = ObMake<ScriptedDelegate>();
    ObRef<KVClient> client = connect(service, delegate);
    const std::string nothingWaiting = "error -1005: No evaluation is waiting for a passcode.";
    EXPECT_EQ(enterPassword(client, "1234"), nothingWaiting);

    Started evaluation(client);
    KVUIReply firstEvent = delegate->takeUnanswered();
    EXPECT_EQ(evaluate(client).text(),
              "error -1007: The context is already running an evaluation.");
    EXPECT_EQ(enterPassword(client, "0000"), "success");
    (void)delegate->takeUnanswered();
    // The first event has had its answer; a late reply to it changes nothing.
    firstEvent(dict({{num(0), str("1234")}}), nullptr);
    EXPECT_EQ(enterPassword(client, "1234"), "success");

    EXPECT_EQ(evaluation.wait().text(), success);
    EXPECT_THAT(delegate->events(), ElementsAre(asking(3), asking(2), closing));
    EXPECT_EQ(enterPassword(client, "1234"), nothingWaiting);
    // Once it has replied, the context takes the next evaluation.
    Started next(client);
    (void)delegate->takeUnanswered();
    EXPECT_EQ(enterPassword(client, "1234"), "success");
    EXPECT_EQ(next.wait().text(), success);
}

TEST_F(SimulatedEvaluation, FailProcessedEventEndsTheEvaluationWithTheError) {
    ObRef<KVClient> client = connect(service, ObMake<ScriptedDelegate>());
    ObRef<ObError> stop = ObError::make(str("Caller"), 3, nullptr);
    EXPECT_EQ(failEvent(client, 2, stop), "error -1005: No evaluation is processing event 2.");

    Started first(client);
    EXPECT_EQ(failEvent(client, 1, stop), "error -1005: No evaluation is processing event 1.");
    EXPECT_EQ(failEvent(client, 2, stop), "success");
    EXPECT_EQ(first.wait().error, stop);
    // Without an error object, the application's stop is the reason.
    Started second(client);
    EXPECT_EQ(failEvent(client, 2, str("not an error")), "success");
    EXPECT_EQ(second.wait().text(), "error -7: The application stopped the evaluation.");
}

TEST_F(SimulatedEvaluation, EventProcessingOptionChoosesTheEventsRaised) {
    const std::pair<ObRef<ObDictionary>, std::vector<std::string>> cases[] = {
        {dict({{num(2), dict({{num(0), ObNumber::makeBool(true)}})}}),
         {"2 {0 = 1; 5 = 3; 3 = org.tessiva.simulator; 4 = SimulatedPasscodeView}", closing}},
        {dict({{str("EventPasscode"), dict({})}}), {asking(3), closing}},
        {dict({{str("EventRidgescan"), dict({})}}), {}},
    };
    for (const auto& [processing, events] : cases) {
        SCOPED_TRACE(describe(processing, nullptr));
        auto delegate = ObMake<ScriptedDelegate>();
        ObRef<KVClient> client = connect(service, delegate);
        Started evaluation(client, options({{1007, processing}}));
        if (!events.empty())
            (void)delegate->takeUnanswered();
        EXPECT_EQ(enterPassword(client, "1234"), "success");
        EXPECT_EQ(evaluation.wait().text(), success);
        EXPECT_THAT(delegate->events(), ElementsAreArray(events));
    }
}

TEST_F(SimulatedEvaluation, DelegateMayCallTheClientFromInsideTheEvent) {
    ObRef<KVClient> client;
    std::string entered;
    client = connect(service, ObMake<ScriptedDelegate>(Answers{[&](const KVUIReply&) {
                         entered = enterPassword(client, "1234");
                     }}));
    EXPECT_EQ(evaluate(client).text(), success);
    EXPECT_EQ(entered, "success");
}

TEST_F(SimulatedEvaluation, ContextsEvaluateConcurrently) {
    service->setPasscode(str("2468"));
    std::vector<std::string> outcomes(8);
    std::latch ready(8);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        threads.emplace_back([&, i] {
            auto delegate = ObMake<ScriptedDelegate>(
                Answers{ScriptedDelegate::passcode(i % 2 == 0 ? "2468" : "1234")});
            ObRef<KVClient> client = connect(service, delegate);
            ready.arrive_and_wait();
            outcomes[i] = evaluate(client, options({{1004, num(1)}})).text();
        });
    }
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        threads[i].join();
        EXPECT_EQ(outcomes[i], i % 2 == 0 ? success
                                          : "error -1: Authentication failed: too many wrong "
                                            "passcodes (1).");
    }
}

} // namespace
} // namespace tessiva::test
