// The conformance suite's tests: contexts and handles, the ACL rule, and
// policy evaluations on the service's threads.
#include "ServiceConformance.h"

namespace tessiva::test {

TEST_P(ServiceConformanceTest, AHandleRestoresItsContextAndNoOtherUntilInvalidated) {
    // Its delegate never answers: the evaluations wait for the other client.
    ObRef<KVClient> original = connect(ObMake<ScriptedDelegate>(std::vector<Answer>{}));
    ObRef<ObData> handle = original->externalizedContext();
    EXPECT_EQ(handle->length(), 16u);
    EXPECT_FALSE(handle->isEqual(connect()->externalizedContext()));

    // A copy of the bytes, as a caller that stored the handle gives it back.
    ObRef<KVClient> restored = connect(nullptr, ObData::make(handle->bytes(), handle->length()));
    auto answered = start(original);
    EXPECT_EQ(start(restored).get(), "error -1007: The context is already running an evaluation.");
    EXPECT_EQ(failEvent(restored, 1, nullptr), "error -1005: No evaluation is processing event 1.");
    EXPECT_EQ(enterPassword(restored, "1234"), "success");
    EXPECT_EQ(answered.get(), success);

    // A rule that refuses only the caller's very objects: its refusal shows it
    // was given them, and no copies.
    const ObRef<ObObject> acl = str("acl"), operation = num(4);
    if (target->setACLRule([&](const ObRef<ObObject>& givenACL, const ObRef<ObObject>& given) {
            return givenACL != acl || given != operation;
        })) {
        EXPECT_EQ(evaluateACL(restored, acl, operation),
                  "error -1002: The ACL does not allow the operation.");
        target->setACLRule(nullptr);
    }
    EXPECT_EQ(evaluateACL(original, acl, operation), "{}");

    auto cancelled = start(original);
    restored->invalidate();
    EXPECT_EQ(cancelled.get(), "error -7: The context was invalidated during the evaluation.");
    for (const ObRef<KVClient>& client : {original, restored}) {
        const std::string invalidated = "error -1009: The context was invalidated.";
        EXPECT_EQ(start(client).get(), invalidated);
        EXPECT_EQ(enterPassword(client, "1234"), invalidated);
        EXPECT_EQ(failEvent(client, 2, nullptr), invalidated);
        EXPECT_EQ(evaluateACL(client, acl, operation), invalidated);
    }
    for (const ObRef<ObData>& unknown : {handle, ObData::make("\x01\x02\x03", 3)}) {
        EXPECT_FALSE(connect(nullptr, unknown));
        EXPECT_EQ(refusal, "error -1009: No context matches the handle.");
    }
}

TEST_P(ServiceConformanceTest, EvaluationRaisesTheChosenEventsUntilItHasAnOutcome) {
    ObRef<KVClient> client;
    const ObRef<ObNumber> yes = ObNumber::makeBool(true), no = ObNumber::makeBool(false);
    const Answer wrong = response(str("0000")), right = response(str("1234"));
    const Texts asked = {asking(3), closing}, none;
    auto check = [&](std::vector<Answer> answers, const Texts& events, const std::string& outcome,
                     const ObRef<ObDictionary>& options = nullptr, ObInteger policy = 1000) {
        SCOPED_TRACE(outcome);
        auto delegate = ObMake<ScriptedDelegate>(std::move(answers));
        client = connect(delegate);
        EXPECT_EQ(start(client, options, policy).get(), outcome);
        EXPECT_EQ(delegate->events, events);
    };
    check({wrong, right}, {asking(3), asking(2), closing}, success, nullptr, 1007);
    // Each event takes one answer; after the delegate's, enterPassword's is refused.
    check({[&](const KVUIReply& reply) {
              wrong(reply);
              EXPECT_EQ(enterPassword(client, "1234"),
                        "error -1005: No evaluation is waiting for a passcode.");
          }},
          {asking(1), closing}, "error -1: Authentication failed: too many wrong passcodes (1).",
          dict({{num(1004), num(1)}, {num(1009), no}}));
    check({response(no)}, asked, "error -2: The user declined to enter the passcode.");
    check({[](const KVUIReply&) { throw std::runtime_error("Unknown response key: Passcode"); }},
          asked,
          "error -1008: The user-interface delegate raised an exception: Unknown response key: "
          "Passcode");
    check({[](const KVUIReply&) { throw 5; }}, asked,
          "error -1008: The user-interface delegate raised an exception of an unknown type.");
    check({[&](const KVUIReply& reply) { reply(nullptr, stop); }}, asked, "the caller's error");

    // The delegate may call the client from inside the event.
    check({[&](const KVUIReply&) { EXPECT_EQ(failEvent(client, 2, stop), "success"); }}, asked,
          "the caller's error");
    check({[&](const KVUIReply&) {
              EXPECT_EQ(failEvent(client, 2, str("not an error")), "success");
          }},
          asked, "error -7: The application stopped the evaluation.");

    // The event-processing option, in its processing and its filter forms.
    check({right},
          {"2 {0 = 1; 5 = 3; 3 = org.tessiva.simulator; 4 = SimulatedPasscodeView}", closing},
          success, dict({{num(1007), dict({{num(2), dict({{num(0), yes}})}})}}));
    check({right}, asked, success, dict({{num(1007), dict({{str("EventPasscode"), yes}})}}));
    check({}, none, "error -1003: The user did not authenticate in time.",
          dict({{num(1001), num(1)}, {num(1007), dict({{str("EventRidgescan"), yes}})}}));

    // What it cannot start, it refuses before any event.
    check({right}, none,
          "error -1004: The evaluation needs the user, and user interaction is not allowed.",
          dict({{num(1000), yes}}));
    check({right}, none, "error -1001: This device has no ridge-scan sensor.", nullptr, 1);
    check({right}, none,
          "error -1008: Option 1001 (time-out) must be a positive number of seconds.",
          dict({{num(1001), str("soon")}}));
    check({right}, none, "error -1008: Option 1007 (event processing) must be a dictionary.",
          dict({{num(1007), array({})}}));
}

TEST_P(ServiceConformanceTest, ContextsEvaluateConcurrently) {
    target->setPasscode("2468");
    runTogether(8, [&](int t) {
        auto delegate =
            ObMake<ScriptedDelegate>(std::vector{response(str(t % 2 ? "1234" : "2468"))});
        EXPECT_EQ(start(connect(delegate), dict({{num(1004), num(1)}})).get(),
                  t % 2 ? "error -1: Authentication failed: too many wrong passcodes (1)."
                        : success);
    });
}

} // namespace tessiva::test
