// Daemon: the org.tessiva.Authentication1 object. It relays each method to
// the hosted service's clients, owns the bookkeeping of who may use what,
// and answers bad peers with D-Bus errors. Everything here runs on the
// loop's thread; only RelayDelegate is reached from service threads.
#pragma once

#include "HostedService.h"
#include "RelayDelegate.h"
#include "services/dbus/EventLoop.h"
#include "services/dbus/SdBus.h"
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
    // A client's life: connected; evaluating while the service evaluates a
    // policy for it; gone once its process has left but an evaluation still
    // holds the context, until the last one ends. Only the functions under
    // "Client states" in Daemon.cpp move a client from one state to another.
    enum class ClientState { connected, evaluating, gone };
    struct Client {
        std::string owner; // the unique bus name of the process
        std::string handleKey;
        ObRef<KVClient> client;
        ObRef<RelayDelegate> relay; // absent without a delegate
        ClientState state = ClientState::connected;
        std::size_t evaluations = 0; // policy evaluations the service has not ended
    };
    struct Context {
        uid_t uid = 0; // its service is services_->forUser(uid)
        ObRef<ObData> handle;
        ObRef<ObString> creator;
        std::size_t clients = 0;
        detail::bus::DisabledSourceRef idleTimer; // armed while it has no client
    };

    // Each method's arguments after the client's number, and how they are read.
    struct NoArguments;
    struct PolicyArguments;
    struct ACLArguments;
    struct PasswordArguments;
    struct FailureArguments;
    struct AnswerArguments;
    struct ReturnArguments;
    // A method on one of the caller's clients, as an sd-bus callback: reads
    // the client's number, then the method's arguments, then checks that the
    // caller owns the client (UnknownClient otherwise) before running it.
    template <class Arguments,
              int (Daemon::*method)(sd_bus_message*, std::uint64_t, Client&, Arguments&)>
    static int onClientMethod(sd_bus_message* call, void* userdata, sd_bus_error* error);

    static const sd_bus_vtable vtable[];
    static int onConnect(sd_bus_message*, void*, sd_bus_error*);
    static int onStatistics(sd_bus_message*, void*, sd_bus_error*);
    static int onNameOwnerChanged(sd_bus_message*, void*, sd_bus_error*);
    static int onIdle(sd_event_source*, uint64_t, void*);
    int onRelease(sd_bus_message*, std::uint64_t id, Client&, NoArguments&);
    int onInvalidate(sd_bus_message*, std::uint64_t id, Client&, NoArguments&);
    int onEvaluatePolicy(sd_bus_message*, std::uint64_t id, Client&, PolicyArguments&);
    int onEvaluateACL(sd_bus_message*, std::uint64_t id, Client&, ACLArguments&);
    int onEnterPassword(sd_bus_message*, std::uint64_t id, Client&, PasswordArguments&);
    int onFailProcessedEvent(sd_bus_message*, std::uint64_t id, Client&, FailureArguments&);
    int onAnswerEvent(sd_bus_message*, std::uint64_t id, Client&, AnswerArguments&);
    int onEventReturned(sd_bus_message*, std::uint64_t id, Client&, ReturnArguments&);

    // Keeps the call for a reply that comes later; its number.
    std::uint64_t defer(sd_bus_message* call);
    // Replies to the call with what `write` appends; when that fails to
    // encode a value, once more with the failure to report instead.
    void reply(sd_bus_message* call, const ReplyWriter& write);
    // The same for a deferred call, unless its caller has gone.
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

    // Client states.
    // A new client of the owner on the context, connected; its number.
    std::uint64_t admit(const std::string& owner, const std::string& key, Context& context,
                        const ObRef<KVClient>& client, const ObRef<RelayDelegate>& relay);
    // A policy evaluation starts or ends for the client.
    void startEvaluation(Client& client);
    void endEvaluation(std::uint64_t id);
    // The client's process has left the bus.
    void ownerGone(std::uint64_t id);
    // The client goes for good, and the context idles once it has no client.
    void release(std::uint64_t id);

    void forgetContext(const std::string& key);
    void armIdleTimer(const std::string& key, Context& context);

    const std::shared_ptr<detail::bus::EventLoop> loop_;
    sd_bus* bus_; // owned by the caller, which keeps it open while the daemon lives
    const std::unique_ptr<HostedServices> services_;
    const DaemonLimits limits_;
    detail::bus::SlotRef objectSlot_;
    detail::bus::SlotRef ownerSlot_;
    std::unordered_map<std::uint64_t, Client> clients_;
    std::unordered_map<std::string, Context> contexts_;
    // Every connection that called Connect, with its clients that are not gone.
    std::unordered_map<std::string, std::set<std::uint64_t>> clientsByOwner_;
    std::map<std::uint64_t, detail::bus::MessageRef> deferred_;
    std::uint64_t nextCall_ = 1;
};
} // namespace tessiva::daemon
