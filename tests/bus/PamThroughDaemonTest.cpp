// tessivad hosting PAM, run under pam_wrapper with a service and password
// database of the test's own: the conformance suite, and callers of another
// user.
#include "DaemonBackend.h"
#include "PamWrapper.h"

#include <pwd.h>

namespace tessiva::test {
namespace {
namespace fs = std::filesystem;

constexpr char pamServiceName[] = "tessiva-bus-test";
constexpr uid_t otherUid = 65534;
constexpr char ownPassword[] = "own secret";
constexpr char otherPassword[] = "other secret";

std::string nameOf(uid_t uid) {
    const passwd* entry = getpwuid(uid);
    return entry != nullptr ? entry->pw_name : "";
}

// The PAM service's directory, written before the daemon starts.
class ServiceDirectory {
public:
    ServiceDirectory() {
        std::string pattern = (fs::temp_directory_path() / "tessiva-bus-pam-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
        const fs::path passdb = path_ / "passdb";
        writeFile(passdb, nameOf(geteuid()) + ":" + ownPassword + ":" + pamServiceName + "\n" +
                              nameOf(otherUid) + ":" + otherPassword + ":" + pamServiceName + "\n");
        const std::string module =
            std::string(TESSIVA_PAM_MATRIX_MODULE) + " passdb=" + passdb.string();
        writeFile(path_ / pamServiceName,
                  "auth required " + module + "\naccount required " + module + "\n");
    }
    ~ServiceDirectory() { fs::remove_all(path_); }
    // The daemon's environment: pam_wrapper preloaded, reading this directory.
    std::vector<std::string> environment() const {
        std::vector<std::string> variables;
        for (const auto& [name, value] : pamWrapperVariables(path_))
            variables.push_back(name + "=" + value);
        return variables;
    }

private:
    fs::path path_;
};

// The daemon hosting PAM for the user this test runs as; the service's
// directory, a base, is written before the daemon starts.
class DaemonPam final : private ServiceDirectory, public DaemonBackend {
public:
    DaemonPam()
        : DaemonBackend({"--service", "pam", "--pam-service", pamServiceName}, environment()) {}
    std::string rightPasscode() const override { return ownPassword; }
    std::string wrongPasscode() const override { return otherPassword; }
    std::string biometryRefusal() const override {
        return "No PAM service is configured for biometric authentication.";
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
    ASSERT_EQ(nameOf(otherUid).empty(), false) << "uid 65534 has no name";
    DaemonPam backend;
    backend.service();
    auto authenticateAs = [&](uid_t uid, const char* password) {
        const std::string id = std::to_string(uid);
        ChildProcess peer({TESSIVA_SETPRIV, "--reuid=" + id, "--regid=" + id, "--clear-groups",
                           TESSIVA_BUS_PEER, "evaluations", "1", password},
                          {"DBUS_SESSION_BUS_ADDRESS=" + backend.address()});
        return peer.readLine();
    };
    EXPECT_EQ(authenticateAs(otherUid, otherPassword), "1 done");
    EXPECT_EQ(authenticateAs(otherUid, ownPassword),
              "error -1: Authentication failed: too many wrong passcodes (3).");
    backend.finish();
}

} // namespace
} // namespace tessiva::test
