// Daemon: the org.tessiva.Authentication1 object. It relays each method to
// the hosted service's clients, owns the bookkeeping of who may use what,
// and answers bad peers with D-Bus errors. Everything here runs on the
// loop's thread; only RelayDelegate is reached from service threads.
#pragma once

#include "HostedService.h"
#include "RelayDelegate.h"
#include "services/dbus/EventLoop.h"
#include "tessiva/kavelin/KVClient.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <sys/types.h>
#include <systemd/sd-bus.h>
#include <unordered_map>

namespace tessiva::daemon {
struct DaemonLimits {
    // How long a context outlives the last client process that used it.
    std::chrono::seconds idleTime{300};
    std::size_t contextsPerUser = 64;
    std::size_t clientsPerConnection = 256;
};

class Daemon {
public:
    using ReplyWriter =
        std::function<ObRef<ObError>(sd_bus_message*, const ObRef<ObError>& failure)>;

    // The loop is shared with the replies the hosted service may still give
    // after the daemon has gone: they post to it, and it runs them no more.
    Daemon(std::shared_ptr<detail::bus::EventLoop> loop, sd_bus* bus,
           std::unique_ptr<HostedServices> services, DaemonLimits limits);
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // Registers the object and watches for client processes going; the
    // error number when it cannot.
    int start();

private:
    struct Client {
        std::string owner; // the unique bus name of the process
        std::string handleKey;
        ObRef<KVClient> client;
        ObRef<RelayDelegate> relay; // absent without a delegate
        std::size_t evaluations = 0;
        // Its process has gone; it stays until its evaluations have ended in
        // the service, since until then they still hold the context.
        bool gone = false;
    };
    struct Context {
        uid_t uid = 0; // its service is services_->forUser(uid)
        ObRef<ObData> handle;
        ObRef<ObString> creator;
        std::size_t clients = 0;
        sd_event_source* idleTimer = nullptr;
    };

    static const sd_bus_vtable vtable[];
    static int onConnect(sd_bus_message*, void*, sd_bus_error*);
    static int onRelease(sd_bus_message*, void*, sd_bus_error*);
    static int onInvalidate(sd_bus_message*, void*, sd_bus_error*);
    static int onEvaluatePolicy(sd_bus_message*, void*, sd_bus_error*);
    static int onEvaluateACL(sd_bus_message*, void*, sd_bus_error*);
    static int onEnterPassword(sd_bus_message*, void*, sd_bus_error*);
    static int onFailProcessedEvent(sd_bus_message*, void*, sd_bus_error*);
    static int onAnswerEvent(sd_bus_message*, void*, sd_bus_error*);
    static int onEventReturned(sd_bus_message*, void*, sd_bus_error*);
    static int onStatistics(sd_bus_message*, void*, sd_bus_error*);
    static int onNameOwnerChanged(sd_bus_message*, void*, sd_bus_error*);
    static int onIdle(sd_event_source*, uint64_t, void*);

    // The caller's client, or null with an UnknownClient error set.
    Client* callersClient(sd_bus_message* call, std::uint64_t id, sd_bus_error* error);
    // Keeps the call for a reply that comes later; its number.
    std::uint64_t defer(sd_bus_message* call);
    // Replies to a deferred call with what `write` appends; when that fails
    // to encode a value, once more with the failure to report instead.
    void replyLater(std::uint64_t call, const ReplyWriter& write);
    // Defers the call, and makes the callback for the service's reply to it:
    // on the loop's thread, it replies with what `write` makes of the
    // service's reply, then runs `then`.
    template <class Write, class Then = void (*)()>
    auto replyCallback(
        sd_bus_message* call, Write write, Then then = [] {});
    // Registers the client the service made; its number, 0 for none.
    std::uint64_t finishConnect(std::uint64_t call, const std::string& owner, uid_t uid,
                                const ObRef<ObString>& creator, const ObRef<RelayDelegate>& relay,
                                const ObRef<KVClient>& client, const ObRef<ObError>& failure);
    void sendEvent(const std::string& owner, std::uint64_t client, std::uint64_t serial,
                   ObInteger event, const ObRef<ObDictionary>& params, RelayDelegate& relay);
    void release(std::uint64_t id);
    void forgetContext(const std::string& key);
    void armIdleTimer(const std::string& key, Context& context);

    const std::shared_ptr<detail::bus::EventLoop> loop_;
    sd_bus* bus_;
    const std::unique_ptr<HostedServices> services_;
    const DaemonLimits limits_;
    sd_bus_slot* objectSlot_ = nullptr;
    sd_bus_slot* ownerSlot_ = nullptr;
    std::unordered_map<std::uint64_t, Client> clients_;
    std::unordered_map<std::string, Context> contexts_;
    std::unordered_map<std::string, std::set<std::uint64_t>> clientsByOwner_;
    std::map<std::uint64_t, sd_bus_message*> deferred_;
    std::uint64_t nextCall_ = 1;
};
} // namespace tessiva::daemon
