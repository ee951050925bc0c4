// SPDX-License-Identifier: MIT
// An address names a bus the connection must register on, as the session and
// system buses do by themselves.
#include "BusConnect.h"

#include <cerrno>
#include <systemd/sd-id128.h>

namespace tessiva::detail::bus {
int connectToBus(const BusAddress& where, EventLoop* loop, BusRef& bus) {
    bus.reset();
    if (loop && !loop->usable())
        return -ENOMEM;
    int result = 0;
    switch (where.kind) {
    case BusAddress::Kind::address:
        result = sd_bus_new(bus.put());
        if (result >= 0)
            result = sd_bus_set_address(bus.get(), where.address.c_str());
        if (result >= 0)
            result = sd_bus_set_bus_client(bus.get(), 1);
        if (result >= 0)
            result = sd_bus_start(bus.get());
        break;
    case BusAddress::Kind::system:
        result = sd_bus_open_system(bus.put());
        break;
    case BusAddress::Kind::session:
        result = sd_bus_open_user(bus.put());
        break;
    }
    if (result >= 0 && loop)
        result = sd_bus_attach_event(bus.get(), loop->event(), 0);
    if (result < 0)
        bus.reset();
    return result;
}

bool reachesSystemBus(sd_bus* bus) {
    sd_id128_t id{};
    if (sd_bus_get_bus_id(bus, &id) < 0)
        return true;
    BusRef system;
    sd_id128_t systemId{};
    if (sd_bus_open_system(system.put()) < 0 || sd_bus_get_bus_id(system.get(), &systemId) < 0)
        return false;
    return sd_id128_equal(id, systemId);
}
} // namespace tessiva::detail::bus
