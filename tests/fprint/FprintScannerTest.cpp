// SPDX-License-Identifier: MIT
// The fprintd client against the real fprintd on libfprint's virtual device:
// each test starts a private bus posing as the system bus, a polkit that
// allows everything, and fprintd with prints of its own; the test enrols a
// finger and plays the reader through the virtual device's socket.
#include "services/fprint/FprintScanner.h"

#include "bus/PrivateBus.h"
#include "services/dbus/SdBus.h"
#include "support/Deadline.h"
#include "support/RecordingUIDelegate.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/kavelin/KVPAMService.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace tessiva::test {
namespace {
using namespace tessiva::detail;
using detail::bus::BusError;
using detail::bus::BusRef;
using detail::bus::MessageRef;

constexpr const char* fprintd = "net.reactivated.Fprint";
constexpr const char* deviceInterface = "net.reactivated.Fprint.Device";
constexpr const char* user = "tessiva-test";
constexpr const char* finger = "right-index-finger";
// What the virtual device enrols and then matches.
constexpr const char* print = "SCAN print-one";

// Short enough under /tmp for the virtual device's socket path.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        if (mkdtemp(path_.data()) == nullptr)
            throw std::runtime_error("cannot make " + path_);
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    const std::string& path() const noexcept { return path_; }

private:
    std::string path_ = "/tmp/tessiva-fprint-XXXXXX";
};

struct Socket {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ~Socket() {
        if (fd >= 0)
            close(fd);
    }
};

// A private bus that this process and its children take for the system bus.
class SystemBus {
public:
    SystemBus() { setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.address().c_str(), 1); }
    ~SystemBus() { unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }
    SystemBus(const SystemBus&) = delete;
    SystemBus& operator=(const SystemBus&) = delete;
    const std::string& address() const noexcept { return bus_.address(); }

private:
    PrivateBus bus_;
};

// Another client of fprintd: the test's own connection.
class Peer {
public:
    struct Answer {
        MessageRef reply;
        std::string error; // empty on success
    };

    explicit Peer(const std::string& address) {
        if (sd_bus_new(bus_.put()) < 0 || sd_bus_set_address(bus_.get(), address.c_str()) < 0 ||
            sd_bus_set_bus_client(bus_.get(), 1) < 0 || sd_bus_start(bus_.get()) < 0)
            throw std::runtime_error("cannot connect to " + address);
    }
    Answer call(const std::string& path, const char* interface, const char* member,
                const char* argument = nullptr) {
        Answer answer;
        BusError error;
        const int result =
            argument ? sd_bus_call_method(bus_.get(), fprintd, path.c_str(), interface, member,
                                          error.get(), answer.reply.put(), "s", argument)
                     : sd_bus_call_method(bus_.get(), fprintd, path.c_str(), interface, member,
                                          error.get(), answer.reply.put(), nullptr);
        if (result < 0)
            answer.error = error.isSet() ? error.name() : "failed";
        return answer;
    }
    Answer device(const std::string& path, const char* member, const char* argument = nullptr) {
        return call(path, deviceInterface, member, argument);
    }
    // fprintd's property names are not member names, which sd-bus's
    // property helpers insist on.
    bool fingerNeeded(const std::string& path) {
        BusError error;
        MessageRef reply;
        int needed = 0;
        return sd_bus_call_method(bus_.get(), fprintd, path.c_str(),
                                  "org.freedesktop.DBus.Properties", "Get", error.get(),
                                  reply.put(), "ss", deviceInterface, "finger-needed") >= 0 &&
               sd_bus_message_read(reply.get(), "v", "b", &needed) >= 0 && needed;
    }
    // A status as fprintd would send it, from this connection instead.
    void forgeStatus(const std::string& path, const char* status, bool done) {
        if (sd_bus_emit_signal(bus_.get(), path.c_str(), deviceInterface, "VerifyStatus", "sb",
                               status, int(done)) < 0 ||
            sd_bus_flush(bus_.get()) < 0)
            throw std::runtime_error("cannot send a forged status");
    }

private:
    BusRef bus_;
};

