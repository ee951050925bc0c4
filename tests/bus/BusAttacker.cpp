// SPDX-License-Identifier: MIT
// A hostile peer of the daemon: a bare connection to the bus at
// DBUS_SYSTEM_BUS_ADDRESS that sends what no Tessiva client would. It reports
// on standard output, one line a step:
//   bus_attacker peer-left NAME DAEMON
//       says, as the bus's NameOwnerChanged does, that NAME has left: to
//       everyone, to the daemon's name and to its unique name DAEMON; "sent"
//   bus_attacker event DESTINATION CLIENT SERIAL ACTIVE LEFT
//       sends DESTINATION the daemon's passcode Event of these fields from
//       this connection: as it is, and for the next serial; "sent"
//   bus_attacker exhaust CONTEXTS CALLS
//       makes up to CONTEXTS contexts, stopping at the first refusal, and an
//       evaluation on each whose events it never answers; then CALLS more
//       evaluations on them, each carrying 60000 bytes. Once every evaluation
//       has raised its event, had its reply or been refused, prints
//       "contexts N", "waiting N" (evaluations waiting on it), a line
//       "refused NAME N" per D-Bus error, then "ready", and waits to be killed
//   bus_attacker long-domain
//       makes a client and answers an event with an error whose domain is
//       longer than 64 KiB; the D-Bus error's name, or "accepted"
//   bus_attacker collide|spread
//       keeps 32 Connect calls in flight, each handle a dictionary of 2047
//       number keys that all fall in one slot of the dictionary's index
//       (collide) or in slots of their own (spread); "flooding" after the
//       first 32 replies, then floods until killed
//   bus_attacker statistics
//       the daemon's Statistics as "name=count" pairs on one line, by name
// Each signal is followed by a call to the bus, so that once the step is
// reported the bus has passed the signal on.
#include "services/dbus/BusConnect.h"
#include "services/dbus/BusInterface.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <systemd/sd-bus.h>
#include <vector>

