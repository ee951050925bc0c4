// SPDX-License-Identifier: MIT
// Daemon: the org.tessiva.Authentication1 object. It relays each method to
// the hosted service's clients, owns the bookkeeping of who may use what,
// and answers bad peers with D-Bus errors. Everything here runs on the
// loop's thread or under the loop's lock: sendEvent, which RelayDelegate
// calls from service threads, and the replies to evaluations, which the
// service threads send themselves.
//
// Every peer is a stranger: a caller reaches only its own clients (by a
// path of 128 random bits) and its own user's contexts; only the bus itself
// can say that a peer left; each user's contexts, clients, evaluations and
// calls awaiting a reply are limited, and so are all users' together, a
// call beyond a limit getting org.freedesktop.DBus.Error.LimitsExceeded;
// services run on a fixed pool of threads shared fairly among users; and
// each user's guessing is limited across all of its contexts (AttemptGuard).
#pragma once

#include "HostedService.h"
#include "RelayDelegate.h"
#include "services/core/AttemptGuard.h"
#include "services/core/ServiceThread.h"
#include "services/dbus/EventLoop.h"
#include "services/dbus/LoopDriver.h"
#include "services/dbus/SdBus.h"
#include "tessiva/kavelin/KVClient.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <sys/types.h>
#include <systemd/sd-bus.h>
#include <unordered_map>

namespace tessiva::daemon {
struct DaemonLimits {
    // How long a context outlives the last client process that used it.
    std::chrono::seconds idleTime{300};
    // Per user. A call awaiting a reply holds its message, which the value
    // bounds keep under about 150 KiB, so `pendingPerUser` also bounds the
    // bytes a user makes the daemon hold.
    std::size_t contextsPerUser = 64;
    std::size_t evaluationsPerUser = 8;
    std::size_t pendingPerUser = 64;
    std::size_t clientsPerConnection = 256;
    // All users together.
    std::size_t contexts = 4096;
    std::size_t clients = 16384;
    std::size_t evaluations = 256;
    std::size_t pending = 1024;
    // The service threads; one user's work runs on half of them at most.
    std::size_t threads = 16;
    // An evaluation ends when the user has not answered within this time.
    std::chrono::seconds answerTimeout{300};
    detail::AttemptLimits attempts;
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
        uid_t uid = 0;
        pid_t pid = 0;
        std::string handleKey;
        ObRef<KVClient> client;
        ObRef<RelayDelegate> relay; // absent without a delegate
        ClientState state = ClientState::connected;
        std::size_t evaluations = 0; // policy evaluations the service has not ended
        // The answer time-out of the last evaluation begun (CLOCK_MONOTONIC,
        // microseconds), and the timer that keeps it.
        std::uint64_t answerDeadline = 0;
        detail::bus::DisabledSourceRef answerTimer;
    };
    struct Context {
        uid_t uid = 0; // its service is services_->forUser(uid)
        ObRef<ObData> handle;
        ObRef<ObString> creator;
        std::size_t clients = 0;
        detail::bus::DisabledSourceRef idleTimer; // armed while it has no client
    };
    // A connection that called Connect.
    struct Owner {
        uid_t uid = 0;
        std::size_t clients = 0; // those not released
    };
    // What one user holds.
    struct User {
        std::size_t contexts = 0;
        std::size_t evaluations = 0;
        std::size_t pending = 0;
        ObRef<detail::AttemptGuard> guard;
    };
    // One evaluation, for the audit line.
    struct Attempt {
        uid_t uid = 0;
        pid_t pid = 0;
        std::int64_t policy = 0;
    };
    struct Pending {
        detail::bus::MessageRef call;
        uid_t uid = 0;
    };

    // Each method's arguments after the client's path, and how they are read.
    struct NoArguments;
    struct PolicyArguments;
    struct ACLArguments;
    struct PasswordArguments;
    struct FailureArguments;
    struct AnswerArguments;
    // A method on one of the caller's clients, as an sd-bus callback: reads
    // the client's path and checks that the caller owns the client
    // (UnknownClient otherwise) before it reads the method's arguments and
    // runs it.
    template <class Arguments, int (Daemon::*method)(sd_bus_message*, const std::string&, Client&,
                                                     Arguments&, sd_bus_error*)>
    static int onClientMethod(sd_bus_message* call, void* userdata, sd_bus_error* error);

