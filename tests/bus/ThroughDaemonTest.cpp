// The conformance suite through tessivad hosting the simulated service: the
// same observable behaviour, with the service in another process.
#include "PrivateBus.h"
#include "conformance/BackendConformance.h"
#include "tessiva/kavelin/KVBusService.h"

#include <mutex>

namespace tessiva::test {
namespace {
// A private bus and a daemon for each test, started on first use.
class DaemonSimulated final : public Backend {
public:
    // Tests connect from several threads at once.
    ObRef<KVClientBackend> service() override {
        std::lock_guard lock(mutex_);
        if (!daemon_) {
            daemon_ = std::make_unique<DaemonProcess>(bus_.address());
            service_ = KVBusService::make(str(bus_.address()));
        }
        return service_;
    }
    std::string rightPasscode() const override { return KVSimulatedService::defaultPasscode; }
    std::string biometryRefusal() const override { return "This device has no ridge-scan sensor."; }
    bool keepsIdentity() const override { return false; }
    void finish() override {
        if (daemon_) {
            EXPECT_EQ(daemon_->stop(), 0) << "tessivad's exit status";
        }
    }

private:
    std::mutex mutex_;
    PrivateBus bus_;
    std::unique_ptr<DaemonProcess> daemon_;
    ObRef<KVClientBackend> service_;
};

INSTANTIATE_TEST_SUITE_P(Simulated, BackendConformanceTest,
                         ::testing::Values(BackendMaker{
                             "ThroughDaemon", [] { return std::make_unique<DaemonSimulated>(); }}),
                         backendName);
} // namespace
} // namespace tessiva::test
