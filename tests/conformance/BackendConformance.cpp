// SPDX-License-Identifier: MIT
// The conformance suite's tests: contexts and handles, the ACL rule, and
// policy evaluations on the service's threads.
#include "BackendConformance.h"

namespace tessiva::test {
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ScriptedReaderConformanceTest);

TEST_P(BackendConformanceTest, AHandleRestoresItsContextAndNoOtherUntilInvalidated) {
    // Its delegate never answers: the evaluations wait for the other client.
    ObRef<KVClient> original = connect(ObMake<ScriptedDelegate>(std::vector<Answer>{}));
    ASSERT_TRUE(original) << refusal;
    ObRef<ObData> handle = original->externalizedContext();
    EXPECT_EQ(handle->length(), 16u);
    EXPECT_FALSE(handle->isEqual(connect()->externalizedContext()));

    // A copy of the bytes, as a caller that stored the handle gives it back.
    ObRef<KVClient> restored = connect(nullptr, ObData::make(handle->bytes(), handle->length()));
    ASSERT_TRUE(restored) << refusal;
    auto answered = start(original);
    EXPECT_EQ(outcome(start(restored)),
              "error -1007: The context is already running an evaluation.");
    // Consent is no stage of this policy, whatever the reader turns out to be.
    EXPECT_EQ(failEvent(restored, 3, nullptr), "error -1005: No evaluation is processing event 3.");
    EXPECT_EQ(enterPassword(restored, right), "success");
    EXPECT_EQ(outcome(std::move(answered)), success);

    // A rule that refuses only the caller's very objects: its refusal shows it
    // was given them, and no copies.
    const ObRef<ObObject> acl = str("acl"), operation = num(4);
    if (backend->setACLRule([&](const ObRef<ObObject>& givenACL, const ObRef<ObObject>& given) {
            return givenACL != acl || given != operation;
        })) {
        EXPECT_EQ(evaluateACL(restored, acl, operation),
                  "error -1002: The ACL does not allow the operation.");
        backend->setACLRule(nullptr);
    }
    EXPECT_EQ(evaluateACL(original, acl, operation), "{}");

    auto cancelled = start(original);
    restored->invalidate();
    EXPECT_EQ(
        outcome(std::move(cancelled), "the reply of an evaluation its context's invalidation ends"),
        "error -7: The context was invalidated during the evaluation.");
    for (const ObRef<KVClient>& client : {original, restored}) {
        const std::string invalidated = "error -1009: The context was invalidated.";
        EXPECT_EQ(outcome(start(client), "the refusal of an evaluation after invalidation"),
                  invalidated);
        EXPECT_EQ(enterPassword(client, right), invalidated);
        EXPECT_EQ(failEvent(client, 2, nullptr), invalidated);
        EXPECT_EQ(evaluateACL(client, acl, operation), invalidated);
    }
    for (const ObRef<ObData>& unknown : {handle, ObData::make("\x01\x02\x03", 3)}) {
        EXPECT_FALSE(connect(nullptr, unknown));
        EXPECT_EQ(refusal, "error -1009: No context matches the handle.");
    }
}

