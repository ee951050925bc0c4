// A process started without a service (TESSIVA_SERVICE=none), whose simulated
// services take their passcode from TESSIVA_PASSCODE.
#include "simulator/SimulatorTesting.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace tessiva::test {
namespace {

TEST(NoService, ClientRequestsFailWithServiceUnavailable) {
    EXPECT_FALSE(KVSimulatedService::defaultService());
    ObRef<ObError> error;
    EXPECT_FALSE(connect(nullptr, nullptr, nullptr, &error));
    EXPECT_EQ(describe(nullptr, error), "error -1000: No authentication service is available.");
    EXPECT_TRUE(error->domain()->isEqual(KVErrorDomain));
}

TEST(NoService, SimulatedServicesTakeThePasscodeFromTheEnvironment) {
    ObRef<KVSimulatedService> service = KVSimulatedService::make();
    for (const char* passcode : {"2468", "1234"}) {
        SCOPED_TRACE(passcode);
        ObRef<KVClient> client = connect(service);
        Started evaluation(client, options({{1004, num(1)}}));
        EXPECT_EQ(enterPassword(client, passcode), "success");
        EXPECT_EQ(evaluation.wait().error == nullptr, std::string_view(passcode) == "2468");
    }
    service->setPasscode(nullptr);
    EXPECT_EQ(service->passcode()->text(), KVSimulatedService::defaultPasscode);
}

} // namespace
} // namespace tessiva::test

// Set before anything runs: the service choice is read once per process.
int main(int argc, char** argv) {
    setenv("TESSIVA_SERVICE", "none", 1);
    setenv("TESSIVA_PASSCODE", "2468", 1);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
