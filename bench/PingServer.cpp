// SPDX-License-Identifier: MIT
// tessiva_bus_ping: the daemon benchmark's raw baselines, answered by plain
// sd-bus on one thread. Ping(x) -> x is one round trip through the bus.
// Exchange(x) -> x is the shape of an evaluation with one event: the server
// sends the caller the signal Asked(x), the caller answers with Answer(x)
// (no reply expected), and only then does Exchange return: four messages,
// two round trips, the floor of tessivad's protocol.
//
//   tessiva_bus_ping ADDRESS    # prints "ready" once it owns its name
#include "PingNames.h"
#include "services/dbus/SdBus.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace {
using namespace tessiva::detail::bus;

// Each caller's Exchange waiting for its Answer, by sender.
std::map<std::string, MessageRef> exchanges;

int ask(sd_bus_message* call, std::int64_t value) {
    const char* sender = sd_bus_message_get_sender(call);
    if (!sender)
        return -EINVAL;
    MessageRef signal;
    int result =
        sd_bus_message_new_signal(sd_bus_message_get_bus(call), signal.put(),
                                  tessiva::bench::pingPath, tessiva::bench::pingInterface, "Asked");
    if (result >= 0)
        result = sd_bus_message_set_destination(signal.get(), sender);
    if (result >= 0)
        result = sd_bus_message_append(signal.get(), "x", value);
    if (result >= 0)
        result = sd_bus_send(nullptr, signal.get(), nullptr);
    if (result >= 0)
        exchanges[sender] = MessageRef(sd_bus_message_ref(call));
    return result < 0 ? result : 1;
}

int answer(sd_bus_message* message, void*, sd_bus_error*) {
    using tessiva::bench::pingInterface;
    std::int64_t value = 0;
    if (sd_bus_message_is_method_call(message, pingInterface, "Ping")) {
        const int read = sd_bus_message_read(message, "x", &value);
        return read < 0 ? read : sd_bus_reply_method_return(message, "x", value);
    }
    if (sd_bus_message_is_method_call(message, pingInterface, "Exchange")) {
        const int read = sd_bus_message_read(message, "x", &value);
        return read < 0 ? read : ask(message, value);
    }
    if (sd_bus_message_is_method_call(message, pingInterface, "Answer")) {
        const char* sender = sd_bus_message_get_sender(message);
        const auto waiting = sender ? exchanges.find(sender) : exchanges.end();
        if (waiting == exchanges.end() || sd_bus_message_read(message, "x", &value) < 0)
            return 1;
        const MessageRef call = std::move(waiting->second);
        exchanges.erase(waiting);
        const int replied = sd_bus_reply_method_return(call.get(), "x", value);
        return replied < 0 ? replied : 1;
    }
    return 0;
}

int fail(const char* what, int result) {
    std::fprintf(stderr, "tessiva_bus_ping: %s: %s\n", what, std::strerror(-result));
    return 1;
}
} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("Usage: tessiva_bus_ping ADDRESS\n", stderr);
        return 2;
    }
    BusRef bus;
    int result = tessiva::bench::openBus(argv[1], bus);
    if (result < 0)
        return fail("cannot connect", result);
    SlotRef slot;
    result = sd_bus_add_object(bus.get(), slot.put(), tessiva::bench::pingPath, answer, nullptr);
    if (result >= 0)
        result = sd_bus_request_name(bus.get(), tessiva::bench::pingName, 0);
    if (result < 0)
        return fail("cannot serve", result);
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
        result = sd_bus_process(bus.get(), nullptr);
        if (result == 0)
            result = sd_bus_wait(bus.get(), UINT64_MAX);
        if (result < 0)
            return result == -ECONNRESET || result == -ENOTCONN ? 0 : fail("bus", result);
    }
}