// The device's methods as the bus carries them to fprintd, seen by a
// monitor: a device the client forgot to release would still be released
// when its connection closes, so only the calls show that it does.
class CallMonitor {
public:
    explicit CallMonitor(const std::string& address) {
        BusError error;
        if (sd_bus_new(bus_.put()) < 0 || sd_bus_set_address(bus_.get(), address.c_str()) < 0 ||
            sd_bus_set_monitor(bus_.get(), 1) < 0 || sd_bus_set_bus_client(bus_.get(), 1) < 0 ||
            sd_bus_start(bus_.get()) < 0 ||
            sd_bus_call_method(
                bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                "org.freedesktop.DBus.Monitoring", "BecomeMonitor", error.get(), nullptr, "asu", 1,
                "type='method_call',interface='net.reactivated.Fprint.Device'", 0u) < 0)
            throw std::runtime_error("cannot monitor the bus");
    }
    // The methods called, in order, up to the first call of `last`.
    std::vector<std::string> callsUntil(const std::string& last) {
        std::vector<std::string> calls;
        for (const auto deadline = deadlineFromNow();;) {
            MessageRef message;
            const int processed = sd_bus_process(bus_.get(), message.put());
            if (processed < 0)
                throw std::runtime_error("the monitor's connection failed");
            if (message && sd_bus_message_is_method_call(message.get(), nullptr, nullptr) > 0) {
                calls.emplace_back(sd_bus_message_get_member(message.get()));
                if (calls.back() == last)
                    return calls;
            }
            if (processed > 0)
                continue;
            const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                throw WaitTimedOut("a call of " + last);
            sd_bus_wait(bus_.get(), std::uint64_t(left.count()));
        }
    }

private:
    BusRef bus_;
};

const std::vector<std::string> verifyCalls{"Claim", "VerifyStart", "VerifyStop", "Release"};

std::vector<ScanStatus> statusesOf(const std::vector<ScanReport>& reports) {
    std::vector<ScanStatus> statuses;
    for (const auto& report : reports)
        statuses.push_back(report.status);
    return statuses;
}

