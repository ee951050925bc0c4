// The conformance suite against a simulated service in this process.
#include "ServiceConformance.h"

namespace tessiva::test {
namespace {
class InProcessTarget final : public ServiceTarget {
public:
    void setPasscode(const char* passcode) override { service_->setPasscode(str(passcode)); }
    ObRef<KVClientBackend> backend() override { return service_; }
    bool setACLRule(KVACLRule rule) override {
        service_->setACLRule(std::move(rule));
        return true;
    }
    bool keepsIdentity() const override { return true; }

private:
    ObRef<KVSimulatedService> service_ = KVSimulatedService::make();
};

INSTANTIATE_TEST_SUITE_P(Simulated, ServiceConformanceTest,
                         ::testing::Values(ServiceTargetMaker{
                             "InProcess", [] { return std::make_unique<InProcessTarget>(); }}),
                         targetName);
} // namespace
} // namespace tessiva::test