    static const sd_bus_vtable vtable[];
    static int onConnect(sd_bus_message*, void*, sd_bus_error*);
    int connect(sd_bus_message*, sd_bus_error*);
    static int onStatistics(sd_bus_message*, void*, sd_bus_error*);
    static int onNameOwnerChanged(sd_bus_message*, void*, sd_bus_error*);
    static int onIdle(sd_event_source*, uint64_t, void*);
    static int onAnswerTimeout(sd_event_source*, uint64_t, void*);
    int onRelease(sd_bus_message*, const std::string& id, Client&, NoArguments&, sd_bus_error*);
    int onInvalidate(sd_bus_message*, const std::string& id, Client&, NoArguments&, sd_bus_error*);
    int onEvaluatePolicy(sd_bus_message*, const std::string& id, Client&, PolicyArguments&,
                         sd_bus_error*);
    int onEvaluateACL(sd_bus_message*, const std::string& id, Client&, ACLArguments&,
                      sd_bus_error*);
    int onEnterPassword(sd_bus_message*, const std::string& id, Client&, PasswordArguments&,
                        sd_bus_error*);
    int onFailProcessedEvent(sd_bus_message*, const std::string& id, Client&, FailureArguments&,
                             sd_bus_error*);
    int onAnswerEvent(sd_bus_message*, const std::string& id, Client&, AnswerArguments&,
                      sd_bus_error*);

    // Whether the user may have one more call awaiting a reply; the refusal
    // in `error` otherwise.
    int admitPending(uid_t uid, sd_bus_error* error);
    // Keeps the call for a reply that comes later; its number.
    std::uint64_t defer(sd_bus_message* call, uid_t uid);
    // Replies to the call with what `write` appends; when that fails to
    // encode a value, once more with the failure to report instead.
    void reply(sd_bus_message* call, const ReplyWriter& write);
    // The same for a deferred call, unless its caller has gone.
    void replyLater(std::uint64_t call, const ReplyWriter& write);
    // Defers the call, and makes the callback for the service's reply to it:
    // on the loop's thread, it replies with what `write` makes of the
    // service's reply, then runs `then` with the service's error.
    template <class Write, class Then = void (*)(const ObRef<ObError>&)>
    auto replyCallback(
        sd_bus_message* call, uid_t uid, Write write, Then then = [](const ObRef<ObError>&) {});
    // Registers the client the service made; its path, empty for none.
    std::string finishConnect(std::uint64_t call, const std::string& owner, uid_t uid, pid_t pid,
                              const ObRef<ObString>& creator, const ObRef<RelayDelegate>& relay,
                              const ObRef<KVClient>& client, const ObRef<ObError>& failure);
    void sendEvent(const std::string& owner, const std::string& client, std::uint64_t serial,
                   ObInteger event, const ObRef<ObDictionary>& params, RelayDelegate& relay);
    // Writes the audit line of an evaluation's end.
    void audit(const Attempt& attempt, const ObRef<ObError>& error) const;
    User& user(uid_t uid);

    // Client states.
    // A new client of the owner on the context, connected; its path.
    std::string admit(const std::string& owner, uid_t uid, pid_t pid, const std::string& key,
                      Context& context, const ObRef<KVClient>& client,
                      const ObRef<RelayDelegate>& relay);
    // A policy evaluation starts or ends for the client.
    void startEvaluation(const std::string& id, Client& client);
    void endEvaluation(const std::string& id, const Attempt& attempt, const ObRef<ObError>& error);
    // The client's process has left the bus, or released the client: its
    // evaluations stop, and it goes once they have ended.
    void letGo(const std::string& id);
    // The client goes for good, and the context idles once it has no client.
    void release(const std::string& id);

    void forgetContext(const std::string& key);
    // Arms `source` to run `handler` after `delay`, with a TimerTarget of
    // this daemon and the key (a client's path or a context's) as userdata.
    struct TimerTarget;
    void armTimer(detail::bus::DisabledSourceRef& source, std::chrono::seconds delay,
                  sd_event_time_handler_t handler, const std::string& key,
                  std::uint64_t accuracyUsec = 0);
    void armIdleTimer(const std::string& key, Context& context);
    void rearmAnswerTimer(Client& client);
    // Takes work to run on the loop's thread when it is free; see driver_.
    bool runWhereServed(std::function<void()>& work);

    const std::shared_ptr<detail::bus::EventLoop> loop_;
    sd_bus* bus_; // owned by the caller, which keeps it open while the daemon lives
    const std::unique_ptr<HostedServices> services_;
    const DaemonLimits limits_;
    const std::shared_ptr<detail::ServicePool> pool_;
    // Evaluations that wait only for their caller run on the loop's thread,
    // one at a time, serving the bus while they wait.
    detail::bus::LoopDriver driver_;
    bool servingHere_ = false;
    detail::bus::SlotRef objectSlot_;
    detail::bus::SlotRef ownerSlot_;
    std::unordered_map<std::string, Client> clients_;
    std::unordered_map<std::string, Context> contexts_;
    std::unordered_map<std::string, Owner> owners_;
    std::unordered_map<uid_t, User> users_;
    std::map<std::uint64_t, Pending> deferred_;
    std::size_t evaluations_ = 0;
    std::uint64_t nextCall_ = 1;
};
} // namespace tessiva::daemon