class FprintdTest : public ::testing::Test {
protected:
    // With a polkit that allows every action, or refuses every one.
    explicit FprintdTest(bool polkitAllows = true)
        : polkit_(polkitAllows ? std::vector<std::string>{TESSIVA_POLKIT_STAND_IN}
                               : std::vector<std::string>{TESSIVA_POLKIT_STAND_IN, "deny"}) {
        if (polkit_.readLine() != "ready")
            throw std::runtime_error("the polkit stand-in did not start");
        const std::string state = directory_.path() + "/state";
        std::filesystem::create_directory(state);
        fprintd_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{TESSIVA_FPRINTD, "-t"},
            std::vector<std::string>{
                "STATE_DIRECTORY=" + state, "RUNTIME_DIRECTORY=" + directory_.path(),
                "FP_VIRTUAL_DEVICE=" + reader_, "FP_DRIVERS_WHITELIST=virtual_device",
                "FP_DRIVERS_ALLOWLIST=virtual_device"},
            false, directory_.path() + "/fprintd.log");
        waitUntil(
            [&] { return peer_.call(manager, managerInterface, "GetDefaultDevice").error.empty(); },
            "fprintd's device");
        const auto answer = peer_.call(manager, managerInterface, "GetDefaultDevice");
        const char* path = nullptr;
        if (sd_bus_message_read(answer.reply.get(), "o", &path) < 0)
            throw std::runtime_error("GetDefaultDevice: unexpected reply");
        device_ = path;
    }

    // Enrols the test's print as the user's finger, through fprintd.
    void enrol() {
        ASSERT_EQ(peer_.device(device_, "Claim", user).error, "");
        ASSERT_EQ(peer_.device(device_, "EnrollStart", finger).error, "");
        for (int stage = 0; stage < 5; ++stage)
            play(print);
        waitUntil([&] { return peer_.device(device_, "ListEnrolledFingers", user).error.empty(); },
                  "the enrolled finger");
        ASSERT_EQ(peer_.device(device_, "EnrollStop").error, "");
        ASSERT_EQ(peer_.device(device_, "Release").error, "");
    }

    // One command to the virtual device: one connection, read to its end.
    void play(const std::string& command) {
        const Socket connection;
        const int fd = connection.fd;
        ASSERT_GE(fd, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        reader_.copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
            << std::strerror(errno);
        ASSERT_EQ(write(fd, command.data(), command.size()), ssize_t(command.size()));
        const auto deadline = deadlineFromNow();
        for (char rest[64];;) {
            pollfd readable{fd, POLLIN, 0};
            ASSERT_EQ(poll(&readable, 1, 1000), 1);
            if (read(fd, rest, sizeof rest) <= 0)
                break;
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the device kept talking";
        }
    }

    // A scan by the client under test on a thread of its own; its statuses
    // are read once the outcome is. A test that fails midway stops it, so
    // that the thread ends; a scan that ignores the stop fails the test and
    // is ended by taking fprintd away.
    class Scanning {
    public:
        Scanning(RidgeScanner& scanner, const std::string& who, std::vector<ScanReport>& reports,
                 std::function<void()> endFprintd)
            : endFprintd_(std::move(endFprintd)),
              outcome_(std::async(std::launch::async, [&scanner, who, &reports, this] {
                  return scanner.scan(
                      who, [&reports](const ScanReport& report) { reports.push_back(report); },
                      stop_);
              })) {}
        ~Scanning() {
            stop_.request();
            if (outcome_.valid() &&
                outcome_.wait_until(deadlineFromNow()) != std::future_status::ready) {
                ADD_FAILURE() << "the scan went on after it was asked to stop";
                endFprintd_();
            }
        }
        Scanning(const Scanning&) = delete;
        Scanning& operator=(const Scanning&) = delete;
        ScanStop& stop() noexcept { return stop_; }
        ScanOutcome outcome() { return await(std::move(outcome_), "the scan's outcome"); }

    private:
        std::function<void()> endFprintd_;
        ScanStop stop_;
        std::future<ScanOutcome> outcome_;
    };

    std::unique_ptr<Scanning> startScan(const std::string& who) {
        reports_.clear();
        return std::make_unique<Scanning>(*scanner_, who, reports_,
                                          [this] { fprintd_->signal(SIGKILL); });
    }
    ScanOutcome scanWith(const std::vector<std::string>& commands) {
        const auto scanning = startScan(user);
        awaitVerifying();
        for (const auto& command : commands)
            play(command);
        return scanning->outcome();
    }
    void awaitVerifying() {
        waitUntil([&] { return peer_.fingerNeeded(device_); }, "the device to wait for a finger");
    }
    // A VR caller's evaluation of the policy (its literal name) through the
    // installed backend, allowing one ridge scan that does not match; the
    // set-up's reply and then the evaluation's go to `replies`.
    static void startVREvaluation(std::string_view policy,
                                  const ObRef<RecordingUIDelegate>& delegate,
                                  const ObRef<VRCredentialReference>& reference,
                                  SharedList<ObRef<ObError>>& replies) {
        auto record = [&replies](ObRef<ObError> error) { replies.add(std::move(error)); };
        reference->setupWithCredentialHandle_uiDelegate_reply(nullptr, delegate, record);
        ASSERT_EQ(replies.waitFor(0, "set-up's reply"), nullptr);
        reference->evaluatePolicy_hints_reply(
            ObString::make(policy),
            ObDictionary::make({{VRHintMaxRidgescanFailures, ObNumber::make(1)}}), record);
    }
    // Whether the client let the device go: another connection can take it.
    void expectReleased() {
        EXPECT_EQ(peer_.device(device_, "Claim", user).error, "");
        EXPECT_EQ(peer_.device(device_, "Release").error, "");
    }

    static constexpr const char* manager = "/net/reactivated/Fprint/Manager";
    static constexpr const char* managerInterface = "net.reactivated.Fprint.Manager";

    TemporaryDirectory directory_;
    std::string reader_ = directory_.path() + "/reader";
    SystemBus bus_;
    ChildProcess polkit_;
    std::unique_ptr<ChildProcess> fprintd_;
    Peer peer_{bus_.address()};
    std::string device_;
    ObRef<RidgeScanner> scanner_ = makeFprintScanner();
    std::vector<ScanReport> reports_;
};