TEST_P(BackendConformanceTest, EvaluationRaisesTheChosenEventsUntilItHasAnOutcome) {
    ObRef<KVClient> client;
    const ObRef<ObNumber> yes = ObNumber::makeBool(true), no = ObNumber::makeBool(false);
    const Texts asked = {asking(3), closing}, none;
    auto check = [&](const char* behaviour, std::vector<Answer> answers, const Texts& events,
                     const std::string& expected, const ObRef<ObDictionary>& options = nullptr,
                     ObInteger policy = 1000) {
        SCOPED_TRACE(behaviour);
        auto delegate = ObMake<ScriptedDelegate>(std::move(answers));
        client = connect(delegate);
        ASSERT_TRUE(client) << refusal;
        EXPECT_EQ(outcome(start(client, options, policy)), expected);
        EXPECT_EQ(delegate->events, events);
    };
    check("a wrong passcode asks again with one attempt fewer", {response(wrong), response(right)},
          {asking(3), asking(2), closing}, success, nullptr, 1007);
    check("an empty answer, and a part of the passcode, are wrong passcodes",
          {response(""), response(right.substr(0, right.size() - 1))},
          {asking(2), asking(1), closing},
          "error -1: Authentication failed: too many wrong passcodes (2).",
          dict({{num(1004), num(2)}}));
    // Each event takes one answer; after the delegate's, enterPassword's is
    // refused.
    check("the last wrong passcode fails the evaluation", {[&](const KVUIReply& reply) {
              response(wrong)(reply);
              EXPECT_EQ(enterPassword(client, right),
                        "error -1005: No evaluation is waiting for a passcode.");
          }},
          {asking(1), closing}, "error -1: Authentication failed: too many wrong passcodes (1).",
          dict({{num(1004), num(1)}, {num(1009), no}}));
    check("a user who declines cancels", {response(no)}, asked,
          "error -2: The user declined to enter the passcode.");
    check("a delegate that throws fails the evaluation with what it threw",
          {[](const KVUIReply&) { throw std::runtime_error("Unknown response key: Passcode"); }},
          asked,
          "error -1008: The user-interface delegate raised an exception: Unknown "
          "response key: "
          "Passcode");
    check("a delegate that throws something else fails the evaluation",
          {[](const KVUIReply&) { throw 5; }}, asked,
          "error -1008: The user-interface delegate raised an exception of an "
          "unknown type.");
    check("the delegate's error is the outcome",
          {[&](const KVUIReply& reply) { reply(nullptr, stop); }}, asked, "the caller's error");

    // The delegate may call the client from inside the event.
    check("an event failed with the caller's error ends with it",
          {[&](const KVUIReply&) { EXPECT_EQ(failEvent(client, 2, stop), "success"); }}, asked,
          "the caller's error");
    check("an event failed with something else is the application's cancel",
          {[&](const KVUIReply&) {
              EXPECT_EQ(failEvent(client, 2, str("not an error")), "success");
          }},
          asked, "error -7: The application stopped the evaluation.");

    // The event-processing option, in its processing and its filter forms.
    check("the remote view is named when asked for", {response(right)},
          {"2 {0 = 1; 5 = 3; 3 = org.tessiva.simulator; 4 = SimulatedPasscodeView}", closing},
          success, dict({{num(1007), dict({{num(2), dict({{num(0), yes}})}})}}));
    check("the filter form raises the passcode event", {response(right)}, asked, success,
          dict({{num(1007), dict({{str("EventPasscode"), yes}})}}));
    check("an evaluation nobody answers times out", {}, none,
          "error -1003: The user did not authenticate in time.",
          dict({{num(1001), num(1)}, {num(1007), dict({{str("EventRidgescan"), yes}})}}));

    // What it cannot start, it refuses before any event.
    check("a non-interactive evaluation cannot ask", {response(right)}, none,
          "error -1004: The evaluation needs the user, and user interaction is "
          "not allowed.",
          dict({{num(1000), yes}}));
    check("the ridge-scan policy is refused", {response(right)}, none,
          "error -1001: " + backend->biometryRefusal(), nullptr, 1);
    const std::string timeout = "error -1008: Option 1001 (time-out) must be a "
                                "positive number of seconds.";
    const std::string failures = "error -1008: Option 1004 (maximum passcode "
                                 "failures) must be a positive number.";
    check("a time-out that is not a number is refused", {response(right)}, none, timeout,
          dict({{num(1001), str("soon")}}));
    check("a time-out of zero is refused", {response(right)}, none, timeout,
          dict({{num(1001), num(0)}}));
    check("a maximum of zero failures is refused", {response(right)}, none, failures,
          dict({{num(1004), num(0)}}));
    check("event processing that is no dictionary is refused", {response(right)}, none,
          "error -1008: Option 1007 (event processing) must be a dictionary.",
          dict({{num(1007), array({})}}));
}

TEST_P(BackendConformanceTest, ContextsEvaluateConcurrently) {
    runTogether(8, [&](int t) {
        auto delegate = ObMake<ScriptedDelegate>(std::vector{response(t % 2 ? wrong : right)});
        ObRef<KVClient> client = connect(delegate);
        ASSERT_TRUE(client) << refusal;
        EXPECT_EQ(outcome(start(client, dict({{num(1004), num(1)}}))),
                  t % 2 ? "error -1: Authentication failed: too many wrong passcodes (1)."
                        : success);
    });
}

} // namespace tessiva::test

