// The daemon among processes: a handle restored in another process and
// refused to another user, a client killed mid-evaluation, the daemon
// stopped and restarted under live clients, bad peers, and load.
#include "Outcome.h"
#include "PrivateBus.h"
#include "services/dbus/BusConnect.h"
#include "support/RunTogether.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/Ob.h"

#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <semaphore>
#include <systemd/sd-bus.h>

namespace tessiva::test {
namespace {
using detail::bus::BusAddress;
using detail::bus::BusError;
using detail::bus::BusRef;
using detail::bus::connectToBus;
using detail::bus::MessageRef;
using detail::bus::SlotRef;

ObRef<ObString> str(std::string_view text) {
    return ObString::make(text);
}

// Tells the first event it gets, and never answers.
class SilentDelegate final : public KVUIDelegate {
public:
    void event_params_reply(ObInteger, const ObRef<ObDictionary>&, KVUIReply) override {
        if (!told_.exchange(true))
            asked.release();
    }
    std::binary_semaphore asked{0};

private:
    std::atomic<bool> told_{false};
};

// A connection of the test's own to the private bus, for what the client
// backend never sends.
class RawConnection {
public:
    explicit RawConnection(const std::string& address) {
        connectToBus({BusAddress::Kind::address, address}, nullptr, bus_);
    }
    sd_bus* bus() const noexcept { return bus_.get(); }

    // Calls the daemon's method with arguments that `write` appends; "ok",
    // or the D-Bus error's name and message.
    std::string call(const char* member, const std::function<void(sd_bus_message*)>& write,
                     MessageRef* replyOut = nullptr) {
        MessageRef message;
        sd_bus_message_new_method_call(bus_.get(), message.put(), "org.tessiva.Authentication1",
                                       "/org/tessiva/Authentication1",
                                       "org.tessiva.Authentication1", member);
        write(message.get());
        BusError error;
        MessageRef reply;
        const int result = sd_bus_call(bus_.get(), message.get(), 0, error.get(), reply.put());
        if (replyOut != nullptr)
            *replyOut = std::move(reply);
        return result >= 0 ? "ok" : std::string(error.name()) + ": " + error.message();
    }

    // The daemon's counts.
    std::map<std::string, std::uint64_t> statistics() {
        MessageRef reply;
        call(
            "Statistics", [](sd_bus_message*) {}, &reply);
        std::map<std::string, std::uint64_t> counts;
        sd_bus_message_enter_container(reply.get(), 'a', "{st}");
        const char* name = nullptr;
        std::uint64_t count = 0;
        while (sd_bus_message_read(reply.get(), "{st}", &name, &count) > 0)
            counts[name] = count;
        return counts;
    }

    // Watches for another connection going; waitForDisconnection() then
    // returns once the bus has told of it.
    void awaitDisconnection() {
        gone_ = false;
        sd_bus_match_signal(
            bus_.get(), armed_.put(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "NameOwnerChanged",
            [](sd_bus_message* m, void* flag, sd_bus_error*) {
                const char *name = nullptr, *from = nullptr, *to = nullptr;
                if (sd_bus_message_read(m, "sss", &name, &from, &to) >= 0 && *name == ':' &&
                    *to == '\0')
                    *static_cast<bool*>(flag) = true;
                return 0;
            },
            &gone_);
    }
    void waitForDisconnection() {
        while (!gone_) {
            if (sd_bus_process(bus_.get(), nullptr) > 0)
                continue;
            sd_bus_wait(bus_.get(), UINT64_MAX);
        }
        armed_.reset();
    }

private:
    BusRef bus_;
    SlotRef armed_;
    bool gone_ = false;
};

class DaemonProcessesTest : public ::testing::Test {
protected:
    ChildProcess peer(std::vector<std::string> arguments, bool asAnotherUser = false) {
        arguments.insert(arguments.begin(), TESSIVA_BUS_PEER);
        if (asAnotherUser)
            arguments.insert(arguments.begin(),
                             {TESSIVA_SETPRIV, "--reuid=65534", "--regid=65534", "--clear-groups"});
        return ChildProcess(arguments, {"DBUS_SESSION_BUS_ADDRESS=" + bus.address()});
    }
    ObRef<KVClient> connect(const ObRef<KVUIDelegate>& delegate = nullptr,
                            const ObRef<ObData>& handle = nullptr) {
        ObRef<KVClient> client;
        service->clientWithExternalizedContext_uiDelegate_reply(
            handle, delegate, [&](ObRef<KVClient> made, ObRef<ObError> error) {
                client = made;
                refusal = describe(nullptr, error);
            });
        return client;
    }
    static std::future<std::string> start(const ObRef<KVClient>& client) {
        auto promise = std::make_shared<std::promise<std::string>>();
        client->evaluatePolicy_options_reply(1000, nullptr, [promise](auto result, auto error) {
            promise->set_value(describe(result, error));
        });
        return promise->get_future();
    }
    static std::string enterPassword(const ObRef<KVClient>& client, const char* password) {
        std::string text;
        client->enterPassword_reply(str(password), [&](bool, ObRef<ObError> error) {
            text = error ? describe(nullptr, error) : "success";
        });
        return text;
    }
    std::map<std::string, std::uint64_t> idle(std::uint64_t contexts) const {
        return {{"calls", 0},           {"clients", 0},     {"connections", 0},
                {"contexts", contexts}, {"evaluations", 0}, {"events", 0}};
    }

