// SPDX-License-Identifier: MIT
// The PAM service in this process, against pam_matrix with the service files
// and passwords of PamTestMain: the conformance suite, then what only PAM
// does.
#include "PamTestEnvironment.h"
#include "conformance/BackendConformance.h"
#include "support/RecordingUIDelegate.h"
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
        return "no fingerprint reader: cannot reach the system bus: No such file or directory";
    }

private:
    ObRef<KVClientBackend> service_ = KVPAMService::make({pamService, pamUser, ""});
};

INSTANTIATE_TEST_SUITE_P(Pam, BackendConformanceTest,
                         ::testing::Values(BackendMaker{
                             "InProcess", [] { return std::make_unique<InProcessPam>(); }}),
                         backendName);

// The outcome of one evaluation of `policy` on a PAM service of the
// configuration, its three passcode events answered with the password.
std::string evaluate(const KVPAMConfiguration& configuration, const char* password,
                     ObInteger policy) {
    CallsOn calls(KVPAMService::make(configuration));
    ObRef<KVClient> client =
        calls.connect(ObMake<ScriptedDelegate>(std::vector<Answer>(3, response(password))));
    return client ? ServiceCalls::outcome(ServiceCalls::start(client, nullptr, policy))
                  : calls.refusal;
}

// What PAM's modules say before a prompt travels with it to the VR delegate;
// the passwords it answers with must never reach the log.
TEST(PamService, PamsMessagesTravelWithThePromptAndNoLogLineHoldsAPassword) {
    const KVScopedClientBackend installed(KVPAMService::make({pamVerboseService, pamUser, ""}));
    const LogCapture log;
    KVLogger::sharedInstance()->setLoggingEnabled(true);
    const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    SharedList<ObRef<ObError>> replies;
    auto record = [&](ObRef<ObError> error) { replies.add(std::move(error)); };
    reference->setupWithCredentialHandle_uiDelegate_reply(nullptr, delegate, record);
    EXPECT_EQ(replies.waitFor(0, "set-up's reply"), nullptr);
    reference->evaluatePolicy_hints_reply(VRPolicyDeviceOwnerAuthenticated, nullptr, record);
    const std::string chatter = "Touch the key, or type the password.\nNo key is plugged in.";
    int attemptsLeft = 3;
    for (const char* password : {"wrong-guess", pamPassword}) {
        const auto event = delegate->waitForEvent(std::size_t(3 - attemptsLeft));
        EXPECT_EQ(ObFormat("%@", event.params)->text(),
                  "{Active = 1; SimpleStatus = " + std::to_string(attemptsLeft--) +
                      "; Status = " + chatter + "}");
        event.reply(ObDictionary::make({{VREventConsentResponse, str(password)}}), nullptr);
    }
    EXPECT_EQ(replies.waitFor(1, "the evaluation's reply"), nullptr);
    KVLogger::sharedInstance()->setLoggingEnabled(false);
    const std::vector<std::string> lines = log.lines();
    EXPECT_FALSE(lines.empty());
    for (const std::string& line : lines) {
        EXPECT_EQ(line.find("wrong-guess"), std::string::npos) << line;
        EXPECT_EQ(line.find(pamPassword), std::string::npos) << line;
    }
}

TEST(PamService, WhatPamRefusesFailsWithItsOwnCode) {
    const std::string wrong = "error -1: Authentication failed: too many wrong passcodes (3).";
    const struct {
        KVPAMConfiguration configuration;
        const char* password;
        std::string outcome;
    } cases[] = {
        // pam_matrix, like most modules, does not tell an unknown user from a
        // wrong password.
        {{pamService, "mallory", ""}, pamPassword, wrong},
        {{pamService, pamForeignUser, ""},
         pamPassword,
         "error -1002: PAM does not let the user 'dora' in with the service 'tessiva-test': "
         "Permission denied."},
        // What the account module says after the last prompt ends the description.
        {{pamExpiredService, pamUser, ""},
         pamPassword,
         "error -1002: PAM does not let the user 'alice' in with the service "
         "'tessiva-test-expired': User account has expired. Your account has expired; please "
         "contact your system administrator."},
        {{"no-such-service", pamUser, ""},
         pamPassword,
         "error -1000: PAM could not start the service 'no-such-service': Critical error - "
         "immediate abort."},
        {{pamEchoService, pamUser, ""},
         pamPassword,
         "error -1000: PAM asked for visible input (\"Password: \"), which Tessiva does not give."},
        // A module that lets an empty password in unless told not to.
        {{pamNullTokenService, pamUser, ""}, "", wrong},
    };
    for (const auto& [configuration, password, outcome] : cases) {
        SCOPED_TRACE(configuration.service + " " + configuration.user);
        EXPECT_EQ(evaluate(configuration, password, 1000), outcome);
    }
}

// No backend installed: the process chose PAM by name (TESSIVA_SERVICE=pam,
// TESSIVA_PAM_USER=alice).
TEST(PamService, TheBackendChosenByNameAuthenticatesItsUser) {
    ObRef<KVClient> client;
    KVClient::clientWithExternalizedContext_uiDelegate_reply(
        nullptr, ObMake<ScriptedDelegate>(std::vector{response(pamPassword)}),
        [&](ObRef<KVClient> made, ObRef<ObError>) { client = made; });
    ASSERT_TRUE(client);
    EXPECT_EQ(ServiceCalls::outcome(ServiceCalls::start(client)), success);
}

} // namespace
} // namespace tessiva::test
