// SPDX-License-Identifier: MIT
// tessiva_bus_ping: the daemon benchmark's raw baseline. One method on the
// bus, Ping(x) -> x, answered by plain sd-bus on one thread, so that a round
// trip through the bus can be set beside one through tessivad.
//
//   tessiva_bus_ping ADDRESS    # prints "ready" once it owns its name
#include "PingNames.h"
#include "services/dbus/SdBus.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {
using namespace tessiva::detail::bus;

int answer(sd_bus_message* message, void*, sd_bus_error*) {
    if (!sd_bus_message_is_method_call(message, tessiva::bench::pingInterface, "Ping"))
        return 0;
    std::int64_t value = 0;
    const int read = sd_bus_message_read(message, "x", &value);
    return read < 0 ? read : sd_bus_reply_method_return(message, "x", value);
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