    PrivateBus bus;
    std::unique_ptr<DaemonProcess> daemon = std::make_unique<DaemonProcess>(bus.address());
    ObRef<KVBusService> service = KVBusService::make(str(bus.address()));
    RawConnection raw{bus.address()};
    std::string refusal;
    const std::string success = "{1 = 0; 3 = 1; 4 = 0; 5 = 0}";
    const std::string unknownHandle = "error -1009: No context matches the handle.";
};

TEST_F(DaemonProcessesTest, AHandleReachesItsContextFromAnotherProcessOfTheSameUserOnly) {
    auto delegate = ObMake<SilentDelegate>();
    ObRef<KVClient> client = connect(delegate);
    const std::string handle = hex(client->externalizedContext());
    std::string creator;
    std::getline(std::ifstream("/proc/self/comm"), creator);
    EXPECT_EQ(peer({"restore", handle}).readLine(), "restored, made by " + creator);

    // The evaluation waits for the passcode, which another process enters.
    auto evaluation = start(client);
    delegate->asked.acquire();
    EXPECT_EQ(peer({"enter", handle, "1234"}).readLine(), "success");
    EXPECT_EQ(evaluation.get(), success);

    if (geteuid() != 0)
        GTEST_SKIP() << "another user needs root to switch to";
    EXPECT_EQ(peer({"restore", handle}, true).readLine(), unknownHandle);
    EXPECT_EQ(peer({"enter", handle, "1234"}, true).readLine(), unknownHandle);
}

TEST_F(DaemonProcessesTest, AClientKilledMidEvaluationLeavesOnlyItsContext) {
    ChildProcess killed = peer({"evaluate"});
    const std::string handle = killed.readLine(); // its delegate has the event
    EXPECT_EQ(raw.statistics().at("evaluations"), 1u);
    raw.awaitDisconnection();
    killed.signal(SIGKILL);
    raw.waitForDisconnection();
    // The daemon keeps the client until the service has ended its evaluation,
    // which a loaded machine may take a while to do; then nothing stays.
    while (raw.statistics().at("evaluations") != 0) {
    }
    EXPECT_EQ(raw.statistics(), idle(1));

    // Its evaluation ended: the context takes a new one.
    ObRef<KVClient> restored = connect(nullptr, [&] {
        std::string bytes;
        for (std::size_t i = 0; i < handle.size(); i += 2)
            bytes.push_back(char(std::stoi(handle.substr(i, 2), nullptr, 16)));
        return ObData::make(bytes.data(), bytes.size());
    }());
    ASSERT_TRUE(restored) << refusal;
    auto evaluation = start(restored);
    std::string entered;
    // Until the evaluation has begun, the passcode finds nothing to answer;
    // an evaluation refused at once ends the loop with its reason below.
    while (evaluation.wait_for(std::chrono::seconds(0)) != std::future_status::ready &&
           (entered = enterPassword(restored, "1234")) != "success")
        ASSERT_EQ(entered, "error -1005: No evaluation is waiting for a passcode.");
    EXPECT_EQ(evaluation.get(), success);
}

TEST_F(DaemonProcessesTest, EvaluationsFailWhenTheDaemonGoesAndARestartedOneServes) {
    auto delegate = ObMake<SilentDelegate>();
    ObRef<KVClient> client = connect(delegate);
    auto evaluation = start(client);
    delegate->asked.acquire();
    EXPECT_EQ(daemon->stop(), 0);
    EXPECT_EQ(evaluation.get().substr(0, 57),
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
    auto answered = start(fresh);
    while (enterPassword(fresh, "1234") != "success") {
    }
    EXPECT_EQ(answered.get(), success);
}

TEST_F(DaemonProcessesTest, AContextOutlivesItsClientsByTheIdleTimeOnly) {
    daemon.reset();
    daemon = std::make_unique<DaemonProcess>(bus.address(),
                                             std::vector<std::string>{"--idle-seconds", "0"});
    ObRef<KVClient> client = connect();
    const ObRef<ObData> handle = client->externalizedContext();
    // While one client holds it, releasing another keeps the context: once
    // the release is in, a timer due then would have run by the next call.
    ObRef<KVClient> other = connect(nullptr, handle);
    ASSERT_TRUE(other) << refusal;
    other = nullptr;
    while (raw.statistics().at("clients") != 1) {
    }
    EXPECT_EQ(raw.statistics().at("contexts"), 1u);
    client = nullptr;
    // The release reaches the daemon after the connect before it; with no
    // idle time the context then ends on the daemon's next turn.
    while (raw.statistics().at("contexts") != 0) {
    }
    EXPECT_FALSE(connect(nullptr, handle));
    EXPECT_EQ(refusal, unknownHandle);
}

TEST_F(DaemonProcessesTest, BadPeersGetErrorsAndTheDaemonCarriesOn) {
    daemon.reset();
    daemon = std::make_unique<DaemonProcess>(bus.address(),
                                             std::vector<std::string>{"--max-contexts", "3"});
    auto nested = [](sd_bus_message* m, int depth) {
        for (int level = 0; level < depth; ++level)
            sd_bus_message_open_container(m, 'v', "av"), sd_bus_message_open_container(m, 'a', "v");
        sd_bus_message_append(m, "v", "g", "");
        for (int level = 0; level < 2 * depth; ++level)
            sd_bus_message_close_container(m);
    };
    const std::string invalid = "org.tessiva.Authentication1.Error.InvalidValue: ";
    const std::string unknownClient = "org.tessiva.Authentication1.Error.UnknownClient: ";
    std::uint64_t mine = 0;
    MessageRef reply;
    ASSERT_EQ(raw.call(
                  "Connect", [](sd_bus_message* m) { sd_bus_message_append(m, "vb", "g", "", 0); },
                  &reply),
              "ok");
    sd_bus_message_read(reply.get(), "t", &mine);

    const struct {
        const char* member;
        std::function<void(sd_bus_message*)> write;
        std::string outcome;
    } cases[] = {
        {"Connect", [](sd_bus_message* m) { sd_bus_message_append(m, "s", "x"); },
         "org.freedesktop.DBus.Error.InvalidArgs: Invalid arguments 's' to call "
         "org.tessiva.Authentication1.Connect(), expecting 'vb'."},
        {"Connect", [](sd_bus_message* m) { sd_bus_message_append(m, "vb", "i", 1, 0); },
         invalid + "The handle: a variant of signature \"i\" has no meaning here"},
        {"Connect", [](sd_bus_message* m) { sd_bus_message_append(m, "vb", "s", "h", 0); },
         invalid + "The handle must be data"},
        {"Connect",
         [](sd_bus_message* m) {
             const std::string big(70000, 'x');
             sd_bus_message_open_container(m, 'v', "ay");
             sd_bus_message_append_array(m, 'y', big.data(), big.size());
             sd_bus_message_close_container(m);
             sd_bus_message_append(m, "b", 0);
         },
         invalid + "The handle: it holds more than 65536 bytes of text and data"},
        {"EvaluatePolicy",
         [&](sd_bus_message* m) {
             sd_bus_message_append(m, "tx", mine, std::int64_t(1000));
             nested(m, 17);
         },
         invalid + "The options: it nests deeper than 16 levels"},
        {"EvaluatePolicy",
         [&](sd_bus_message* m) {
             sd_bus_message_append(m, "txv", mine, std::int64_t(1), "s", "o");
         },
         invalid + "The options must be a dictionary"},
        {"EvaluatePolicy",
         [](sd_bus_message* m) {
             sd_bus_message_append(m, "txv", std::uint64_t(42), std::int64_t(1), "g", "");
         },
         unknownClient + "No client 42 of this connection"},
        {"EnterPassword",
         [](sd_bus_message* m) { sd_bus_message_append(m, "tv", std::uint64_t(7), "s", "1"); },
         unknownClient + "No client 7 of this connection"},
        {"EventReturned",
         [&](sd_bus_message* m) {
             sd_bus_message_append(m, "ttis", mine, std::uint64_t(1), 9, "");
         },
         invalid + "The outcome must be 0, 1 or 2"},
    };
    for (const auto& [member, write, outcome] : cases) {
        SCOPED_TRACE(outcome);
        EXPECT_EQ(raw.call(member, write), outcome);
    }
    // Another connection's client is no client of this one.
    RawConnection other(bus.address());
    EXPECT_EQ(
        other.call("Invalidate", [&](sd_bus_message* m) { sd_bus_message_append(m, "t", mine); }),
        unknownClient + "No client " + std::to_string(mine) + " of this connection");

    // A flood of contexts stops at the limit, and nothing else is kept.
    auto newContext = [](sd_bus_message* m) { sd_bus_message_append(m, "vb", "g", "", 0); };
    EXPECT_EQ(raw.call("Connect", newContext), "ok");
    EXPECT_EQ(raw.call("Connect", newContext), "ok");
    EXPECT_EQ(
        raw.call("Connect", newContext),
        "org.tessiva.Authentication1.Error.LimitExceeded: A user may hold 3 contexts at most");
    auto counts = raw.statistics();
    EXPECT_EQ(counts.at("contexts"), 3u);
    EXPECT_EQ(counts.at("clients"), 3u);
}

TEST_F(DaemonProcessesTest, EightProcessesOfAHundredEvaluationsLoseNothing) {
    const auto before = raw.statistics();
    EXPECT_EQ(before, idle(0));
    runTogether(8, [&](int) {
        ChildProcess loaded = peer({"evaluations", "100"});
        EXPECT_EQ(loaded.readLine(), "100 done");
        EXPECT_EQ(loaded.wait(), 0);
    });
    // Each process invalidated its context and went: the daemon holds nothing
    // once it has taken in their departures, which each round trip lets it.
    while (raw.statistics() != before) {
    }
    EXPECT_EQ(raw.statistics(), before);
}

} // namespace
} // namespace tessiva::test
