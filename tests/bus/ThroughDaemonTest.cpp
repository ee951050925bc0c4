// The simulated service's conformance suite again, through tessivad: the
// same observable behaviour, with the service in another process.
#include "PrivateBus.h"
#include "simulator/ServiceConformance.h"
#include "tessiva/kavelin/KVBusService.h"

#include <mutex>

namespace tessiva::test {
namespace {
// A private bus and a daemon for each test, started on first use with the
// passcode the test chose.
class DaemonTarget final : public ServiceTarget {
public:
    void setPasscode(const char* passcode) override { passcode_ = passcode; }
    // Tests connect from several threads at once.
    ObRef<KVClientBackend> backend() override {
        std::lock_guard lock(mutex_);
        if (!daemon_) {
            daemon_ = std::make_unique<DaemonProcess>(
                bus_.address(), std::vector<std::string>{},
                std::vector<std::string>{"TESSIVA_PASSCODE=" + passcode_});
            backend_ = KVBusService::make(str(bus_.address()));
        }
        return backend_;
    }
    // The daemon's service allows every ACL, as the service does by default.
    bool setACLRule(KVACLRule) override { return false; }
    bool keepsIdentity() const override { return false; }

private:
    std::string passcode_ = KVSimulatedService::defaultPasscode;
    std::mutex mutex_;
    PrivateBus bus_;
    std::unique_ptr<DaemonProcess> daemon_;
    ObRef<KVClientBackend> backend_;
};

INSTANTIATE_TEST_SUITE_P(Simulated, ServiceConformanceTest,
                         ::testing::Values(ServiceTargetMaker{
                             "ThroughDaemon", [] { return std::make_unique<DaemonTarget>(); }}),
                         targetName);
} // namespace
} // namespace tessiva::test