TEST_F(FprintdTest, ReportsEveryStatusInOrderAndReleasesTheDevice) {
    enrol();

    CallMonitor monitor(bus_.address());
    ScanOutcome outcome = scanWith({print});
    EXPECT_EQ(monitor.callsUntil("Release"), verifyCalls);
    EXPECT_EQ(outcome.problem, ReaderProblem::none) << outcome.message;
    EXPECT_FALSE(outcome.stopped);
    ASSERT_EQ(statusesOf(reports_), std::vector{ScanStatus::match});
    EXPECT_TRUE(reports_[0].done);
    EXPECT_EQ(reports_[0].finger, finger);
    EXPECT_EQ(outcome.last.finger, finger);
    expectReleased();

    outcome = scanWith({"SCAN another-print"});
    EXPECT_EQ(outcome.problem, ReaderProblem::none) << outcome.message;
    ASSERT_EQ(statusesOf(reports_), std::vector{ScanStatus::noMatch});
    EXPECT_TRUE(outcome.last.done);
    EXPECT_EQ(outcome.last.finger, "");

    outcome = scanWith({"RETRY 0", "RETRY 1", "RETRY 2", "RETRY 3", print});
    EXPECT_EQ(statusesOf(reports_), (std::vector{ScanStatus::retryScan, ScanStatus::swipeTooShort,
                                                 ScanStatus::fingerNotCentered,
                                                 ScanStatus::removeAndRetry, ScanStatus::match}));
    for (std::size_t i = 0; i + 1 < reports_.size(); ++i)
        EXPECT_FALSE(reports_[i].done) << i;
    EXPECT_EQ(outcome.last.status, ScanStatus::match);
    EXPECT_TRUE(outcome.last.done);
    expectReleased();
}

TEST_F(FprintdTest, TellsWhyAUserCannotScan) {
    ReaderState state = scanner_->state(user);
    EXPECT_EQ(state.problem, ReaderProblem::notEnrolled) << state.message;
    EXPECT_NE(state.message, "");

    enrol();
    state = scanner_->state(user);
    EXPECT_EQ(state.problem, ReaderProblem::none) << state.message;
    EXPECT_EQ(state.fingers, std::vector<std::string>{finger});

    ScanOutcome outcome = startScan("someone-else")->outcome();
    EXPECT_EQ(outcome.problem, ReaderProblem::notEnrolled) << outcome.message;
    EXPECT_TRUE(reports_.empty());
    expectReleased();

    ASSERT_EQ(peer_.device(device_, "Claim", user).error, "");
    outcome = startScan(user)->outcome();
    EXPECT_EQ(outcome.problem, ReaderProblem::busy) << outcome.message;
    EXPECT_NE(outcome.message, "");
    EXPECT_EQ(peer_.device(device_, "Release").error, "");
}

TEST_F(FprintdTest, IgnoresOtherPeersAndStopsWhenAsked) {
    enrol();

    Peer forger(bus_.address());
    auto scanning = startScan(user);
    awaitVerifying();
    forger.forgeStatus(device_, "verify-match", true);
    play("SCAN another-print");
    ScanOutcome outcome = scanning->outcome();
    EXPECT_EQ(outcome.last.status, ScanStatus::noMatch);
    EXPECT_EQ(statusesOf(reports_), std::vector{ScanStatus::noMatch});

    CallMonitor monitor(bus_.address());
    scanning = startScan(user);
    awaitVerifying();
    scanning->stop().request();
    outcome = scanning->outcome();
    EXPECT_TRUE(outcome.stopped);
    EXPECT_TRUE(reports_.empty());
    EXPECT_EQ(monitor.callsUntil("Release"), verifyCalls);
    expectReleased();
}

TEST_F(FprintdTest, NoticesTheReaderUnpluggedMidScan) {
    enrol();
    const ScanOutcome outcome = scanWith({"UNPLUG"});
    EXPECT_EQ(outcome.problem, ReaderProblem::unplugged) << outcome.message;
    EXPECT_FALSE(outcome.stopped);
}

