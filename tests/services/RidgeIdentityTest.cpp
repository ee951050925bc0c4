// SPDX-License-Identifier: MIT
// The keyed hash behind ridge-scan identities, against the published test
// vectors, and the machine's key as a daemon keeps it.
#include "services/core/RidgeIdentity.h"

#include "services/core/Hmac.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace tessiva::test {
namespace {
using detail::hmacSha256;

std::string hex(const detail::Digest256& digest) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::uint8_t byte : digest) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0f];
    }
    return text;
}

TEST(RidgeIdentity, HmacSha256MatchesTheTestVectorsOfRfc4231) {
    EXPECT_EQ(hex(hmacSha256(std::string(20, '\x0b'), "Hi There")),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(hex(hmacSha256("Jefe", "what do ya want for nothing?")),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    // A key longer than a block is hashed first; a message over several blocks.
    const std::string longKey(131, '\xaa');
    EXPECT_EQ(hex(hmacSha256(longKey, "Test Using Larger Than Block-Size Key - Hash Key First")),
              "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
    EXPECT_EQ(hex(hmacSha256(longKey, "This is a test using a larger than block-size key and a "
                                      "larger than block-size data. The key needs to be hashed "
                                      "before being used by the HMAC algorithm.")),
              "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2");
}

TEST(RidgeIdentity, TheMachineKeyIsMadeOwnerOnlyOnceAndIdentitiesKeepApart) {
    const std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("tessiva-key-" + std::to_string(getpid()));
    std::filesystem::remove_all(directory);
    setenv("STATE_DIRECTORY", directory.c_str(), 1);
    const std::string key = detail::machineIdentityKey();
    unsetenv("STATE_DIRECTORY");
    const std::filesystem::path file = directory / "ridgescan-identity.key";
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    std::ifstream in(file, std::ios::binary);
    const std::string stored((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(stored.size(), 32u);
    EXPECT_EQ(stored, key);
    EXPECT_EQ(detail::machineIdentityKey(), key);
    std::filesystem::remove_all(directory);

    auto identity = [&](const char* user, const char* finger) {
        ObRef<ObData> data = detail::ridgescanIdentity(key, user, finger);
        return std::string(reinterpret_cast<const char*>(data->bytes()), data->length());
    };
    EXPECT_EQ(identity("ann", "right-index"), identity("ann", "right-index"));
    EXPECT_NE(identity("ann", "right-index"), identity("bob", "right-index"));
    EXPECT_NE(identity("ab", "c"), identity("a", "bc"));
}
} // namespace
} // namespace tessiva::test
