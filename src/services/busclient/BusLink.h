// SPDX-License-Identifier: MIT
// BusLink: the client side's connection to the daemon, with the loop thread
// that reads it and runs callers' callbacks. A thread waiting for a reply
// reads the connection itself meanwhile, so a callback that blocks, or that
// calls the daemon and waits, never stalls a call.
#pragma once

#include "platform/brindle/KVErrors.h"
#include "services/dbus/BusConnect.h"
#include "services/dbus/BusInterface.h"
#include "services/dbus/EventLoop.h"
#include "services/dbus/SdBus.h"
#include "tessiva/kavelin/KVUIDelegate.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <systemd/sd-bus.h>
#include <vector>

namespace tessiva::detail::bus {
// Appends a call's arguments; the error when a value cannot cross the bus.
using ArgumentWriter = std::function<ObRef<ObError>(sd_bus_message*)>;
// Reads a reply on the loop's thread; `failure` is set instead when the call
// failed (argument, bus or daemon error) and `reply` is then null.
using ReplyReader = std::function<void(sd_bus_message* reply, ObRef<ObError> failure)>;

// The client side's errors for a daemon that cannot be reached (with why),
// and for a reply that is not what the interface says.
ObRef<ObError> unreachableError(std::string_view why);
ObRef<ObError> malformedReplyError();

class BusLink : public std::enable_shared_from_this<BusLink> {
public:
    // Connects to the bus; null with the reason when it cannot. The loop
    // thread stops once the last owner lets go, and ends on its own when
    // that owner is one of its callbacks.
    static std::shared_ptr<BusLink> open(const BusAddress& where, std::string& problem);

    // False once the connection is lost; a lost link is not used again.
    bool connected() const noexcept { return connected_.load(); }

    // Calls a method of the daemon; `read` runs on the loop's thread. With
    // `forever` the call waits as long as the daemon takes (evaluations).
    void call(const char* member, ArgumentWriter write, ReplyReader read, bool forever = false);
    // The same, waiting on the calling thread for `read` to have run.
    void callAndWait(const char* member, ArgumentWriter write, ReplyReader read);
    // Sends a method call whose reply nobody waits for.
    void send(const char* member, ArgumentWriter write);

    // Where events for the client (its path) go, until forgotten: those
    // signalled on the client's path by the daemon, which has that unique
    // name. Any other peer may send a signal, but not under that name.
    void addDelegate(const std::string& client, const char* daemon, ObRef<KVUIDelegate> delegate);
    void forgetDelegate(const std::string& client);

    // Runs a caller's callback on the loop's thread, in order after those
    // of the events and replies that came before.
    void defer(std::function<void()> task) { loop_.defer(std::move(task)); }

private:
    BusLink() = default;
    struct Grip;
    static int onMessage(sd_bus_message* message, void* self, sd_bus_error* error);
    void deliverEvent(sd_bus_message* message);
    // An event's delegate call, whether it has returned, and the answer it
    // gave before it did.
    struct EventCall {
        std::string client;
        std::uint64_t serial = 0;
        std::mutex mutex;
        bool returned = false;
        bool answered = false;
        bool sent = false; // the answer went ahead of the return
        ObRef<ObDictionary> response;
        ObRef<ObError> error;
    };
    // Sends the answers that delegates still in their calls have given, so
    // that the process's next call to the daemon cannot overtake them.
    void sendHeldAnswers();
    // Tells the daemon how the delegate's call for the event ended and, if
    // it has by then, what it answered.
    void answerEvent(const std::string& client, std::uint64_t serial, EventOutcome outcome,
                     const std::string& thrown, bool answered, const ObRef<ObDictionary>& response,
                     const ObRef<ObError>& error);
    // Sends on the loop's thread.
    void sendNow(const char* member, const ArgumentWriter& write, ReplyReader read, bool forever);

    EventLoop loop_;
    BusRef bus_;
    std::atomic<bool> connected_{true};
    std::mutex delegatesMutex_;
    struct Delegate {
        std::string daemon;
        ObRef<KVUIDelegate> delegate;
    };
    std::map<std::string, Delegate> delegates_;
    std::mutex callsMutex_;
    std::vector<std::shared_ptr<EventCall>> calls_; // delegates in their calls
};
} // namespace tessiva::detail::bus
