// SPDX-License-Identifier: MIT
// The daemon among hostile peers: tessivad as root on a private bus with a
// system bus's policy and the daemon's own, a victim and an attacker under
// two other users. Each test is one attack, and asserts what the victim, the
// attacker or the daemon's process shows of it.
#include "PrivateBus.h"
#include "RawConnection.h"
#ifdef TESSIVA_PAM_WRAPPER_LIBRARY
#include "pam/PamWrapper.h"
#endif
#include "services/dbus/ValueCodec.h"
#include "tessiva/object/Ob.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pwd.h>
#include <regex>
#include <sstream>
#include <sys/stat.h>

namespace tessiva::test {
namespace {
using detail::bus::BusError;
using detail::bus::BusRef;
using detail::bus::MessageRef;

// What the daemon answers a call beyond a user's limits.
constexpr char limitsExceeded[] = "org.freedesktop.DBus.Error.LimitsExceeded";

// A directory of the test's own that every user may enter, for the bus's
// socket and the daemon's standard error.
class SharedDirectory {
public:
    SharedDirectory() {
        if (mkdtemp(path_.data()) == nullptr || chmod(path_.c_str(), 0755) != 0)
            throw std::runtime_error("cannot make " + path_);
    }
    ~SharedDirectory() { std::filesystem::remove_all(path_); }
    SharedDirectory(const SharedDirectory&) = delete;
    SharedDirectory& operator=(const SharedDirectory&) = delete;
    const std::string& path() const noexcept { return path_; }

private:
    std::string path_ = "/tmp/tessiva-hostile-XXXXXX";
};

// The daemon's Event signals as a monitor of the bus sees them, which root
// alone may become: what an attacker could copy.
class EventMonitor {
public:
    struct Event {
        std::string destination, client; // the client's path
        std::uint64_t serial = 0;
        ObInteger active = -1, left = -1;
    };

    explicit EventMonitor(const std::string& address) {
        BusError error;
        if (sd_bus_new(bus_.put()) < 0 || sd_bus_set_address(bus_.get(), address.c_str()) < 0 ||
            sd_bus_set_monitor(bus_.get(), 1) < 0 || sd_bus_set_bus_client(bus_.get(), 1) < 0 ||
            sd_bus_start(bus_.get()) < 0 ||
            sd_bus_call_method(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus.Monitoring", "BecomeMonitor", error.get(),
                               nullptr, "asu", 1,
                               "type='signal',interface='org.tessiva.Authentication2',"
                               "member='Event'",
                               0u) < 0)
            throw std::runtime_error("cannot monitor the bus");
    }

    Event next() {
        const auto deadline = deadlineFromNow();
        for (;;) {
            MessageRef message;
            const int processed = sd_bus_process(bus_.get(), message.put());
            if (processed < 0)
                throw std::runtime_error("the monitor's connection failed");
            if (message &&
                sd_bus_message_is_signal(message.get(), detail::bus::interfaceName, "Event"))
                return read(message.get());
            if (processed > 0)
                continue;
            const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                throw WaitTimedOut("an Event signal");
            sd_bus_wait(bus_.get(), std::uint64_t(left.count()));
        }
    }

private:
    static Event read(sd_bus_message* message) {
        Event event;
        event.destination = sd_bus_message_get_destination(message);
        std::int64_t number = 0;
        ObRef<ObObject> params;
        event.client = sd_bus_message_get_path(message);
        sd_bus_message_read(message, "tx", &event.serial, &number);
        detail::bus::readValue(message, params);
        auto parameter = [&](ObInteger key) {
            auto dictionary = ob_cast<ObDictionary>(params);
            auto value = dictionary
                             ? ob_cast<ObNumber>(dictionary->objectForKey(ObNumber::make(key)))
                             : nullptr;
            return value ? value->integerValue() : -1;
        };
        event.active = parameter(0);
        event.left = parameter(5);
        return event;
    }

    BusRef bus_;
};

class HostileBusTest : public ::testing::Test {
protected:
    // Two users of every Debian system: the bus admits only users with a name.
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "the victim's and the attacker's users need root to switch to";
        for (auto [name, user] : {std::pair{"nobody", &victimUser}, {"games", &attackerUser}}) {
            const passwd* entry = getpwnam(name); // overwritten by the next call
            if (entry == nullptr)
                GTEST_SKIP() << "no user " << name << " on this system";
            *user = entry->pw_uid;
        }
        ASSERT_NE(victimUser, attackerUser);
    }
    void TearDown() override {
        if (daemon) {
            EXPECT_EQ(stopDaemon(), 0) << "tessivad's exit status; it said: " << daemonErrors();
        }
    }

