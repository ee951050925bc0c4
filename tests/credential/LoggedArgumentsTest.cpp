// What the credential reference's log lines hold: argument texts made once
// whatever the switch, bounded for hostile hints, and secrets redacted on
// request.
#include "credential/ReferenceTesting.h"
#include "support/TestSupport.h"

#include <algorithm>

namespace tessiva::test {
namespace {

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

// Sets both switches for the life of the object, and puts them back off.
struct LogSwitches {
    LogSwitches(bool logging, bool redacting) {
        KVLogger::sharedInstance()->setLoggingEnabled(logging);
        KVLogger::sharedInstance()->setRedactingSecrets(redacting);
    }
    ~LogSwitches() {
        KVLogger::sharedInstance()->setLoggingEnabled(false);
        KVLogger::sharedInstance()->setRedactingSecrets(false);
    }
};

class LoggedArgumentsTest : public ReferenceTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(reference->setupWithCredentialHandle_error(handle, nullptr));
    }
};

TEST_F(LoggedArgumentsTest, HintsAHundredThousandLevelsDeepReachTheServiceAndLogBounded) {
    ObRef<ObObject> deep = ObString::make("leaf");
    for (int level = 0; level < 100'000; ++level)
        deep = ObArray::make({deep});
    for (const bool logging : {false, true}) {
        SCOPED_TRACE(logging ? "logging on" : "logging off");
        const LogSwitches switches(logging, false);
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

TEST_F(LoggedArgumentsTest, RedactionReplacesOnlyThePasswordInClientRequestLines) {
    const ObRef<ObDictionary> params =
        ObDictionary::make({{VRClientRequestParamPassword, ObString::make("s3cret")},
                            {ObString::make("Other"), ObString::make("kept")}});
    for (const bool redacting : {false, true}) {
        const std::string logged = redacting ? "<redacted>" : "s3cret";
        SCOPED_TRACE(logged);
        const LogSwitches switches(true, redacting);
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