// A VR caller asking for a fingerprint gets it from the system service:
// the ridge-scan event with fprintd's match, and the results that say so;
// a finger that does not match, once the caller allows one failure, fails.
TEST_F(FprintdTest, TheSystemServiceVerifiesAVRCallersFingerprint) {
    enrol();
    const KVScopedClientBackend installed(KVPAMService::make({"tessiva", user, ""}));
    for (const char* scan : {print, "SCAN someone-else"}) {
        const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
        const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
        SharedList<ObRef<ObError>> replies;
        ASSERT_NO_FATAL_FAILURE(startVREvaluation("DeviceOwnerAuthenticatedWithBiometrics",
                                                  delegate, reference, replies));
        awaitVerifying();
        play(scan);
        const ObRef<ObError> error = replies.waitFor(1, "the evaluation's reply");
        std::string statuses;
        for (const auto& event : delegate->events())
            if (event.params && event.params->objectForKey(VREventRidgeScanParamStatus))
                statuses += ObFormat("%@;", event.params->objectForKey(VREventRidgeScanParamStatus))
                                ->text();
        if (scan == print) {
            EXPECT_EQ(error, nullptr);
            EXPECT_EQ(statuses, "0;");
            EXPECT_EQ(ObFormat("%@", reference->resultForTag(VRResultTagUsedRidgescan))->text(),
                      "1");
            EXPECT_TRUE(ob_cast<ObData>(reference->resultForTag(VRResultTagRidgescanIdentity)));
        } else {
            ASSERT_NE(error, nullptr);
            EXPECT_EQ(statuses, "1;");
        }
        reference->invalidate();
        expectReleased();
    }
}

// A reader that goes while the evaluation waits for the user's consent is
// reported gone, and the consent still decides.
TEST_F(FprintdTest, TheSystemServiceReportsAReaderThatGoesMidEvaluation) {
    enrol();
    const KVScopedClientBackend installed(KVPAMService::make({"tessiva", user, ""}));
    const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    SharedList<ObRef<ObError>> replies;
    ASSERT_NO_FATAL_FAILURE(
        startVREvaluation("DeviceOwnerConsentRidgescanPreferred", delegate, reference, replies));
    std::size_t next = 0;
    // The next event of that name, and whether the reader is available in it.
    auto nextEvent = [&](ObString* name) {
        for (;; ++next)
            if (RecordingUIDelegate::Event event = delegate->waitForEvent(next);
                event.name->isEqual(name)) {
                ++next;
                return event;
            }
    };
    auto available = [](const RecordingUIDelegate::Event& event) {
        return std::string(
            ObFormat("%@", event.params->objectForKey(VREventParamAvailable))->text());
    };
    EXPECT_EQ(available(nextEvent(VREventRidgeScan)), "1");
    awaitVerifying();
    play("SCAN someone-else");
    const RecordingUIDelegate::Event consent = nextEvent(VREventConsent);

    ASSERT_EQ(peer_.device(device_, "Claim", user).error, "");
    play("UNPLUG");
    (void)peer_.device(device_, "Release");
    EXPECT_EQ(available(nextEvent(VREventRidgeScan)), "0");
    consent.reply(ObDictionary::make({{VREventConsentResponse, ObNumber::makeBool(true)}}),
                  nullptr);
    EXPECT_EQ(replies.waitFor(1, "the evaluation's reply"), nullptr);
    reference->invalidate();
}

class RefusingFprintdTest : public FprintdTest {
protected:
    RefusingFprintdTest() : FprintdTest(false) {}
};

TEST_F(RefusingFprintdTest, SaysFprintdRefused) {
    const ReaderState state = scanner_->state(user);
    EXPECT_EQ(state.problem, ReaderProblem::refused) << state.message;
    EXPECT_NE(state.message, "");
    EXPECT_EQ(startScan(user)->outcome().problem, ReaderProblem::refused);
}

TEST(FprintScanner, WithoutFprintdThereIsNoReader) {
    const ObRef<RidgeScanner> scanner = makeFprintScanner();
    ScanStop stop;
    const auto unexpected = [](const ScanReport&) { ADD_FAILURE() << "a status without fprintd"; };
    {
        const SystemBus bus;
        EXPECT_EQ(scanner->state(user).problem, ReaderProblem::noReader);
        EXPECT_EQ(scanner->scan(user, unexpected, stop).problem, ReaderProblem::noReader);
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tessiva-bus", 1);
    const ReaderState state = scanner->state(user);
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    EXPECT_EQ(state.problem, ReaderProblem::noReader);
    EXPECT_NE(state.message, "");
}
} // namespace
} // namespace tessiva::test

// Names in GoogleTest's messages rather than bytes.
namespace tessiva::detail {
void PrintTo(ScanStatus status, std::ostream* out) {
    *out << "ScanStatus(" << int(status) << ")";
}
void PrintTo(ReaderProblem problem, std::ostream* out) {
    *out << "ReaderProblem(" << int(problem) << ")";
}
} // namespace tessiva::detail
