// The PAM service through the VR interface, on the service's own threads,
// against pam_matrix with the service files and passwords of PamTestMain.
#include "PamTestEnvironment.h"
#include "credential/ReferenceTesting.h"
#include "support/RecordingUIDelegate.h"
#include "tessiva/DelegateProxy.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/kavelin/KVPAMService.h"

namespace tessiva::test {
namespace {

KVPAMConfiguration configuration(const char* service, const char* user) {
    return {service, user, ""};
}

ObRef<ObDictionary> consent(const ObRef<ObObject>& answer) {
    return ObDictionary::make({{VREventConsentResponse, answer}});
}

ObRef<ObDictionary> consent(const char* password) {
    return consent(ObString::make(password));
}

std::string description(const ObRef<ObError>& error) {
    return error ? printed(error->localizedDescription()) : "(no error)";
}

// A credential reference set up against the installed backend, evaluating
// the device-owner policy with the given hints; replies are kept in order.
struct Session {
    explicit Session(ObRef<VRUIDelegate> uiDelegate = RecordingUIDelegate::make())
        : delegate(ob_cast<RecordingUIDelegate>(uiDelegate)) {
        reference->setupWithCredentialHandle_uiDelegate_reply(nullptr, uiDelegate, record());
        EXPECT_EQ(replies.waitFor(0), nullptr);
    }
    void evaluate(const ObRef<ObDictionary>& hints = nullptr) {
        reference->evaluatePolicy_hints_reply(VRPolicyDeviceOwnerAuthenticated, hints, record());
    }
    // The reply of the evaluation started after set-up.
    ObRef<ObError> outcome() { return replies.waitFor(1); }
    VRErrorReply record() {
        return [this](ObRef<ObError> error) { replies.add(std::move(error)); };
    }
    void enterPassword(const char* password) {
        reference->sendClientRequest_params_reply(
            VRClientRequestEnterPassword,
            ObDictionary::make({{VRClientRequestParamPassword, ObString::make(password)}}),
            [](auto...) {});
    }

