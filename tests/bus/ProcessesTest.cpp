// SPDX-License-Identifier: MIT
// The daemon hosting the simulated service: the conformance suite, then the
// daemon among processes: a handle restored in another process and refused
// to another user, a client killed mid-evaluation, the daemon stopped and
// restarted under live clients, bad peers, and load.
#include "DaemonBackend.h"
#include "Outcome.h"
#include "RawConnection.h"
#include "services/dbus/BusConnect.h"
#include "services/dbus/EventLoop.h"
#include "tessiva/kavelin/KVBusService.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <systemd/sd-bus.h>
#include <thread>

namespace tessiva::test {
namespace {
class DaemonSimulated final : public DaemonBackend {
public:
    DaemonSimulated() : DaemonBackend({}, {}) {}
    std::string rightPasscode() const override { return KVSimulatedService::defaultPasscode; }
    std::string biometryRefusal() const override { return "This device has no ridge-scan sensor."; }
    bool setReader(const KVSimulatedReader& reader) override {
        return addEnvironment("TESSIVA_READER=" + readerText(reader));
    }
};

INSTANTIATE_TEST_SUITE_P(Simulated, BackendConformanceTest,
                         ::testing::Values(BackendMaker{
                             "ThroughDaemon", [] { return std::make_unique<DaemonSimulated>(); }}),
                         backendName);
INSTANTIATE_TEST_SUITE_P(Simulated, ScriptedReaderConformanceTest,
                         ::testing::Values(BackendMaker{
                             "ThroughDaemon", [] { return std::make_unique<DaemonSimulated>(); }}),
                         backendName);

using detail::bus::MessageRef;

// The arguments of Connect for a new context.
void newContext(sd_bus_message* m) {
    sd_bus_message_append(m, "vb", "g", "", 0);
}

// A delegate that never answers; `asked` is ready at its first event.
ObRef<KVUIDelegate> silent(std::promise<void>& asked) {
    return ObMake<ScriptedDelegate>(std::vector<Answer>{[&asked](auto&) { asked.set_value(); }});
}

class DaemonProcessesTest : public ::testing::Test, protected ServiceCalls {
protected:
    ObRef<KVClientBackend> callee() override { return service; }
    ChildProcess peer(std::vector<std::string> arguments, bool asAnotherUser = false) {
        arguments.insert(arguments.begin(), TESSIVA_BUS_PEER);
        if (asAnotherUser)
            arguments.insert(arguments.begin(),
                             {TESSIVA_SETPRIV, "--reuid=65534", "--regid=65534", "--clear-groups"});
        return ChildProcess(arguments, {"DBUS_SESSION_BUS_ADDRESS=" + bus.address()});
    }
    // Waits for the daemon's figures to settle at `expected`; where they
    // stopped when they do not.
    void expectStatistics(const std::map<std::string, std::uint64_t>& expected,
                          const char* behaviour) {
        std::map<std::string, std::uint64_t> seen;
        try {
            waitUntil([&] { return (seen = raw.statistics()) == expected; }, behaviour);
        } catch (const WaitTimedOut&) { // the figures below tell where they stopped
        }
        EXPECT_EQ(seen, expected) << behaviour;
    }
    // The outcome of an evaluation once the passcode is entered, which finds
    // nothing to answer until the evaluation has begun; an evaluation
    // refused at once ends the wait with its reason.
    std::string enteredOnceAsked(const ObRef<KVClient>& client,
                                 std::future<std::string> evaluation) {
        waitUntil(
            [&] {
                return evaluation.wait_for(std::chrono::seconds(0)) == std::future_status::ready ||
                       enterPassword(client, "1234") == "success";
            },
            "the evaluation to take the passcode");
        return outcome(std::move(evaluation));
    }
    std::map<std::string, std::uint64_t> idle(std::uint64_t contexts) const {
        return {{"calls", 0},           {"clients", 0},     {"connections", 0},
                {"contexts", contexts}, {"evaluations", 0}, {"events", 0}};
    }

