// SPDX-License-Identifier: MIT
// The simulated service in this process: the conformance suite, and what only
// this service has, its passcode setting.
#include "conformance/BackendConformance.h"

#include <cstdlib>

namespace tessiva::test {
namespace {
class InProcessSimulated final : public Backend {
public:
    ObRef<KVClientBackend> service() override { return service_; }
    std::string rightPasscode() const override { return KVSimulatedService::defaultPasscode; }
    std::string biometryRefusal() const override { return "This device has no ridge-scan sensor."; }
    bool setACLRule(KVACLRule rule) override {
        service_->setACLRule(std::move(rule));
        return true;
    }
    bool setReader(const KVSimulatedReader& reader) override {
        service_->setReader(reader);
        return true;
    }

private:
    ObRef<KVSimulatedService> service_ = KVSimulatedService::make();
};

INSTANTIATE_TEST_SUITE_P(Simulated, BackendConformanceTest,
                         ::testing::Values(BackendMaker{
                             "InProcess", [] { return std::make_unique<InProcessSimulated>(); }}),
                         backendName);
INSTANTIATE_TEST_SUITE_P(Simulated, ScriptedReaderConformanceTest,
                         ::testing::Values(BackendMaker{
                             "InProcess", [] { return std::make_unique<InProcessSimulated>(); }}),
                         backendName);

// What a passcode the service is given leaves it accepting.
std::string evaluateWith(const ObRef<KVSimulatedService>& service, const char* answer) {
    ObRef<KVClient> client =
        CallsOn(service).connect(ObMake<ScriptedDelegate>(std::vector{response(answer)}));
    return ServiceCalls::outcome(ServiceCalls::start(client, dict({{num(1004), num(1)}})));
}

TEST(SimulatedService, APasscodeSetOrFromTheEnvironmentIsAcceptedAndAnEmptyOneIsNot) {
    const std::string refused = "error -1: Authentication failed: too many wrong passcodes (1).";
    const ObRef<KVSimulatedService> service = KVSimulatedService::make();
    service->setPasscode(str("2468"));
    EXPECT_EQ(evaluateWith(service, "2468"), success);
    EXPECT_EQ(evaluateWith(service, "1234"), refused);
    service->setPasscode(str(""));
    EXPECT_EQ(evaluateWith(service, ""), refused) << "an empty setting is no passcode";
    EXPECT_EQ(evaluateWith(service, "1234"), success) << "an empty setting means the default";
    service->setPasscode(nullptr);
    EXPECT_EQ(evaluateWith(service, "1234"), success);

    for (const char* environment : {"", "97531"}) {
        SCOPED_TRACE(std::string("TESSIVA_PASSCODE=") + environment);
        setenv("TESSIVA_PASSCODE", environment, 1);
        const ObRef<KVSimulatedService> fromEnvironment = KVSimulatedService::make();
        unsetenv("TESSIVA_PASSCODE");
        EXPECT_EQ(evaluateWith(fromEnvironment, ""), refused);
        EXPECT_EQ(evaluateWith(fromEnvironment, *environment ? environment : "1234"), success);
    }
}
TEST(SimulatedService, AReaderThatCannotServeTheUserSaysWhyAndPoliciesFallBackOrFail) {
    const ObRef<KVSimulatedService> service = KVSimulatedService::make();
    auto evaluate = [&](ObInteger policy, Texts& events) {
        auto delegate = ObMake<ScriptedDelegate>(std::vector{response("1234")});
        ObRef<KVClient> client = CallsOn(service).connect(delegate);
        std::string text = ServiceCalls::outcome(ServiceCalls::start(client, nullptr, policy));
        events = delegate->events;
        return text;
    };
    Texts events;
    service->setReader(*KVSimulatedService::readerFromText("none:0"));
    EXPECT_EQ(evaluate(1, events), "error -5: No finger is enrolled for the user.");
    EXPECT_EQ(events, Texts{"0 {1 = 0; 2 = 0}"});
    EXPECT_EQ(evaluate(1000, events), success) << "policy 1000 asks the passcode instead";
    EXPECT_EQ(events, (Texts{"0 {1 = 0; 2 = 1}", asking(3), closing}));
    service->setReader(*KVSimulatedService::readerFromText("busy:0"));
    EXPECT_EQ(evaluate(1, events),
              "error -1001: The fingerprint reader is in use by another program.");
    service->setReader({});
    EXPECT_EQ(evaluate(1, events), "error -1001: This device has no ridge-scan sensor.");
    EXPECT_EQ(events, Texts{}) << "a device without a reader reports nothing";

    for (const char* malformed : {"", "thumb:x", "thumb:0x"})
        EXPECT_FALSE(KVSimulatedService::readerFromText(malformed)) << malformed;
    const std::optional<KVSimulatedReader> parsed =
        KVSimulatedService::readerFromText("thumb,index:2,0=index");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->enrolledFingers, (std::vector<std::string>{"thumb", "index"}));
    ASSERT_EQ(parsed->scans.size(), 2u);
    EXPECT_EQ(parsed->scans[1].status, 0);
    EXPECT_EQ(parsed->scans[1].finger, "index");
}

TEST(SimulatedService, InvalidationStopsAScanThatWaitsForAFinger) {
    const ObRef<KVSimulatedService> service = KVSimulatedService::make();
    service->setReader({true, false, {"thumb"}, {{2, ""}}});
    ObRef<KVClient> client;
    // From inside the retry's event: the scan then waits for a finger.
    auto delegate = ObMake<ScriptedDelegate>(
        std::vector<Answer>{[&](const KVUIReply&) { client->invalidate(); }}, true);
    client = CallsOn(service).connect(delegate);
    EXPECT_EQ(ServiceCalls::outcome(ServiceCalls::start(client, nullptr, 1)),
              "error -7: The context was invalidated during the evaluation.");
    EXPECT_EQ(delegate->events, (Texts{"0 {1 = 1; 2 = 0}", "1 {1 = 2; 5 = 0}"}));
}
} // namespace
} // namespace tessiva::test
