// The conformance suite through tessivad hosting the simulated service: the
// same observable behaviour, with the service in another process.
#include "DaemonBackend.h"

namespace tessiva::test {
namespace {
class DaemonSimulated final : public DaemonBackend {
public:
    DaemonSimulated() : DaemonBackend({}, {}) {}
    std::string rightPasscode() const override { return KVSimulatedService::defaultPasscode; }
    std::string biometryRefusal() const override { return "This device has no ridge-scan sensor."; }
};

INSTANTIATE_TEST_SUITE_P(Simulated, BackendConformanceTest,
                         ::testing::Values(BackendMaker{
                             "ThroughDaemon", [] { return std::make_unique<DaemonSimulated>(); }}),
                         backendName);
} // namespace
} // namespace tessiva::test
