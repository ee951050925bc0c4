// SPDX-License-Identifier: MIT
// A build without PAM support keeps the PAM service's API, which refuses.
#include "credential/ReferenceTesting.h"
#include "tessiva/kavelin/KVPAMService.h"

namespace tessiva::test {
namespace {
TEST(PamService, WithoutPamSupportSetUpFailsAsServiceUnavailable) {
    EXPECT_FALSE(KVPAMService::isSupported());
    const KVScopedClientBackend installed(KVPAMService::make({}));
    ObRef<ObError> error;
    EXPECT_FALSE(VRCredentialReference::make()->setupWithCredentialHandle_error(nullptr, &error));
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code(), -6);
    EXPECT_EQ(printed(error->localizedDescription()), "PAM support is not built into Tessiva.");
}
} // namespace
} // namespace tessiva::test