    const ObRef<RecordingUIDelegate> delegate;
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    SharedList<ObRef<ObError>> replies;
};

// Answers every prompt with the same password at once, and keeps the prompts.
class AnsweringDelegate final : public VRUIDelegate {
public:
    explicit AnsweringDelegate(std::string password) : password_(std::move(password)) {}
    void event_params_reply(const ObRef<ObString>&, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        prompts_.add(printed(params));
        if (ob_cast<ObNumber>(params->objectForKey(VREventParamActive))->boolValue())
            reply(consent(password_.c_str()), nullptr);
    }
    std::vector<std::string> prompts() const { return prompts_.items(); }

private:
    const std::string password_;
    SharedList<std::string> prompts_;
};

TEST(PamService, TheRightPasswordAuthenticatesAndReportsThePasscodeAsUsed) {
    const KVScopedClientBackend installed(KVPAMService::make(configuration(pamService, pamUser)));
    Session session;
    session.evaluate();
    const auto prompt = session.delegate->waitForEvent(0);
    EXPECT_EQ(printed(prompt.name), "EventPasscode");
    EXPECT_EQ(printed(prompt.params), "{Active = 1; SimpleStatus = 3}");
    prompt.reply(consent(pamPassword), nullptr);
    EXPECT_EQ(session.outcome(), nullptr) << description(session.outcome());
    EXPECT_EQ(printed(session.delegate->waitForEvent(1).params), "{Active = 0}");
    EXPECT_EQ(printed(session.reference->resultForTag(VRResultTagUsedPasscode)), "1");
    EXPECT_EQ(printed(session.reference->resultForTag(VRResultTagUsedRidgescan)), "0");
}

// A wrong password asks again with one attempt fewer and PAM's complaint;
// the caller's EnterPassword request may answer instead of the delegate.
TEST(PamService, AWrongPasswordAsksAgainWithPamsMessageAndFewerAttempts) {
    const KVScopedClientBackend installed(
        KVPAMService::make(configuration(pamVerboseService, pamUser)));
    Session session;
    session.evaluate();
    // The chatty module speaks before every prompt.
    const std::string chatter = "Touch the key, or type the password.\nNo key is plugged in.";
    const auto first = session.delegate->waitForEvent(0);
    EXPECT_EQ(printed(first.params), "{Active = 1; SimpleStatus = 3; Status = " + chatter + "}");
    first.reply(consent("wrong"), nullptr);
    EXPECT_EQ(printed(session.delegate->waitForEvent(1).params),
              "{Active = 1; SimpleStatus = 2; Status = " + chatter + "}");
    session.enterPassword(pamPassword);
    EXPECT_EQ(session.outcome(), nullptr) << description(session.outcome());
}

TEST(PamService, WrongPasswordsUpToTheLimitFailTheAuthentication) {
    const KVScopedClientBackend installed(KVPAMService::make(configuration(pamService, pamUser)));
    Session session;
    session.evaluate(ObDictionary::make({{VRHintMaxPasscodeFailures, ObNumber::make(2)}}));
    session.delegate->waitForEvent(0).reply(consent("wrong"), nullptr);
    const auto last = session.delegate->waitForEvent(1);
    EXPECT_EQ(printed(last.params), "{Active = 1; SimpleStatus = 1}");
    last.reply(consent("wrong again"), nullptr);
    const ObRef<ObError> error = session.outcome();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code(), -1);
    EXPECT_EQ(description(error), "Authentication failed: too many wrong passcodes (2).");
}

// Whatever stops a pending prompt makes PAM's conversation fail, so that
// pam_authenticate returns and the evaluation replies.
TEST(PamService, StoppingAPendingPromptEndsTheEvaluation) {
    struct Case {
        const char* name;
        ObRef<ObDictionary> hints;
        std::function<void(Session&, const RecordingUIDelegate::Event&)> stop;
        ObInteger code;
        const char* message;
    };
    const Case cases[] = {
        {"invalidate", nullptr, [](Session& s, auto&) { s.reference->invalidate(); }, -9,
         "The context was invalidated during the evaluation."},
        {"StopEvents", nullptr,
         [](Session& s, auto&) {
             s.reference->sendClientRequest_params_reply(
                 VRClientRequestStopEvents,
                 ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode}}),
                 [](auto...) {});
         },
         -9, "The application stopped the evaluation."},
        {"declined", nullptr,
         [](Session&, auto& prompt) { prompt.reply(consent(ObNumber::make(0)), nullptr); }, -2,
         "The user declined to enter the passcode."},
        {"time-out", ObDictionary::make({{VRHintTimeout, ObNumber::make(1)}}),
         [](Session&, auto&) {}, -1001, "The user did not authenticate in time."},
    };
    const KVScopedClientBackend installed(KVPAMService::make(configuration(pamService, pamUser)));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Session session;
        session.evaluate(c.hints);
        c.stop(session, session.delegate->waitForEvent(0));
        const ObRef<ObError> error = session.outcome();
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->code(), c.code);
        EXPECT_EQ(description(error), c.message);
    }
}

TEST(PamService, WhatPamRefusesFailsWithItsOwnCode) {
    struct Case {
        KVPAMConfiguration configuration;
        ObInteger code;
        const char* message;
    };
    const Case cases[] = {
        // pam_matrix, like most modules, does not tell an unknown user from a
        // wrong password.
        {configuration(pamService, "mallory"), -1,
         "Authentication failed: too many wrong passcodes (3)."},
        {configuration(pamService, pamForeignUser), -1000,
         "PAM does not let the user 'dora' in with the service 'tessiva-test': Permission "
         "denied."},
        {configuration("no-such-service", pamUser), -6,
         "PAM could not start the service 'no-such-service': Critical error - immediate abort."},
        {configuration(pamEchoService, pamUser), -6,
         "PAM asked for visible input (\"Password: \"), which Tessiva does not give."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.configuration.service + " " + c.configuration.user);
        const KVScopedClientBackend installed(KVPAMService::make(c.configuration));
        Session session(ObMake<AnsweringDelegate>(pamPassword));
        session.evaluate();
        const ObRef<ObError> error = session.outcome();
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->code(), c.code);
        EXPECT_EQ(description(error), c.message);
    }
}

