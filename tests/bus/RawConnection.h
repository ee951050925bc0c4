// SPDX-License-Identifier: MIT
// A connection of the test's own to a private bus, for what the client
// backend never sends: calls to the daemon with arguments of the test's
// choosing, and the daemon's figures.
#pragma once

#include "services/dbus/BusConnect.h"
#include "services/dbus/BusInterface.h"
#include "support/Deadline.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <systemd/sd-bus.h>

namespace tessiva::test {

class RawConnection {
public:
    explicit RawConnection(const std::string& address) {
        detail::bus::connectToBus({detail::bus::BusAddress::Kind::address, address}, nullptr, bus_);
    }
    // Calls the daemon's method with arguments that `write` appends; "ok",
    // or the D-Bus error's name and message.
    std::string call(const char* member, const std::function<void(sd_bus_message*)>& write,
                     detail::bus::MessageRef* replyOut = nullptr) {
        detail::bus::MessageRef message;
        sd_bus_message_new_method_call(bus_.get(), message.put(), detail::bus::busName,
                                       detail::bus::objectPath, detail::bus::interfaceName, member);
        write(message.get());
        detail::bus::BusError error;
        detail::bus::MessageRef reply;
        const int result = sd_bus_call(bus_.get(), message.get(), 0, error.get(), reply.put());
        if (replyOut != nullptr)
            *replyOut = std::move(reply);
        return result >= 0 ? "ok" : std::string(error.name()) + ": " + error.message();
    }

    // Calls without waiting; `replied` is set once the reply has come (run
    // awaitReply to let it).
    void callAsync(const char* member, const std::function<void(sd_bus_message*)>& write,
                   bool& replied) {
        detail::bus::MessageRef message;
        sd_bus_message_new_method_call(bus_.get(), message.put(), detail::bus::busName,
                                       detail::bus::objectPath, detail::bus::interfaceName, member);
        write(message.get());
        auto done = [](sd_bus_message*, void* flag, sd_bus_error*) {
            *static_cast<bool*>(flag) = true;
            return 0;
        };
        sd_bus_call_async(bus_.get(), nullptr, message.get(), done, &replied, 0);
    }
    void awaitReply(const bool& replied) {
        waitUntil(
            [&] {
                while (!replied && sd_bus_process(bus_.get(), nullptr) > 0) {
                }
                return replied || sd_bus_wait(bus_.get(), 100000) < 0;
            },
            "a reply");
    }

    // The daemon's counts.
    std::map<std::string, std::uint64_t> statistics() {
        detail::bus::MessageRef reply;
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

    // The unique name of the connection that owns the name; empty when none.
    std::string ownerOf(const char* name) {
        detail::bus::BusError error;
        detail::bus::MessageRef reply;
        const char* owner = nullptr;
        if (sd_bus_call_method(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "GetNameOwner", error.get(), reply.put(),
                               "s", name) < 0 ||
            sd_bus_message_read(reply.get(), "s", &owner) < 0)
            return {};
        return owner;
    }

private:
    detail::bus::BusRef bus_;
};

} // namespace tessiva::test
