// SPDX-License-Identifier: MIT
// tessivad hosting PAM, run under pam_wrapper with the services and password
// databases of the PAM suites' main: the conformance suite, and callers of
// another user.
#include "DaemonBackend.h"
#include "PamTestEnvironment.h"

#include <pwd.h>

namespace tessiva::test {
namespace {

// The daemon hosting PAM for the user this test runs as, under the
// pam_wrapper set-up of the PAM suites' main, which the daemon inherits.
class DaemonPam final : public DaemonBackend {
public:
    DaemonPam() : DaemonBackend({"--service", "pam", "--pam-service", pamService}, {}) {}
    std::string rightPasscode() const override { return pamCallerPassword; }
    std::string wrongPasscode() const override { return pamOtherUidPassword; }
    std::string biometryRefusal() const override {
        return "no fingerprint reader: cannot reach the system bus: No such file or directory";
    }
};

INSTANTIATE_TEST_SUITE_P(Pam, BackendConformanceTest,
                         ::testing::Values(BackendMaker{
                             "ThroughDaemon", [] { return std::make_unique<DaemonPam>(); }}),
                         backendName);

// Each caller authenticates as the user the bus reports for it, never as the
// daemon's user.
TEST(PamThroughDaemon, AnotherUidAuthenticatesAsItselfOnly) {
    if (geteuid() != 0)
        GTEST_SKIP() << "another user needs root to switch to";
    ASSERT_NE(getpwuid(pamOtherUid), nullptr) << "uid " << pamOtherUid << " has no name";
    DaemonPam backend;
    backend.service();
    auto authenticateAs = [&](uid_t uid, const char* password) {
        const std::string id = std::to_string(uid);
        ChildProcess peer({TESSIVA_SETPRIV, "--reuid=" + id, "--regid=" + id, "--clear-groups",
                           TESSIVA_BUS_PEER, "evaluations", "1", password},
                          {"DBUS_SESSION_BUS_ADDRESS=" + backend.address()});
        return peer.readLine();
    };
    EXPECT_EQ(authenticateAs(pamOtherUid, pamOtherUidPassword), "1 done");
    EXPECT_EQ(authenticateAs(pamOtherUid, pamCallerPassword),
              "error -1: Authentication failed: too many wrong passcodes (3).");
    backend.finish();
}

} // namespace
} // namespace tessiva::test