    // tessivad serving the bus with the simulated service, as root, its
    // standard error in a file; ready once started.
    void startDaemon(const std::vector<std::string>& options) {
        std::vector<std::string> argv = {TESSIVA_DAEMON, "--address", bus.address(), "--service",
                                         "simulated"};
        argv.insert(argv.end(), options.begin(), options.end());
        daemon =
            std::make_unique<ChildProcess>(argv, std::vector<std::string>{}, false, errorsFile());
        if (daemon->readLine() != "tessivad: ready")
            throw std::runtime_error("tessivad did not start: " + daemonErrors());
    }
    int stopDaemon() {
        daemon->signal(SIGTERM);
        const int status = daemon->wait();
        daemon.reset();
        return status;
    }
    std::string errorsFile() const { return directory.path() + "/tessivad.err"; }
    std::string daemonErrors() const {
        std::ostringstream text;
        text << std::ifstream(errorsFile()).rdbuf();
        return text.str();
    }
    // A field of the daemon's /proc status, as a number (VmRSS in kB).
    long daemonStatus(const std::string& field) const {
        std::ifstream status("/proc/" + std::to_string(daemon->pid()) + "/status");
        for (std::string line; std::getline(status, line);)
            if (line.starts_with(field + ":"))
                return std::stol(line.substr(field.size() + 1));
        return -1;
    }

    // A program as the user, reaching the bus as its system bus.
    ChildProcess as(uid_t user, const char* program, const std::vector<std::string>& arguments,
                    bool piped = false) {
        const std::string id = std::to_string(user);
        std::vector<std::string> argv = {TESSIVA_SETPRIV, "--reuid=" + id, "--regid=" + id,
                                         "--clear-groups", program};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return ChildProcess(
            argv, {"TESSIVA_BUS=system", "DBUS_SYSTEM_BUS_ADDRESS=" + bus.address()}, piped);
    }
    // The line at which a peer's run ended ("N done", "outcome ..."), with the
    // lines before it.
    static std::string lastLine(ChildProcess& peer, const std::string& ending,
                                std::vector<std::string>* before = nullptr) {
        for (std::string line = peer.readLine();; line = peer.readLine()) {
            if (line.find(ending) != std::string::npos || line.empty())
                return line;
            if (before != nullptr)
                before->push_back(line);
        }
    }

    uid_t victimUser = 0, attackerUser = 0;
    SharedDirectory directory;
    PrivateBus bus{"unix:dir=" + directory.path(), TESSIVA_SYSTEM_LIKE_BUS_CONFIG};
    std::unique_ptr<ChildProcess> daemon;
    RawConnection root{bus.address()};
};

// On a bus posing as the machine's system bus the daemon hosts PAM (here
// through pam_wrapper, with a service the test writes in which the victim's
// password is another), and the
// simulated service's passcode lets nobody in. Asked for the simulated
// service, the daemon refuses to start.
TEST_F(HostileBusTest, TheSimulatedPasscodeLetsNobodyInOnTheSystemBus) {
    const std::vector<std::string> posing = {"DBUS_SYSTEM_BUS_ADDRESS=" + bus.address()};
#ifdef TESSIVA_PAM_WRAPPER_LIBRARY
    const std::string services = directory.path() + "/pam.d";
    std::filesystem::create_directory(services);
    std::ofstream(services + "/passdb") << "nobody:another-secret:tessiva\n";
    const std::string matrix =
        std::string(TESSIVA_PAM_MATRIX_MODULE) + " passdb=" + services + "/passdb\n";
    std::ofstream(services + "/tessiva")
        << "auth required " + matrix + "account required " + matrix;
    std::vector<std::string> environment = posing;
    for (const auto& [name, value] : pamWrapperVariables(services))
        environment.push_back(name + "=" + value);
    {
        ChildProcess hosting({TESSIVA_DAEMON, "--address", bus.address(), "--fail-delay-ms", "0"},
                             environment);
        ASSERT_EQ(hosting.readLine(), "tessivad: ready");
        ChildProcess victim = as(victimUser, TESSIVA_BUS_PEER, {"prompted"}, true);
        EXPECT_EQ(victim.readLine(), "event 2 active 1 left 3");
        victim.write("1234\n");
        // The next prompt or the outcome, whichever comes first.
        std::string verdict = victim.readLine();
        while (!verdict.empty() && !verdict.starts_with("outcome") &&
               !verdict.starts_with("event 2 active 1"))
            verdict = victim.readLine();
        EXPECT_EQ(verdict, "event 2 active 1 left 2");
    }
#endif
    ChildProcess refused({TESSIVA_DAEMON, "--address", bus.address(), "--service", "simulated"},
                         posing);
    const int status = refused.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << "wait status " << status;
}

// The bus alone tells who has left: a NameOwnerChanged from another peer,
// sent to the daemon by either of its names, ends nothing.
TEST_F(HostileBusTest, AForgedPeerLeftSignalEndsNoEvaluation) {
    startDaemon({});
    EventMonitor monitor(bus.address());
    ChildProcess victim = as(victimUser, TESSIVA_BUS_PEER, {"prompted"}, true);
    const EventMonitor::Event prompt = monitor.next();
    EXPECT_EQ(victim.readLine(), "event 2 active 1 left 3");
    ChildProcess attacker =
        as(attackerUser, TESSIVA_BUS_ATTACKER,
           {"peer-left", prompt.destination, root.ownerOf(detail::bus::busName)});
    ASSERT_EQ(attacker.readLine(), "sent");
    victim.write("1234\n");
    EXPECT_EQ(lastLine(victim, "outcome"), "outcome success");
}

// Events come from the daemon alone: a copy of the victim's prompt that the
// attacker sends to the victim, as it is and for the next serial, reaches
// no delegate.
TEST_F(HostileBusTest, AVictimsDelegateSeesTheDaemonsEventsOnly) {
    startDaemon({});
    EventMonitor monitor(bus.address());
    ChildProcess victim = as(victimUser, TESSIVA_BUS_PEER, {"prompted"}, true);
    const EventMonitor::Event prompt = monitor.next();
    ChildProcess attacker =
        as(attackerUser, TESSIVA_BUS_ATTACKER,
           {"event", prompt.destination, prompt.client, std::to_string(prompt.serial),
            std::to_string(prompt.active), std::to_string(prompt.left)});
    ASSERT_EQ(attacker.readLine(), "sent");
    victim.write("1234\n");
    std::vector<std::string> lines;
    EXPECT_EQ(lastLine(victim, "outcome", &lines), "outcome success");
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("event"); });
    EXPECT_EQ(lines, (std::vector<std::string>{"event 2 active 1 left 3", "event 2 active 0"}));
}