namespace tessiva::test {

TEST_P(BackendConformanceTest, ConsentAndPassphrasePromptsAnswerTheirOwnEvents) {
    const ObRef<ObNumber> yes = ObNumber::makeBool(true), no = ObNumber::makeBool(false);
    auto check = [&](const char* behaviour, std::vector<Answer> answers, const Texts& events,
                     const std::string& expected, ObInteger policy,
                     const ObRef<ObDictionary>& options = nullptr) {
        SCOPED_TRACE(behaviour);
        auto delegate = ObMake<ScriptedDelegate>(std::move(answers));
        ObRef<KVClient> client = connect(delegate);
        ASSERT_TRUE(client) << refusal;
        EXPECT_EQ(outcome(start(client, options, policy)), expected);
        EXPECT_EQ(delegate->events, events);
    };
    const Texts consentAsked = {"3 {0 = 1}", "3 {0 = 0}"};
    check("consent given", {response(yes)}, consentAsked, consented, 1001);
    check("consent refused", {response(no)}, consentAsked,
          "error -2: The user declined to give consent.", 1001);
    check("without a reader, consent is what policy 1002 asks", {response(yes)}, consentAsked,
          consented, 1002);
    check("option 1012 asks a passphrase", {response(wrong), response(right)},
          {"4 {0 = 1; 5 = 3}", "4 {0 = 1; 5 = 2}", "4 {0 = 0}"}, passphraseSuccess, 1000,
          dict({{num(1012), yes}}));
    check("a declined passphrase cancels", {response(no)}, {"4 {0 = 1; 5 = 3}", "4 {0 = 0}"},
          "error -2: The user declined to enter the passphrase.", 1000, dict({{num(1012), yes}}));
}

// One reader's script serves the whole test, each evaluation taking its
// scans in turn, since a daemon's reader is set once, as it starts.
TEST_P(ScriptedReaderConformanceTest, RidgeScansDecideByTheirPolicyAndHandOverWhenUsedUp) {
    std::vector<KVSimulatedScan> scans = {{2, ""},
                                          {0, "left-thumb"},
                                          {0, "right-index"},
                                          {0, "left-thumb"}, // matches
                                          {1, ""},
                                          {5, ""},
                                          {1, ""}, // no matches
                                          {1, ""}, // to the passcode
                                          {1, ""},
                                          {1, ""},
                                          {1, ""},  // to consent
                                          {6, ""},  // unplugged
                                          {3, ""},  // the fallback
                                          {4, ""}}; // stopped; after it, scans wait
    ASSERT_TRUE(backend->setReader({true, false, {"right-index", "left-thumb"}, scans}));
    const ObRef<ObNumber> yes = ObNumber::makeBool(true);
    const std::string available = "0 {1 = 1; 2 = 0}", noMatch = "1 {1 = 1; 5 = 2}";
    std::vector<std::string> identities;
    // Identities are random to the test: each becomes "<id>", in a list.
    auto withoutIdentities = [&](std::string text) {
        for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos; at += 4) {
            const std::size_t end = text.find('>', at);
            identities.push_back(text.substr(at, end + 1 - at));
            text.replace(at, end + 1 - at, "<id>");
        }
        return text;
    };
    ObRef<KVClient> client;
    auto check = [&](const char* behaviour, std::vector<Answer> answers, const Texts& events,
                     const std::string& expected, ObInteger policy,
                     const ObRef<ObDictionary>& options = nullptr, bool answersScans = false) {
        SCOPED_TRACE(behaviour);
        auto delegate = ObMake<ScriptedDelegate>(std::move(answers), answersScans);
        client = connect(delegate);
        ASSERT_TRUE(client) << refusal;
        EXPECT_EQ(withoutIdentities(outcome(start(client, options, policy))), expected);
        Texts seen;
        for (const std::string& event : delegate->events)
            seen.push_back(withoutIdentities(event));
        EXPECT_EQ(seen, events);
    };
    const std::string matched = "{1 = 1; 2 = <id>; 3 = 0; 4 = 0; 5 = 0}";
    check("a retry, then a match", {},
          {available, "1 {1 = 2; 5 = 0}", "1 {1 = 0; 5 = 1; 2 = <id>}"}, matched, 1);
    check("a match of another finger", {}, {available, "1 {1 = 0; 5 = 1; 2 = <id>}"}, matched, 1);
    check("a match of the first finger again", {}, {available, "1 {1 = 0; 5 = 1; 2 = <id>}"},
          matched, 1);
    ASSERT_EQ(identities.size(), 6u);
    EXPECT_EQ(identities[0], identities[1]) << "the event's identity is the result's";
    EXPECT_EQ(identities[0], identities[4]) << "one finger keeps its identity";
    EXPECT_NE(identities[0], identities[2]) << "another finger has another";
    EXPECT_EQ(identities[0].size(), 2u + 64) << "32 bytes";

    check("no-matches use up option 1003", {}, {available, noMatch, "1 {1 = 5; 5 = 0}", noMatch},
          "error -1: Authentication failed: too many ridge scans that did not match (2).", 1,
          dict({{num(1003), num(2)}}));
    check("policy 1000 hands over to the passcode", {response(right)},
          {"0 {1 = 1; 2 = 1}", noMatch, asking(3), closing}, success, 1000,
          dict({{num(1003), num(1)}}));
    check("policy 1002 hands over to consent", {response(yes)},
          {available, noMatch, noMatch, noMatch, "3 {0 = 1}", "3 {0 = 0}"}, consented, 1002);
    check("a passphrase first leaves the reader alone", {response(right)},
          {"0 {1 = 1; 2 = 1}", "4 {0 = 1; 5 = 3}", "4 {0 = 0}"}, passphraseSuccess, 1000,
          dict({{num(1012), yes}}));
    check("a reader unplugged mid-scan", {}, {available, "1 {1 = 6; 5 = 3}"},
          "error -1001: The fingerprint reader was unplugged during the scan.", 1);
    check("the delegate takes the fallback that option 1 offers", {response(yes)},
          {available, "1 {1 = 3; 5 = 0}"},
          "error -4: The user chose the fallback instead of the ridge scan.", 1,
          dict({{num(1), str("Use Passcode")}}), true);
    // The scan now waits for a finger; failing the event stops it.
    check("a failed ridge-scan event stops the scan",
          {[&](const KVUIReply&) { EXPECT_EQ(failEvent(client, 1, stop), "success"); }},
          {available, "1 {1 = 4; 5 = 0}"}, "the caller's error", 1, nullptr, true);
    check("a scan nobody touches times out", {}, {available},
          "error -1003: The user did not authenticate in time.", 1, dict({{num(1001), num(1)}}));
}

} // namespace tessiva::test
