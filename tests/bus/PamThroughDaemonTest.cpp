// tessivad hosting PAM, run under pam_wrapper with a service and password
// database of the test's own: each caller authenticates as the user the bus
// reports for it, never as the daemon's user.
#include "Outcome.h"
#include "PamWrapper.h"
#include "PrivateBus.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/object/Ob.h"

#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <pwd.h>

namespace tessiva::test {
namespace {
namespace fs = std::filesystem;

constexpr char service[] = "tessiva-bus-test";
constexpr uid_t otherUid = 65534;
constexpr char ownPassword[] = "own secret";
constexpr char otherPassword[] = "other secret";

std::string nameOf(uid_t uid) {
    const passwd* entry = getpwuid(uid);
    return entry != nullptr ? entry->pw_name : "";
}

// Answers every active passcode event with its password, and keeps the
// attempts left that each one announced.
class PasswordDelegate final : public KVUIDelegate {
public:
    explicit PasswordDelegate(std::string password) : password_(std::move(password)) {}
    void event_params_reply(ObInteger, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override {
        auto active = ob_cast<ObNumber>(params->objectForKey(ObNumber::make(0)));
        if (!active || !active->boolValue())
            return;
        if (auto left = ob_cast<ObNumber>(params->objectForKey(ObNumber::make(5)))) {
            std::lock_guard lock(mutex_);
            attemptsLeft_.push_back(left->integerValue());
        }
        reply(ObDictionary::make({{ObNumber::make(0), ObString::make(password_)}}), nullptr);
    }
    std::vector<ObInteger> attemptsLeft() {
        std::lock_guard lock(mutex_);
        return attemptsLeft_;
    }

private:
    const std::string password_;
    std::mutex mutex_;
    std::vector<ObInteger> attemptsLeft_;
};

// The PAM service's directory, written before the daemon starts.
class ServiceDirectory {
public:
    ServiceDirectory() {
        std::string pattern = (fs::temp_directory_path() / "tessiva-bus-pam-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
        const fs::path passdb = path_ / "passdb";
        writeFile(passdb, nameOf(geteuid()) + ":" + ownPassword + ":" + service + "\n" +
                              nameOf(otherUid) + ":" + otherPassword + ":" + service + "\n");
        const std::string module =
            std::string(TESSIVA_PAM_MATRIX_MODULE) + " passdb=" + passdb.string();
        writeFile(path_ / service,
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

class PamThroughDaemonTest : public ::testing::Test {
protected:
    // The daemon ends cleanly, its PAM services and their contexts with it
    // (under the sanitizers, a leak would fail its exit status).
    void TearDown() override { EXPECT_EQ(daemon.stop(), 0); }

    ObRef<KVClient> connect(const ObRef<ObData>& handle, const ObRef<KVUIDelegate>& delegate) {
        ObRef<KVClient> client;
        bus->clientWithExternalizedContext_uiDelegate_reply(
            handle, delegate, [&](ObRef<KVClient> made, ObRef<ObError> error) {
                client = made;
                refusal = describe(nullptr, error);
            });
        return client;
    }
    // What one evaluation of policy 1000 with that delegate replies.
    std::string evaluate(const ObRef<KVUIDelegate>& delegate, ObRef<ObDictionary>* result) {
        ObRef<KVClient> client = connect(nullptr, delegate);
        if (!client)
            return refusal;
        std::promise<std::string> outcome;
        client->evaluatePolicy_options_reply(1000, nullptr, [&](auto answer, auto error) {
            if (result != nullptr)
                *result = answer;
            outcome.set_value(describe(answer, error));
        });
        std::string text = outcome.get_future().get();
        client->invalidate();
        return text;
    }
    // bus_peer authenticating as that uid; its one line.
    std::string authenticateAs(uid_t uid, const char* password) {
        const std::string id = std::to_string(uid);
        ChildProcess peer({TESSIVA_SETPRIV, "--reuid=" + id, "--regid=" + id, "--clear-groups",
                           TESSIVA_BUS_PEER, "authenticate", password},
                          {"DBUS_SESSION_BUS_ADDRESS=" + privateBus.address()});
        return peer.readLine();
    }

    ServiceDirectory directory;
    PrivateBus privateBus;
    DaemonProcess daemon{privateBus.address(),
                         {"--service", "pam", "--pam-service", service},
                         directory.environment()};
    ObRef<KVBusService> bus = KVBusService::make(ObString::make(privateBus.address()));
    std::string refusal;
    const std::string success = "{1 = 0; 3 = 1; 4 = 0; 5 = 0}";
    const std::string tooManyWrong =
        "error -1: Authentication failed: too many wrong passcodes (3).";
};

TEST_F(PamThroughDaemonTest, TheCallerAuthenticatesAsItsOwnUser) {
    auto right = ObMake<PasswordDelegate>(ownPassword);
    ObRef<ObDictionary> result;
    EXPECT_EQ(evaluate(right, &result), success);
    ASSERT_TRUE(result);
    auto usedPasscode = ob_cast<ObNumber>(result->objectForKey(ObNumber::make(3)));
    ASSERT_TRUE(usedPasscode);
    EXPECT_TRUE(usedPasscode->boolValue());
    EXPECT_EQ(right->attemptsLeft(), (std::vector<ObInteger>{3}));

    // The user's service keeps its contexts: a handle restores one.
    ObRef<KVClient> made = connect(nullptr, nullptr);
    ASSERT_TRUE(made) << refusal;
    EXPECT_TRUE(connect(made->externalizedContext(), nullptr)) << refusal;

    // Another user's password is wrong for this one: each failure asks again
    // with one attempt fewer, then the evaluation fails.
    auto wrong = ObMake<PasswordDelegate>(otherPassword);
    EXPECT_EQ(evaluate(wrong, nullptr), tooManyWrong);
    EXPECT_EQ(wrong->attemptsLeft(), (std::vector<ObInteger>{3, 2, 1}));
}

TEST_F(PamThroughDaemonTest, AnotherUidAuthenticatesAsItselfOnly) {
    if (geteuid() != 0)
        GTEST_SKIP() << "another user needs root to switch to";
    ASSERT_EQ(nameOf(otherUid).empty(), false) << "uid 65534 has no name";
    EXPECT_EQ(authenticateAs(otherUid, otherPassword), success);
    EXPECT_EQ(authenticateAs(otherUid, ownPassword), tooManyWrong);
}

} // namespace
} // namespace tessiva::test