// An attacker holding all the contexts, evaluations and pending calls it
// can gets refusals beyond its limits, and the daemon's threads and memory
// stay bounded while the victim is served; once the attacker has gone (its
// contexts with it, as they outlive their clients by no idle time), its
// user is served again.
TEST_F(HostileBusTest, AFloodOfEvaluationsAndCallsStaysWithinTheLimits) {
    const long threads = 4, mostThreads = threads + 6, mostKilobytes = 200 * 1024;
    // One evaluation of a user at a time (--max-evaluations 1): a second one
    // admitted would raise the event the attacker counts as waiting.
    startDaemon({"--threads", std::to_string(threads), "--max-contexts", "16", "--max-evaluations",
                 "1", "--max-pending", "4", "--idle-seconds", "0"});
    ChildProcess attacker = as(attackerUser, TESSIVA_BUS_ATTACKER, {"exhaust", "32", "32"});
    std::vector<std::string> report;
    ASSERT_EQ(lastLine(attacker, "ready", &report), "ready");
    std::size_t refusals = 0;
    for (const std::string& line : report) {
        SCOPED_TRACE(line);
        if (line.starts_with("waiting ")) {
            EXPECT_LE(std::stoi(line.substr(8)), 1);
        }
        if (line.starts_with("refused ")) {
            ++refusals;
            EXPECT_EQ(line.substr(8, line.rfind(' ') - 8), limitsExceeded);
        }
    }
    EXPECT_GT(refusals, 0u) << "the attacker went beyond every limit";
    const long threadsSeen = daemonStatus("Threads"), kilobytesSeen = daemonStatus("VmRSS");
    RecordProperty("threads", int(threadsSeen));
    RecordProperty("resident_kib", int(kilobytesSeen));
    EXPECT_LE(threadsSeen, mostThreads);
    EXPECT_LT(kilobytesSeen, mostKilobytes);

    ChildProcess victim = as(victimUser, TESSIVA_BUS_PEER, {"evaluations", "1", "1234"});
    EXPECT_EQ(lastLine(victim, " done"), "1 done");
    EXPECT_LE(daemonStatus("Threads"), mostThreads);

    attacker.signal(SIGKILL);
    attacker.wait();
    long seen = 0;
    try {
        waitUntil([&] { return (seen = daemonStatus("Threads")) <= mostThreads; },
                  "the daemon's threads to fall once the attacker has gone");
    } catch (const WaitTimedOut&) { // the figure below tells where it stopped
    }
    EXPECT_LE(seen, mostThreads);
    ChildProcess again = as(attackerUser, TESSIVA_BUS_PEER, {"evaluations", "1", "1234"});
    EXPECT_EQ(lastLine(again, " done"), "1 done");
}