// Both prompts are pending before either is answered: the two PAM
// transactions run side by side on their own threads.
TEST(PamService, TwoContextsAuthenticateAtOnce) {
    Session first;
    // No backend installed: the process chose PAM by name (TESSIVA_SERVICE=pam,
    // TESSIVA_PAM_USER=alice); the second installs one for bob.
    first.evaluate();
    const auto firstPrompt = first.delegate->waitForEvent(0);
    const KVScopedClientBackend installed(
        KVPAMService::make(configuration(pamService, pamOtherUser)));
    Session second;
    second.evaluate();
    const auto secondPrompt = second.delegate->waitForEvent(0);
    secondPrompt.reply(consent(pamOtherPassword), nullptr);
    firstPrompt.reply(consent(pamPassword), nullptr);
    EXPECT_EQ(first.outcome(), nullptr) << description(first.outcome());
    EXPECT_EQ(second.outcome(), nullptr) << description(second.outcome());
}

TEST(PamService, AReferenceRestoredByHandleAnswersTheRunningEvaluation) {
    const KVScopedClientBackend installed(KVPAMService::make(configuration(pamService, pamUser)));
    Session session;
    session.evaluate();
    (void)session.delegate->waitForEvent(0);
    const ObRef<VRCredentialReference> restored = VRCredentialReference::make();
    ASSERT_TRUE(
        restored->setupWithCredentialHandle_error(session.reference->credentialHandle(), nullptr));
    SharedList<ObRef<ObError>> requestReplies;
    restored->sendClientRequest_params_reply(
        VRClientRequestEnterPassword,
        ObDictionary::make({{VRClientRequestParamPassword, ObString::make(pamPassword)}}),
        [&](ObRef<ObDictionary>, ObRef<ObError> error) { requestReplies.add(error); });
    EXPECT_EQ(requestReplies.waitFor(0), nullptr);
    EXPECT_EQ(session.outcome(), nullptr) << description(session.outcome());
}

// Policy 1 (ridge scan only) has no VR name of its own here, so the service
// is asked directly.
TEST(PamService, TheBiometricPolicyNeedsAPamServiceOfItsOwn) {
    for (const char* biometricService : {"", pamService}) {
        SCOPED_TRACE(biometricService);
        const KVScopedClientBackend installed(
            KVPAMService::make({pamService, pamUser, biometricService}));
        const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
        SharedList<ObRef<KVClient>> clients;
        KVClient::clientWithExternalizedContext_uiDelegate_reply(
            nullptr, KVLegacyHelper::uiDelegateFromVRUIDelegate(delegate),
            [&](ObRef<KVClient> client, ObRef<ObError>) { clients.add(client); });
        SharedList<ObRef<ObError>> outcomes;
        clients.waitFor(0)->evaluatePolicy_options_reply(
            1, nullptr, [&](ObRef<ObDictionary>, ObRef<ObError> error) { outcomes.add(error); });
        if (*biometricService == '\0') {
            EXPECT_EQ(printed(outcomes.waitFor(0)),
                      "Error Domain=org.kavelin.KVErrorDomain Code=-1001 \"No PAM service is "
                      "configured for biometric authentication.\"");
        } else {
            delegate->waitForEvent(0).reply(consent(pamPassword), nullptr);
            EXPECT_EQ(outcomes.waitFor(0), nullptr);
        }
    }
}

TEST(PamService, NoLogLineHoldsAPassword) {
    const KVScopedClientBackend installed(
        KVPAMService::make(configuration(pamVerboseService, pamUser)));
    const LogCapture log;
    KVLogger::sharedInstance()->setLoggingEnabled(true);
    Session session;
    session.evaluate();
    session.delegate->waitForEvent(0).reply(consent("wrong-guess"), nullptr);
    session.delegate->waitForEvent(1).reply(consent(pamPassword), nullptr);
    EXPECT_EQ(session.outcome(), nullptr);
    KVLogger::sharedInstance()->setLoggingEnabled(false);
    const std::vector<std::string> lines = log.lines();
    EXPECT_FALSE(lines.empty());
    for (const std::string& line : lines) {
        EXPECT_EQ(line.find("wrong-guess"), std::string::npos) << line;
        EXPECT_EQ(line.find(pamPassword), std::string::npos) << line;
    }
}

} // namespace
} // namespace tessiva::test
