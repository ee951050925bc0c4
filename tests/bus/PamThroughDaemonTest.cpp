// tessivad hosting PAM, run under pam_wrapper with a service and password
// database of the test's own: the conformance suite, and callers of another
// user.
#include "PamWrapper.h"
#include "PrivateBus.h"
#include "conformance/BackendConformance.h"
#include "tessiva/kavelin/KVBusService.h"

#include <mutex>
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

// The daemon on a private bus of its own, started on first use, hosting PAM
// for the user this test runs as.
class DaemonPam final : public Backend {
public:
    // Tests connect from several threads at once.
    ObRef<KVClientBackend> service() override {
        std::lock_guard lock(mutex_);
        if (!daemon_) {
            daemon_ = std::make_unique<DaemonProcess>(
                bus_.address(),
                std::vector<std::string>{"--service", "pam", "--pam-service", pamServiceName},
                directory_.environment());
            service_ = KVBusService::make(str(bus_.address()));
        }
        return service_;
    }
    std::string rightPasscode() const override { return ownPassword; }
    std::string wrongPasscode() const override { return otherPassword; }
    std::string biometryRefusal() const override {
        return "No PAM service is configured for biometric authentication.";
    }
    bool keepsIdentity() const override { return false; }
    // The daemon ends cleanly, its PAM services and their contexts with it
    // (under the sanitizers, a leak would fail its exit status).
    void finish() override {
        if (daemon_) {
            EXPECT_EQ(daemon_->stop(), 0) << "tessivad's exit status";
        }
    }
    const std::string& address() const { return bus_.address(); }

private:
    std::mutex mutex_;
    ServiceDirectory directory_;
    PrivateBus bus_;
    std::unique_ptr<DaemonProcess> daemon_;
    ObRef<KVClientBackend> service_;
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
                           TESSIVA_BUS_PEER, "authenticate", password},
                          {"DBUS_SESSION_BUS_ADDRESS=" + backend.address()});
        return peer.readLine();
    };
    EXPECT_EQ(authenticateAs(otherUid, otherPassword), success);
    EXPECT_EQ(authenticateAs(otherUid, ownPassword),
              "error -1: Authentication failed: too many wrong passcodes (3).");
    backend.finish();
}

} // namespace
} // namespace tessiva::test
