// A process started without a service (TESSIVA_SERVICE=none), whose simulated
// services take their passcode from TESSIVA_PASSCODE.
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/ObFormat.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

TEST(NoService, ClientRequestsFailAndServicesTakeThePasscodeFromTheEnvironment) {
    EXPECT_FALSE(KVSimulatedService::defaultService());
    ObRef<ObError> failure;
    KVClient::clientWithExternalizedContext_uiDelegate_reply(
        nullptr, nullptr,
        [&](ObRef<KVClient> client, ObRef<ObError> error) { failure = client ? nullptr : error; });
    EXPECT_EQ(ObFormat("%@", failure)->text(), "Error Domain=org.kavelin.KVErrorDomain Code=-1000 "
                                               "\"No authentication service is available.\"");
    // Evaluations compare with what passcode() gives, as the simulated
    // service's suite shows with setPasscode.
    EXPECT_EQ(KVSimulatedService::make()->passcode()->text(), "2468");
}

} // namespace

// Set before anything runs: the service choice is read once per process.
int main(int argc, char** argv) {
    setenv("TESSIVA_SERVICE", "NoNe", 1); // the words are read without regard to case
    setenv("TESSIVA_PASSCODE", "2468", 1);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