    PrivateBus bus;
    std::unique_ptr<DaemonProcess> daemon = std::make_unique<DaemonProcess>(bus.address());
    ObRef<KVBusService> service = KVBusService::make(str(bus.address()));
    RawConnection raw{bus.address()};
    const std::string unknownHandle = "error -1009: No context matches the handle.";
};

TEST_F(DaemonProcessesTest, AHandleReachesItsContextFromAnotherProcessOfTheSameUserOnly) {
    std::promise<void> asked;
    ObRef<KVClient> client = connect(silent(asked));
    const std::string handle = hex(client->externalizedContext());
    std::string creator;
    std::getline(std::ifstream("/proc/self/comm"), creator);
    // The evaluation waits for the passcode, which another process enters.
    auto evaluation = start(client);
    await(asked.get_future(), "the delegate's first event");
    ChildProcess entering = peer({"restore", handle, "1234"});
    EXPECT_EQ(entering.readLine(), "restored, made by " + creator);
    EXPECT_EQ(entering.readLine(), "success");
    EXPECT_EQ(await(std::move(evaluation), "the evaluation's reply"), success);

    if (geteuid() != 0)
        GTEST_SKIP() << "another user needs root to switch to";
    EXPECT_EQ(peer({"restore", handle, "1234"}, true).readLine(), unknownHandle);
}

TEST_F(DaemonProcessesTest, AClientKilledMidEvaluationLeavesOnlyItsContext) {
    ChildProcess killed = peer({"evaluations", "1"});
    const std::string handle = killed.readLine(); // its delegate has the event
    EXPECT_EQ(raw.statistics().at("evaluations"), 1u);
    killed.signal(SIGKILL);
    // Once the bus has told of its going and the service has ended its
    // evaluation, only the context stays.
    expectStatistics(idle(1), "the killed client's evaluation to end");

    // Its evaluation ended: the context takes a new one.
    ObRef<KVClient> restored = connect(nullptr, unhex(handle));
    ASSERT_TRUE(restored) << refusal;
    EXPECT_EQ(enteredOnceAsked(restored, start(restored)), success);
}

TEST_F(DaemonProcessesTest, EvaluationsFailWhenTheDaemonGoesAndARestartedOneServes) {
    std::promise<void> asked;
    ObRef<KVClient> client = connect(silent(asked));
    auto evaluation = start(client);
    await(asked.get_future(), "the delegate's first event");
    EXPECT_EQ(daemon->stop(), 0);
    EXPECT_EQ(await(std::move(evaluation), "the evaluation's reply").substr(0, 57),
              "error -1000: The authentication daemon cannot be reached:");
    EXPECT_FALSE(connect());
    EXPECT_EQ(refusal.substr(0, 57), "error -1000: The authentication daemon cannot be reached:");

    daemon = std::make_unique<DaemonProcess>(bus.address());
    EXPECT_EQ(enterPassword(client, "1234"),
              "error -1009: The context is unknown to the authentication daemon (it may have "
              "restarted).");
    EXPECT_FALSE(connect(nullptr, client->externalizedContext()));
    EXPECT_EQ(refusal, unknownHandle);
    ObRef<KVClient> fresh = connect();
    ASSERT_TRUE(fresh) << refusal;
    EXPECT_EQ(enteredOnceAsked(fresh, start(fresh)), success);
}

// A context outlives its last client by the idle time, and a client that
// comes in that time stops the clock. Another context, left idle after, is
// the witness: the daemon's timers run in the order they are due, so once
// the witness has gone, the first context's clock would have run out too.
TEST_F(DaemonProcessesTest, AContextOutlivesItsClientsByTheIdleTimeOnly) {
    daemon.reset();
    daemon = std::make_unique<DaemonProcess>(bus.address(),
                                             std::vector<std::string>{"--idle-seconds", "1"});
    ObRef<KVClient> client = connect(), witness = connect();
    const ObRef<ObData> handle = client->externalizedContext();
    // While one client holds it, releasing another keeps the context.
    ObRef<KVClient> other = connect(nullptr, handle);
    ASSERT_TRUE(other) << refusal;
    other = nullptr;
    client = nullptr;
    // Releases and connects reach the daemon in order; the clock has started
    // and stops again, well within its second.
    client = connect(nullptr, handle);
    ASSERT_TRUE(client) << refusal;
    witness = nullptr;
    std::map<std::string, std::uint64_t> oneLeft = idle(1);
    oneLeft["clients"] = oneLeft["connections"] = 1;
    expectStatistics(oneLeft, "the idle witness's context ends");
    EXPECT_TRUE(connect(nullptr, handle)) << "a context with a client ended: " << refusal;

    client = nullptr;
    std::map<std::string, std::uint64_t> noneLeft = idle(0);
    noneLeft["connections"] = 1; // the backend's, still open
    expectStatistics(noneLeft, "the context ends once idle");
    EXPECT_FALSE(connect(nullptr, handle));
    EXPECT_EQ(refusal, unknownHandle);
}

// The time-out counts from each evaluation's start: the first one's timer,
// still armed when the last begins, lets the last run its full time.
TEST_F(DaemonProcessesTest, AnEvaluationNobodyAnswersEndsAtTheAnswerTimeOut) {
    daemon.reset();
    daemon = std::make_unique<DaemonProcess>(bus.address(),
                                             std::vector<std::string>{"--answer-timeout", "1"});
    ObRef<KVClient> client = connect();
    // Answered evaluations in between put the last start well past the
    // first one's deadline.
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(enteredOnceAsked(client, start(client)), success);
    EXPECT_EQ(await(start(client), "the unanswered evaluation's end"),
              "error -1003: The user did not answer in time.");
}

TEST_F(DaemonProcessesTest, BadPeersGetErrorsAndTheDaemonCarriesOn) {
    daemon.reset();
    daemon = std::make_unique<DaemonProcess>(bus.address(),
                                             std::vector<std::string>{"--max-contexts", "3"});
    const std::string invalid = "org.tessiva.Authentication2.Error.InvalidValue: ";
    const std::string unknownClient = "org.tessiva.Authentication2.Error.UnknownClient: ";
    const char* path = nullptr;
    MessageRef reply;
    ASSERT_EQ(raw.call("Connect", newContext, &reply), "ok");
    sd_bus_message_read(reply.get(), "o", &path);
    const std::string mine = path;
    const std::string guessed = "/org/tessiva/Authentication1/client/42";

    const struct {
        const char* member;
        std::function<void(sd_bus_message*)> write;
        std::string outcome;
    } cases[] = {
        {"Connect", [](sd_bus_message* m) { sd_bus_message_append(m, "s", "x"); },
         "org.freedesktop.DBus.Error.InvalidArgs: Invalid arguments 's' to call "
         "org.tessiva.Authentication2.Connect(), expecting 'vb'."},
        // Every malformed value the codec's tests check is refused like this
        // one, with the codec's reason.
        {"Connect", [](sd_bus_message* m) { sd_bus_message_append(m, "vb", "i", 1, 0); },
         invalid + "The handle: a variant of signature \"i\" has no meaning here"},
        {"Connect", [](sd_bus_message* m) { sd_bus_message_append(m, "vb", "s", "h", 0); },
         invalid + "The handle must be data"},
        {"EvaluatePolicy",
         [&](sd_bus_message* m) {
             sd_bus_message_append(m, "oxv", mine.c_str(), std::int64_t(1), "s", "o");
         },
         invalid + "The options must be a dictionary"},
        // Nothing a stranger sends is read: not even a malformed value.
        {"EvaluatePolicy",
         [&](sd_bus_message* m) {
             sd_bus_message_append(m, "oxv", guessed.c_str(), std::int64_t(1), "i", 1);
         },
         unknownClient + "No client " + guessed + " of this connection"},
        {"EnterPassword",
         [&](sd_bus_message* m) { sd_bus_message_append(m, "ov", guessed.c_str(), "s", "1"); },
         unknownClient + "No client " + guessed + " of this connection"},
        {"AnswerEvent",
         [&](sd_bus_message* m) {
             sd_bus_message_append(m, "otisbvv", mine.c_str(), std::uint64_t(1), 4, "", 0, "g", "",
                                   "g", "");
         },
         invalid + "The outcome must be 0, 1, 2 or 3"},
    };
    for (const auto& [member, write, outcome] : cases) {
        SCOPED_TRACE(outcome);
        EXPECT_EQ(raw.call(member, write), outcome);
    }
    // Another connection's client is no client of this one.
    RawConnection other(bus.address());
    EXPECT_EQ(other.call("Invalidate",
                         [&](sd_bus_message* m) { sd_bus_message_append(m, "o", mine.c_str()); }),
              unknownClient + "No client " + mine + " of this connection");

    // A flood of contexts stops at the limit, and nothing else is kept.
    EXPECT_EQ(raw.call("Connect", newContext), "ok");
    EXPECT_EQ(raw.call("Connect", newContext), "ok");
    EXPECT_EQ(raw.call("Connect", newContext),
              "org.freedesktop.DBus.Error.LimitsExceeded: A user may hold 3 contexts at most");
    auto counts = raw.statistics();
    EXPECT_EQ(counts.at("contexts"), 3u);
    EXPECT_EQ(counts.at("clients"), 3u);
}

// A client released while it evaluates stops the evaluation, and its user
// may evaluate again: nothing of it stays counted.
TEST_F(DaemonProcessesTest, ReleasingAClientMidEvaluationFreesItsUsersTurn) {
    daemon.reset();
    daemon = std::make_unique<DaemonProcess>(bus.address(),
                                             std::vector<std::string>{"--max-evaluations", "1"});
    MessageRef reply;
    ASSERT_EQ(raw.call("Connect", newContext, &reply), "ok");
    const char* path = nullptr;
    sd_bus_message_read(reply.get(), "o", &path);
    std::string client = path;
    auto evaluate = [&](std::int64_t policy) {
        return [&client, policy](sd_bus_message* m) {
            sd_bus_message_append(m, "oxv", client.c_str(), policy, "g", "");
        };
    };
    // It waits for a passcode that never comes, until the client goes.
    bool replied = false;
    raw.callAsync("EvaluatePolicy", evaluate(1000), replied);
    EXPECT_EQ(raw.call("Release",
                       [&](sd_bus_message* m) { sd_bus_message_append(m, "o", client.c_str()); }),
              "ok");
    raw.awaitReply(replied);

    ASSERT_EQ(raw.call("Connect", newContext, &reply), "ok");
    sd_bus_message_read(reply.get(), "o", &path);
    client = path;
    // Refused by the service (no such policy), not by the user's limit.
    EXPECT_EQ(raw.call("EvaluatePolicy", evaluate(42)), "ok");
}

// An evaluation waiting for its user's turn wakes when another evaluation
// of the user ends it, whichever of the daemon's threads each runs on: the
// first evaluation started runs on the loop's thread, one started while it
// runs on a pool thread, and the turn ends without a message on the bus.
TEST_F(DaemonProcessesTest, AnEvaluationWaitingForItsUsersTurnWakesWhenAnotherEndsIt) {
    daemon.reset();
    daemon = std::make_unique<DaemonProcess>(
        bus.address(), std::vector<std::string>{"--deny", "2", "--fail-delay-ms", "0"});
    std::promise<void> firstAsked, secondAsked;
    const ObRef<KVClient> first = connect(silent(firstAsked)),
                          second = connect(silent(secondAsked)),
                          third = connect(ObMake<ScriptedDelegate>(
                              std::vector<Answer>{response(KVSimulatedService::defaultPasscode)}));
    ASSERT_TRUE(first && second && third) << refusal;
    auto failing = start(first, dict({{num(1004), num(1)}}));
    await(firstAsked.get_future(), "the first evaluation's turn");
    auto holding = start(second);
    await(secondAsked.get_future(), "the second evaluation's turn");
    // One failure and one turn taken: the third must wait for the second.
    EXPECT_EQ(enterPassword(first, "wrong"), "success");
    EXPECT_EQ(outcome(std::move(failing)).rfind("error -1", 0), 0u);
    auto waiting = start(third);
    EXPECT_EQ(enterPassword(second, KVSimulatedService::defaultPasscode), "success");
    EXPECT_EQ(outcome(std::move(holding)), success);
    EXPECT_EQ(outcome(std::move(waiting), "the reply of the evaluation that waited its turn"),
              success);
}

// A caller may let go of its last client and backend in an evaluation's
// reply: the connection then ends from its own loop's thread, which must
// not wait for itself, and leaves the bus.
TEST_F(DaemonProcessesTest, LettingGoOfEverythingInAReplyEndsTheConnection) {
    std::promise<std::string> replied;
    {
        ObRef<KVClientBackend> backend = KVBusService::make(str(bus.address()));
        ObRef<KVClient> client = CallsOn(backend).connect(ObMake<ScriptedDelegate>(
            std::vector<Answer>{response(KVSimulatedService::defaultPasscode)}));
        ASSERT_TRUE(client);
        KVClient& evaluating = *client;
        evaluating.evaluatePolicy_options_reply(
            1000, nullptr,
            [&replied, client = std::move(client), backend = std::move(backend)](
                auto result, auto error) { replied.set_value(describe(result, error)); });
    }
    EXPECT_EQ(await(replied.get_future(), "the reply"), success);
    expectStatistics(idle(1), "the connection gone, its context idle");
}

TEST_F(DaemonProcessesTest, EightProcessesOfAHundredEvaluationsLoseNothing) {
    const auto before = raw.statistics();
    EXPECT_EQ(before, idle(0));
    runTogether(8, [&](int) {
        ChildProcess loaded = peer({"evaluations", "100", "1234"});
        EXPECT_EQ(loaded.readLine(), "100 done");
        EXPECT_EQ(loaded.wait(), 0);
    });
    // Each process invalidated its context and went: the daemon holds nothing
    // once it has taken in their departures, which each round trip lets it.
    expectStatistics(before, "the daemon holds nothing once the processes have gone");
}

// Each figure counts its own kind of thing: two connections, two contexts,
// three clients, and one evaluation waiting on its call and on the answer
// to its event.
TEST_F(DaemonProcessesTest, StatisticsCountWhatTheDaemonHolds) {
    std::promise<void> asked;
    ObRef<KVClient> evaluating = connect(silent(asked));
    ObRef<KVClient> restored = connect(nullptr, evaluating->externalizedContext());
    ASSERT_TRUE(restored) << refusal;
    ASSERT_EQ(raw.call("Connect", newContext), "ok");
    auto evaluation = start(evaluating);
    await(asked.get_future(), "the delegate's first event");
    std::map<std::string, std::uint64_t> held = {{"calls", 1},       {"clients", 3},
                                                 {"connections", 2}, {"contexts", 2},
                                                 {"evaluations", 1}, {"events", 1}};
    expectStatistics(held, "the figures of an evaluation waiting for its passcode");
    EXPECT_EQ(enterPassword(restored, "1234"), "success");
    EXPECT_EQ(await(std::move(evaluation), "the evaluation's reply"), success);
    // The delegate's prompt stays unanswered until its client goes; the
    // closing event came with the reply and awaits nothing.
    held["calls"] = held["evaluations"] = 0;
    expectStatistics(held, "the figures once the evaluation has ended");
    evaluating = restored = nullptr;
    held["clients"] = 1;
    held["events"] = 0;
    expectStatistics(held, "the figures once the backend's clients have gone");
}

// A daemon that serves only the previous version of the interface, as an
// older tessivad would: the client says so at once rather than hanging.
TEST_F(DaemonProcessesTest, ADaemonOfAnotherVersionIsRefusedAtOnce) {
    daemon.reset();
    detail::bus::EventLoop loop;
    detail::bus::BusRef older;
    ASSERT_GE(detail::bus::connectToBus({detail::bus::BusAddress::Kind::address, bus.address()},
                                        &loop, older),
              0);
    static const sd_bus_vtable previous[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD(
            "Connect", "vb", "ovvv",
            [](sd_bus_message*, void*, sd_bus_error*) -> int { return -EIO; }, 0),
        SD_BUS_VTABLE_END};
    ASSERT_GE(sd_bus_add_object_vtable(older.get(), nullptr, detail::bus::objectPath,
                                       "org.tessiva.Authentication1", previous, nullptr),
              0);
    ASSERT_GE(sd_bus_request_name(older.get(), detail::bus::busName, 0), 0);
    std::thread serving([&] { loop.run(); });
    EXPECT_FALSE(connect(nullptr));
    EXPECT_EQ(refusal, "error -1000: The authentication daemon does not speak "
                       "org.tessiva.Authentication2, which this library needs; tessivad and the "
                       "library must come from one release: Unknown method Connect or interface "
                       "org.tessiva.Authentication2.");
    loop.stop();
    serving.join();
}

// The bus itself restarts on the same address: the connection the backend
// lost is made again, and set-up reaches the new daemon.
TEST(DaemonRestart, ALostBusConnectionIsMadeAgain) {
    std::string directory = "/tmp/tessiva-bus-XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    const std::string socket = directory + "/bus", listen = "unix:path=" + socket;
    auto bus = std::make_unique<PrivateBus>(listen);
    auto daemon = std::make_unique<DaemonProcess>(bus->address());
    CallsOn calls(KVBusService::make(str(listen))); // without the bus's id, which a restart changes
    ASSERT_TRUE(calls.connect()) << calls.refusal;
    EXPECT_EQ(daemon->stop(), 0);
    bus.reset();
    std::remove(socket.c_str());
    bus = std::make_unique<PrivateBus>(listen);
    daemon = std::make_unique<DaemonProcess>(bus->address());
    // The backend learns of the loss on its own thread; until then a set-up
    // may fail on the old connection.
    waitUntil([&] { return bool(calls.connect()); }, "a set-up to reach the restarted daemon");
    EXPECT_EQ(daemon->stop(), 0);
    bus.reset();
    std::filesystem::remove_all(directory);
}

} // namespace
} // namespace tessiva::test