// The domain of an error counts against the bound on a value's text.
TEST_F(HostileBusTest, AnErrorDomainBeyond64KiBIsRefused) {
    startDaemon({});
    EXPECT_EQ(as(attackerUser, TESSIVA_BUS_ATTACKER, {"long-domain"}).readLine(),
              detail::bus::errorInvalidValue);
}

// Another user's evaluation is served while one floods the daemon with
// handles whose dictionary keys all aim at one slot of the index, as under a
// flood of ordinary ones. What the collisions cost is the dictionary
// benchmark's to measure: a bound on wall time here failed on a loaded machine.
TEST_F(HostileBusTest, AFloodOfCollidingKeysLeavesOthersServed) {
    startDaemon({});
    for (const char* keys : {"spread", "collide"}) {
        ChildProcess flood = as(attackerUser, TESSIVA_BUS_ATTACKER, {keys});
        EXPECT_EQ(flood.readLine(), "flooding");
        ChildProcess victim = as(victimUser, TESSIVA_BUS_PEER, {"evaluations", "1", "1234"});
        EXPECT_EQ(lastLine(victim, " done"), "1 done") << keys;
    }
}

// Failures count per user: many evaluations at once, each allowing more
// failures than the user's limit, learn of three wrong passcodes at most in
// a second;
// the locked-out user's right passcode is refused too, while another user's
// is taken. The audit trail names each attempt's user and process, never a
// passcode.
TEST_F(HostileBusTest, GuessingStopsAtTheUsersFailureLimit) {
    startDaemon({"--deny", "3", "--fail-interval", "900", "--unlock-time", "600", "--fail-delay-ms",
                 "100", "--max-contexts", "64", "--max-evaluations", "64"});
    ChildProcess guesser = as(attackerUser, TESSIVA_BUS_PEER, {"guess", "64", "1000"});
    const std::string toldWrong = guesser.readLine(), guessed = guesser.readLine();
    ASSERT_TRUE(toldWrong.starts_with("told wrong ")) << toldWrong;
    RecordProperty("wrong_verdicts", toldWrong.substr(11) + " (" + guessed + ")");
    EXPECT_LE(std::stoi(toldWrong.substr(11)), 3) << guessed;
    const pid_t guesserPid = guesser.pid();
    guesser.wait();

    ChildProcess right = as(attackerUser, TESSIVA_BUS_PEER, {"evaluations", "1", "1234"});
    EXPECT_EQ(lastLine(right, " done"), "0 done");
    ChildProcess victim = as(victimUser, TESSIVA_BUS_PEER, {"evaluations", "1", "1234"});
    EXPECT_EQ(lastLine(victim, " done"), "1 done");
    const pid_t victimPid = victim.pid();
    victim.wait();

    EXPECT_EQ(stopDaemon(), 0);
    const std::string audit = daemonErrors();
    auto expected = [](const char* level, uid_t user, pid_t pid, const char* outcome) {
        return std::string(level) + "tessivad: authentication uid=" + std::to_string(user) +
               " pid=" + std::to_string(pid) + " policy=1000 service=simulated outcome=" + outcome +
               "\n";
    };
    EXPECT_NE(audit.find(expected("<4>", attackerUser, guesserPid, "failure code=-1")),
              std::string::npos)
        << audit;
    EXPECT_NE(audit.find(expected("<5>", victimUser, victimPid, "success")), std::string::npos)
        << audit;
    const std::string withoutPids = std::regex_replace(audit, std::regex("pid=[0-9]+"), "pid=");
    EXPECT_EQ(withoutPids.find("1234"), std::string::npos) << audit;
    EXPECT_EQ(withoutPids.find("guess-"), std::string::npos) << audit;
}

// A caller's figures are its own user's: the attacker sees none of the
// victim's context and evaluation, root sees them all.
TEST_F(HostileBusTest, StatisticsShowACallerItsOwnFiguresOnly) {
    startDaemon({});
    ChildProcess holder = as(victimUser, TESSIVA_BUS_PEER, {"evaluations", "1"});
    holder.readLine(); // its context's handle, once its evaluation waits
    EXPECT_EQ(as(attackerUser, TESSIVA_BUS_ATTACKER, {"statistics"}).readLine(),
              "calls=0 clients=0 connections=0 contexts=0 evaluations=0 events=0");
    const auto all = root.statistics();
    EXPECT_EQ(all.at("contexts"), 1u);
    EXPECT_EQ(all.at("evaluations"), 1u);
}

} // namespace
} // namespace tessiva::test
