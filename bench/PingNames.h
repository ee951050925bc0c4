// SPDX-License-Identifier: MIT
// The raw ping server's names, and the one way both its ends open a
// connection to the bus.
#pragma once

#include "services/dbus/SdBus.h"

namespace tessiva::bench {
inline constexpr char pingName[] = "org.tessiva.BenchPing";
inline constexpr char pingPath[] = "/org/tessiva/BenchPing";
inline constexpr char pingInterface[] = "org.tessiva.BenchPing";

// A started client connection to the bus at `address`; the negative error
// number when it cannot be opened.
inline int openBus(const char* address, detail::bus::BusRef& bus) {
    int result = sd_bus_new(bus.put());
    if (result >= 0)
        result = sd_bus_set_address(bus.get(), address);
    if (result >= 0)
        result = sd_bus_set_bus_client(bus.get(), 1);
    if (result >= 0)
        result = sd_bus_start(bus.get());
    return result;
}
} // namespace tessiva::bench
