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
} // namespace tessiva::detail::bus
