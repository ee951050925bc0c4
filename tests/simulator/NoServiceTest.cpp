// SPDX-License-Identifier: MIT
// A process started without a service (TESSIVA_SERVICE=none).
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/ObFormat.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

TEST(NoService, ClientRequestsFail) {
    EXPECT_FALSE(KVSimulatedService::defaultService());
    ObRef<ObError> failure;
    KVClient::clientWithExternalizedContext_uiDelegate_reply(
        nullptr, nullptr,
        [&](ObRef<KVClient> client, ObRef<ObError> error) { failure = client ? nullptr : error; });
    EXPECT_EQ(ObFormat("%@", failure)->text(), "Error Domain=org.kavelin.KVErrorDomain Code=-1000 "
                                               "\"No authentication service is available.\"");
}

} // namespace

// Set before anything runs: the service choice is read once per process.
int main(int argc, char** argv) {
    setenv("TESSIVA_SERVICE", "NoNe", 1); // the words are read without regard to case
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
