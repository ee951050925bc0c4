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
} // namespace
} // namespace tessiva::test