namespace {
using namespace tessiva::detail::bus;

constexpr char driver[] = "org.freedesktop.DBus";
constexpr char driverPath[] = "/org/freedesktop/DBus";

[[noreturn]] void fail(const char* what, int result) {
    std::fprintf(stderr, "bus_attacker: %s: %s\n", what, std::strerror(-result));
    std::exit(1);
}

void check(const char* what, int result) {
    if (result < 0)
        fail(what, result);
}

// A round trip to the bus: everything sent before has been passed on.
void flushThroughBus(sd_bus* bus) {
    BusError error;
    MessageRef reply;
    check("GetId", sd_bus_call_method(bus, driver, driverPath, driver, "GetId", error.get(),
                                      reply.put(), ""));
}

MessageRef newCall(sd_bus* bus, const char* member) {
    MessageRef call;
    check(member, sd_bus_message_new_method_call(bus, call.put(), busName, objectPath,
                                                 interfaceName, member));
    return call;
}

// A new context's client (its path), with a delegate; empty with the error's
// name when refused.
std::string connectClient(sd_bus* bus, std::string& refusal) {
    MessageRef call = newCall(bus, "Connect");
    check("Connect", sd_bus_message_append(call.get(), "vb", "g", "", 1));
    BusError error;
    MessageRef reply;
    const char* client = nullptr;
    if (sd_bus_call(bus, call.get(), 0, error.get(), reply.put()) < 0)
        refusal = error.name();
    else
        check("Connect's reply", sd_bus_message_read(reply.get(), "o", &client));
    return client != nullptr && std::string_view(client) != "/" ? client : "";
}

int peerLeft(sd_bus* bus, const std::string& name, const char* daemon) {
    for (const char* destination : {static_cast<const char*>(nullptr), busName, daemon}) {
        MessageRef signal;
        check("NameOwnerChanged",
              sd_bus_message_new_signal(bus, signal.put(), driverPath, driver, "NameOwnerChanged"));
        if (destination != nullptr)
            check("destination", sd_bus_message_set_destination(signal.get(), destination));
        check("arguments",
              sd_bus_message_append(signal.get(), "sss", name.c_str(), name.c_str(), ""));
        check("send", sd_bus_send(bus, signal.get(), nullptr));
    }
    flushThroughBus(bus);
    std::printf("sent\n");
    return 0;
}

int forgeEvent(sd_bus* bus, const char* destination, const char* client, std::uint64_t serial,
               int active, std::int64_t left) {
    for (std::uint64_t forged : {serial, serial + 1}) {
        MessageRef signal;
        check("Event",
              sd_bus_message_new_signal(bus, signal.put(), client, interfaceName, "Event"));
        check("destination", sd_bus_message_set_destination(signal.get(), destination));
        // The passcode event (2) with its parameters active (0) and attempts left (5).
        check("arguments",
              sd_bus_message_append(signal.get(), "txv", forged, std::int64_t(2), "a{xv}", 2,
                                    std::int64_t(0), "b", active, std::int64_t(5), "x", left));
        check("send", sd_bus_send(bus, signal.get(), nullptr));
    }
    flushThroughBus(bus);
    std::printf("sent\n");
    return 0;
}

// What became of the exhausting calls.
struct Tally {
    std::set<std::string> waiting; // clients whose evaluation raised an event
    std::map<std::string, int> refused;
    std::size_t unresolved = 0;
};

int onEvaluationReply(sd_bus_message* reply, void* userdata, sd_bus_error*) {
    auto& tally = *static_cast<Tally*>(userdata);
    if (const sd_bus_error* error = sd_bus_message_get_error(reply))
        ++tally.refused[error->name];
    --tally.unresolved;
    return 0;
}

int onEvent(sd_bus_message* signal, void* userdata, sd_bus_error*) {
    auto& tally = *static_cast<Tally*>(userdata);
    const char* client = sd_bus_message_get_path(signal);
    // The first event of each evaluation resolves its call; none is answered.
    if (client != nullptr && tally.waiting.insert(client).second)
        --tally.unresolved;
    return 0;
}

void evaluate(sd_bus* bus, const std::string& client, std::size_t carried, Tally& tally) {
    MessageRef call = newCall(bus, "EvaluatePolicy");
    const std::string filler(carried, 'x');
    check("EvaluatePolicy",
          sd_bus_message_append(call.get(), "oxv", client.c_str(), std::int64_t(1000), "a{xv}", 1,
                                std::int64_t(9999), "s", filler.c_str()));
    // Evaluations wait without a time-out, as the client backend's do.
    check("EvaluatePolicy",
          sd_bus_call_async(bus, nullptr, call.get(), &onEvaluationReply, &tally, UINT64_MAX));
    ++tally.unresolved;
}

void runUntil(sd_bus* bus, const std::function<bool()>& done) {
    while (!done()) {
        const int processed = sd_bus_process(bus, nullptr);
        check("process", processed);
        if (processed == 0)
            check("wait", sd_bus_wait(bus, UINT64_MAX));
    }
}

int exhaust(sd_bus* bus, int contexts, int calls) {
    Tally tally;
    check("match", sd_bus_match_signal(bus, nullptr, nullptr, nullptr, interfaceName, "Event",
                                       &onEvent, &tally));
    std::vector<std::string> clients;
    for (int i = 0; i < contexts; ++i) {
        std::string refusal;
        const std::string client = connectClient(bus, refusal);
        if (client.empty()) {
            ++tally.refused[refusal.empty() ? "(the service's error)" : refusal];
            break;
        }
        clients.push_back(client);
    }
    // A later evaluation on a client adds one more call to its resolution:
    // its reply or refusal, since the event is the first evaluation's.
    for (const std::string& client : clients)
        evaluate(bus, client, 0, tally);
    for (int i = 0; !clients.empty() && i < calls; ++i)
        evaluate(bus, clients[std::size_t(i) % clients.size()], 60000, tally);
    runUntil(bus, [&] { return tally.unresolved == 0; });
    std::printf("contexts %zu\nwaiting %zu\n", clients.size(), tally.waiting.size());
    for (const auto& [name, count] : tally.refused)
        std::printf("refused %s %d\n", name.c_str(), count);
    std::printf("ready\n");
    runUntil(bus, [] { return false; });
    return 0;
}

int longDomain(sd_bus* bus) {
    std::string refusal;
    const std::string client = connectClient(bus, refusal);
    if (client.empty()) {
        std::printf("no client: %s\n", refusal.c_str());
        return 1;
    }
    MessageRef call = newCall(bus, "AnswerEvent");
    const std::string domain(64 * 1024 + 1, 'd');
    check("AnswerEvent",
          sd_bus_message_append(call.get(), "otisbvv", client.c_str(), std::uint64_t(1), 0, "", 1,
                                "g", "", "(sxv)", domain.c_str(), std::int64_t(1), "g", ""));
    BusError error;
    MessageRef reply;
    const bool accepted = sd_bus_call(bus, call.get(), 0, error.get(), reply.put()) >= 0;
    std::printf("%s\n", accepted ? "accepted" : error.name());
    return 0;
}

// Keys whose hashes all land in slot 0 of the dictionary's index: the index
// takes the top bits of hash * golden, and a number's hash is
// (v ^ v >> 32) * golden, so v ^ v >> 32 = i / golden² makes the product i.
std::vector<std::int64_t> collidingKeys(std::size_t count) {
    constexpr std::uint64_t golden = 0x9E3779B97F4A7C15ULL;
    const std::uint64_t square = golden * golden;
    std::uint64_t inverse = square; // Newton's iteration, exact after five steps
    for (int i = 0; i < 5; ++i)
        inverse *= 2 - square * inverse;
    std::vector<std::int64_t> keys;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t folded = i * inverse;
        keys.push_back(std::int64_t(folded ^ (folded >> 32)));
    }
    return keys;
}

