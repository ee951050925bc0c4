// SPDX-License-Identifier: MIT
// A polkit authority for fprintd's tests, on the bus DBUS_SYSTEM_BUS_ADDRESS
// names: it allows every action to every caller, so that fprintd lets the
// tests enrol and verify any user, or, given "deny", refuses every one.
// Prints "ready" once it owns its name and serves until it is killed.
#include "services/dbus/SdBus.h"

#include <cstdio>
#include <cstring>

namespace {
using tessiva::detail::bus::BusRef;
using tessiva::detail::bus::SlotRef;

bool allows = true;

int checkAuthorization(sd_bus_message* call, void*, sd_bus_error*) {
    // (is_authorized, is_challenge, details)
    return sd_bus_reply_method_return(call, "(bba{ss})", int(allows), 0, 0);
}

int registerAgent(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "");
}

const sd_bus_vtable authority[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("CheckAuthorization", "(sa{sv})sa{ss}us", "(bba{ss})", checkAuthorization, 0),
    SD_BUS_METHOD("RegisterAuthenticationAgent", "(sa{sv})ss", "", registerAgent, 0),
    SD_BUS_METHOD("UnregisterAuthenticationAgent", "(sa{sv})s", "", registerAgent, 0),
    SD_BUS_VTABLE_END};

int fail(const char* what, int result) {
    std::fprintf(stderr, "polkit stand-in: %s: %s\n", what, std::strerror(-result));
    return 1;
}
} // namespace

int main(int argc, char** argv) {
    allows = !(argc > 1 && std::strcmp(argv[1], "deny") == 0);
    BusRef bus;
    SlotRef object;
    int result = sd_bus_open_system(bus.put());
    if (result < 0)
        return fail("cannot connect", result);
    result =
        sd_bus_add_object_vtable(bus.get(), object.put(), "/org/freedesktop/PolicyKit1/Authority",
                                 "org.freedesktop.PolicyKit1.Authority", authority, nullptr);
    if (result < 0)
        return fail("cannot serve the authority", result);
    result = sd_bus_request_name(bus.get(), "org.freedesktop.PolicyKit1", 0);
    if (result < 0)
        return fail("cannot own org.freedesktop.PolicyKit1", result);
    std::printf("ready\n");
    std::fflush(stdout);
    for (;;) {
        result = sd_bus_process(bus.get(), nullptr);
        if (result == 0)
            result = sd_bus_wait(bus.get(), UINT64_MAX);
        if (result < 0)
            return fail("lost the bus", result);
    }
}
