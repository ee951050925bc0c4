// SPDX-License-Identifier: MIT
// The one way both ends of the bus open their connection.
#pragma once

#include "services/dbus/EventLoop.h"
#include "services/dbus/SdBus.h"

#include <string>

namespace tessiva::detail::bus {
// Which bus a connection goes to.
struct BusAddress {
    enum class Kind { session, system, address } kind = Kind::session;
    std::string address; // for Kind::address, as in DBUS_SESSION_BUS_ADDRESS
};

// Opens a started client connection to the bus, attached to the loop when
// there is one; the negative error number when it cannot, `bus` then null.
int connectToBus(const BusAddress& where, EventLoop* loop, BusRef& bus);

// Whether the connection reaches the machine's system bus, by whatever
// address: its bus is the one sd_bus_open_system reaches (the same bus id).
// False when there is no system bus to reach; true when the connection's own
// id cannot be read, so that a doubt counts as the system bus.
bool reachesSystemBus(sd_bus* bus);
} // namespace tessiva::detail::bus
