// The simulated service through its clients: contexts and handles, the ACL
// rule, and policy evaluations on the service's threads.
#include "support/RunTogether.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "translation/TranslationTesting.h"

#include <future>
#include <gtest/gtest.h>
#include <stdexcept>

namespace tessiva::test {
namespace {
using Texts = std::vector<std::string>;
using Answer = std::function<void(const KVUIReply&)>;

const std::string success = "{1 = 0; 3 = 1; 4 = 0; 5 = 0}", closing = "2 {0 = 0}";
std::string asking(int attemptsLeft) {
    return "2 {0 = 1; 5 = " + std::to_string(attemptsLeft) + "}";
}
Answer response(const ObRef<ObObject>& value) {
    return [value](const KVUIReply& reply) { reply(dict({{num(0), value}}), nullptr); };
}

// The caller's own error, which must come back as this very object.
const ObRef<ObError> stop = ObError::make(str("Caller"), 7, nullptr);

// "error <code>: <message>" for a service error, "<domain> <code>: ..." for
// another domain's, "the caller's error" for that very object; otherwise the
// result's text form, or "success" for true.
std::string describe(const ObRef<ObObject>& result, const ObRef<ObError>& error) {
    if (error == stop)
        return "the caller's error";
    if (!error)
        return std::string(ObFormat("%@", result)->text());
    const auto domain = error->domain()->isEqual(KVErrorDomain) ? str("error") : error->domain();
    return std::string(
        ObFormat("%@ %ld: %@", domain, error->code(), error->localizedDescription())->text());
}
std::string describe(bool succeeded, const ObRef<ObError>& error) {
    return describe(succeeded ? str("success") : nullptr, error);
}

// Records every event as "<event> <params>" and answers the active ones with
// the scripted answers in turn, from inside the call, then no more. Tests
// read the record after the evaluation's reply, which orders the reads.
class ScriptedDelegate final : public KVUIDelegate {
public:
    explicit ScriptedDelegate(std::vector<Answer> answers) : script(std::move(answers)) {}
    void event_params_reply(ObInteger event, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override {
        events.emplace_back(ObFormat("%ld %@", event, params)->text());
        if (ob_cast<ObNumber>(params->objectForKey(num(0)))->boolValue() && next < script.size())
            script[next++](reply);
    }
    Texts events;
    std::vector<Answer> script;
    std::size_t next = 0;
};

class SimulatedServiceTest : public ::testing::Test {
protected:
    // Requests other than evaluations reply before they return. A client of a
    // new context, or of the one the handle names; absent on failure, with
    // the error in `refusal`.
    ObRef<KVClient> connect(const ObRef<KVUIDelegate>& delegate = nullptr,
                            const ObRef<ObData>& handle = nullptr) {
        ObRef<KVClient> client;
        service->clientWithExternalizedContext_uiDelegate_reply(
            handle, delegate, [&](ObRef<KVClient> made, ObRef<ObError> error) {
                client = made;
                if (error) // only then: contexts connect concurrently too
                    refusal = describe(nullptr, error);
            });
        return client;
    }
    // An evaluation started on the client; it replies on a service thread.
    static std::future<std::string> start(const ObRef<KVClient>& client,
                                          const ObRef<ObDictionary>& options = nullptr,
                                          ObInteger policy = 1000) {
        auto promise = std::make_shared<std::promise<std::string>>();
        client->evaluatePolicy_options_reply(policy, options, [promise](auto result, auto error) {
            promise->set_value(describe(result, error));
        });
        return promise->get_future();
    }
    // Puts the text of a reply that comes before its request returns.
    static auto into(std::string& text) {
        return [&text](auto result, auto error) { text = describe(result, error); };
    }
    static std::string enterPassword(const ObRef<KVClient>& client, const char* password) {
        std::string text;
        client->enterPassword_reply(str(password), into(text));
        return text;
    }
    static std::string failEvent(const ObRef<KVClient>& client, ObInteger event,
                                 const ObRef<ObObject>& error) {
        std::string text;
        client->failProcessedEvent_failureError_reply(event, error, into(text));
        return text;
    }
    static std::string evaluateACL(const ObRef<KVClient>& client, const ObRef<ObObject>& acl,
                                   const ObRef<ObObject>& operation) {
        std::string text;
        client->evaluateACL_operation_options_reply(acl, operation, nullptr, into(text));
        return text;
    }

    ObRef<KVSimulatedService> service = KVSimulatedService::make();
    std::string refusal;
};

TEST_F(SimulatedServiceTest, AHandleRestoresItsContextAndNoOtherUntilInvalidated) {
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
    service->setACLRule([&](const ObRef<ObObject>& givenACL, const ObRef<ObObject>& given) {
        return givenACL != acl || given != operation;
    });
    EXPECT_EQ(evaluateACL(restored, acl, operation),
              "error -1002: The ACL does not allow the operation.");
    service->setACLRule(nullptr);
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

TEST_F(SimulatedServiceTest, EvaluationRaisesTheChosenEventsUntilItHasAnOutcome) {
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

TEST_F(SimulatedServiceTest, ContextsEvaluateConcurrently) {
    service->setPasscode(str("2468"));
    runTogether(8, [&](int t) {
        auto delegate =
            ObMake<ScriptedDelegate>(std::vector{response(str(t % 2 ? "1234" : "2468"))});
        EXPECT_EQ(start(connect(delegate), dict({{num(1004), num(1)}})).get(),
                  t % 2 ? "error -1: Authentication failed: too many wrong passcodes (1)."
                        : success);
    });
}

} // namespace
} // namespace tessiva::test