struct Flood {
    sd_bus* bus;
    std::vector<std::int64_t> keys;
    std::size_t replies = 0;
};

int onFloodReply(sd_bus_message*, void* userdata, sd_bus_error*);

void sendFlood(Flood& flood) {
    MessageRef call = newCall(flood.bus, "Connect");
    sd_bus_message* m = call.get();
    check("Connect", sd_bus_message_open_container(m, 'v', "a{xv}"));
    check("Connect", sd_bus_message_open_container(m, 'a', "{xv}"));
    for (std::int64_t key : flood.keys)
        check("Connect", sd_bus_message_append(m, "{xv}", key, "b", 0));
    check("Connect", sd_bus_message_close_container(m));
    check("Connect", sd_bus_message_close_container(m));
    check("Connect", sd_bus_message_append(m, "b", 0));
    check("Connect", sd_bus_call_async(flood.bus, nullptr, m, &onFloodReply, &flood, UINT64_MAX));
}

int onFloodReply(sd_bus_message*, void* userdata, sd_bus_error*) {
    auto& flood = *static_cast<Flood*>(userdata);
    if (++flood.replies == 32)
        std::printf("flooding\n");
    sendFlood(flood);
    return 0;
}

// 2047 keys and their values are as many objects as a value may hold.
int flood(sd_bus* bus, bool colliding) {
    Flood flood{bus, colliding ? collidingKeys(2047) : std::vector<std::int64_t>{}};
    for (std::int64_t key = 0; !colliding && key < 2047; ++key)
        flood.keys.push_back(key);
    for (int i = 0; i < 32; ++i)
        sendFlood(flood);
    runUntil(bus, [] { return false; });
    return 0;
}

int statistics(sd_bus* bus) {
    MessageRef call = newCall(bus, "Statistics");
    BusError error;
    MessageRef reply;
    if (sd_bus_call(bus, call.get(), 0, error.get(), reply.put()) < 0) {
        std::printf("%s\n", error.name());
        return 1;
    }
    check("Statistics", sd_bus_message_enter_container(reply.get(), 'a', "{st}"));
    const char* name = nullptr;
    std::uint64_t count = 0;
    std::map<std::string, std::uint64_t> counts; // in the order of their names
    while (sd_bus_message_read(reply.get(), "{st}", &name, &count) > 0)
        counts[name] = count;
    std::string line;
    for (const auto& [counted, figure] : counts)
        line += (line.empty() ? "" : " ") + counted + "=" + std::to_string(figure);
    std::printf("%s\n", line.c_str());
    return 0;
}
} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    const std::string command = argc > 1 ? argv[1] : "";
    BusRef bus;
    if (address == nullptr)
        fail("DBUS_SYSTEM_BUS_ADDRESS is not set", -EINVAL);
    check("connect", connectToBus({BusAddress::Kind::address, address}, nullptr, bus));
    if (command == "peer-left" && argc == 4)
        return peerLeft(bus.get(), argv[2], argv[3]);
    if (command == "event" && argc == 7)
        return forgeEvent(bus.get(), argv[2], argv[3], std::stoull(argv[4]), std::stoi(argv[5]),
                          std::stoll(argv[6]));
    if (command == "exhaust" && argc == 4)
        return exhaust(bus.get(), std::stoi(argv[2]), std::stoi(argv[3]));
    if (command == "long-domain" && argc == 2)
        return longDomain(bus.get());
    if ((command == "collide" || command == "spread") && argc == 2)
        return flood(bus.get(), command == "collide");
    if (command == "statistics" && argc == 2)
        return statistics(bus.get());
    std::fprintf(stderr, "usage: bus_attacker peer-left NAME DAEMON | event DESTINATION CLIENT "
                         "SERIAL ACTIVE LEFT | exhaust CONTEXTS CALLS | long-domain | "
                         "collide | spread | statistics\n");
    return 2;
}
