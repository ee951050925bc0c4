// The PAM service in this process, against pam_matrix with the service files
// and passwords of PamTestMain: the conformance suite, then what only PAM
// does, through the VR interface on the service's own threads.
#include "PamTestEnvironment.h"
#include "conformance/BackendConformance.h"
#include "support/RecordingUIDelegate.h"
#include "tessiva/DelegateProxy.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/kavelin/KVPAMService.h"

namespace tessiva::test {
namespace {

class InProcessPam final : public Backend {
public:
    ObRef<KVClientBackend> service() override { return service_; }
    std::string rightPasscode() const override { return pamPassword; }
    std::string biometryRefusal() const override {
        return "No PAM service is configured for biometric authentication.";
    }

private:
    ObRef<KVClientBackend> service_ = KVPAMService::make({pamService, pamUser, ""});
};

INSTANTIATE_TEST_SUITE_P(Pam, BackendConformanceTest,
                         ::testing::Values(BackendMaker{
                             "InProcess", [] { return std::make_unique<InProcessPam>(); }}),
                         backendName);

std::string printed(const ObRef<ObObject>& object) {
    return std::string(ObFormat("%@", object)->text());
}

ObRef<ObDictionary> consent(const char* password) {
    return ObDictionary::make({{VREventConsentResponse, ObString::make(password)}});
}

std::string description(const ObRef<ObError>& error) {
    return error ? printed(error->localizedDescription()) : "(no error)";
}

// A credential reference set up against the installed backend, evaluating
// the device-owner policy; replies are kept in order.
struct Session {
    explicit Session(ObRef<VRUIDelegate> uiDelegate = RecordingUIDelegate::make())
        : delegate(ob_cast<RecordingUIDelegate>(uiDelegate)) {
        reference->setupWithCredentialHandle_uiDelegate_reply(nullptr, uiDelegate, record());
        EXPECT_EQ(replies.waitFor(0, "set-up's reply"), nullptr);
    }
    void evaluate() {
        reference->evaluatePolicy_hints_reply(VRPolicyDeviceOwnerAuthenticated, nullptr, record());
    }
    // The reply of the evaluation started after set-up.
    ObRef<ObError> outcome() { return replies.waitFor(1, "the evaluation's reply"); }
    VRErrorReply record() {
        return [this](ObRef<ObError> error) { replies.add(std::move(error)); };
    }

    const ObRef<RecordingUIDelegate> delegate;
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    SharedList<ObRef<ObError>> replies;
};

// Answers every prompt with the same password at once.
class AnsweringDelegate final : public VRUIDelegate {
public:
    explicit AnsweringDelegate(std::string password) : password_(std::move(password)) {}
    void event_params_reply(const ObRef<ObString>&, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        if (ob_cast<ObNumber>(params->objectForKey(VREventParamActive))->boolValue())
            reply(consent(password_.c_str()), nullptr);
    }

private:
    const std::string password_;
};

// What PAM's modules say before a prompt travels with it; the password must
// never reach the log.
TEST(PamService, PamsMessagesTravelWithThePromptAndNoLogLineHoldsAPassword) {
    const KVScopedClientBackend installed(KVPAMService::make({pamVerboseService, pamUser, ""}));
    const LogCapture log;
    KVLogger::sharedInstance()->setLoggingEnabled(true);
    Session session;
    session.evaluate();
    const std::string chatter = "Touch the key, or type the password.\nNo key is plugged in.";
    const auto first = session.delegate->waitForEvent(0);
    EXPECT_EQ(printed(first.params), "{Active = 1; SimpleStatus = 3; Status = " + chatter + "}");
    first.reply(consent("wrong-guess"), nullptr);
    EXPECT_EQ(printed(session.delegate->waitForEvent(1).params),
              "{Active = 1; SimpleStatus = 2; Status = " + chatter + "}");
    session.delegate->waitForEvent(1).reply(consent(pamPassword), nullptr);
    EXPECT_EQ(session.outcome(), nullptr) << description(session.outcome());
    KVLogger::sharedInstance()->setLoggingEnabled(false);
    const std::vector<std::string> lines = log.lines();
    EXPECT_FALSE(lines.empty());
    for (const std::string& line : lines) {
        EXPECT_EQ(line.find("wrong-guess"), std::string::npos) << line;
        EXPECT_EQ(line.find(pamPassword), std::string::npos) << line;
    }
}

TEST(PamService, WhatPamRefusesFailsWithItsOwnCode) {
    struct Case {
        KVPAMConfiguration configuration;
        const char* password;
        ObInteger code;
        const char* message;
    };
    const Case cases[] = {
        // pam_matrix, like most modules, does not tell an unknown user from a
        // wrong password.
        {{pamService, "mallory", ""},
         pamPassword,
         -1,
         "Authentication failed: too many wrong passcodes (3)."},
        {{pamService, pamForeignUser, ""},
         pamPassword,
         -1000,
         "PAM does not let the user 'dora' in with the service 'tessiva-test': Permission "
         "denied."},
        {{"no-such-service", pamUser, ""},
         pamPassword,
         -6,
         "PAM could not start the service 'no-such-service': Critical error - immediate abort."},
        {{pamEchoService, pamUser, ""},
         pamPassword,
         -6,
         "PAM asked for visible input (\"Password: \"), which Tessiva does not give."},
        // A module that lets an empty password in unless told not to.
        {{pamNullTokenService, pamUser, ""},
         "",
         -1,
         "Authentication failed: too many wrong passcodes (3)."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.configuration.service + " " + c.configuration.user);
        const KVScopedClientBackend installed(KVPAMService::make(c.configuration));
        Session session(ObMake<AnsweringDelegate>(c.password));
        session.evaluate();
        const ObRef<ObError> error = session.outcome();
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->code(), c.code);
        EXPECT_EQ(description(error), c.message);
    }
}

// No backend installed: the process chose PAM by name (TESSIVA_SERVICE=pam,
// TESSIVA_PAM_USER=alice).
TEST(PamService, TheBackendChosenByNameAuthenticatesItsUser) {
    Session session(ObMake<AnsweringDelegate>(pamPassword));
    session.evaluate();
    EXPECT_EQ(session.outcome(), nullptr) << description(session.outcome());
}

// Policy 1 (ridge scan only) has no VR name of its own here, so the service
// is asked directly.
TEST(PamService, TheBiometricPolicyRunsThePamServiceConfiguredForIt) {
    const KVScopedClientBackend installed(KVPAMService::make({pamService, pamUser, pamService}));
    const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    SharedList<ObRef<KVClient>> clients;
    KVClient::clientWithExternalizedContext_uiDelegate_reply(
        nullptr, KVLegacyHelper::uiDelegateFromVRUIDelegate(delegate),
        [&](ObRef<KVClient> client, ObRef<ObError>) { clients.add(client); });
    SharedList<ObRef<ObError>> outcomes;
    clients.waitFor(0, "a client")
        ->evaluatePolicy_options_reply(
            1, nullptr, [&](ObRef<ObDictionary>, ObRef<ObError> error) { outcomes.add(error); });
    delegate->waitForEvent(0).reply(consent(pamPassword), nullptr);
    EXPECT_EQ(outcomes.waitFor(0, "the evaluation's reply"), nullptr);
}

} // namespace
} // namespace tessiva::test
