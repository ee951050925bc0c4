// SPDX-License-Identifier: MIT
// The daemon's methods: checks who calls and with what, then relays to the
// hosted service's clients; replies that come later go out from the loop.
#include "Daemon.h"

#include "platform/brindle/KVErrors.h"
#include "platform/object/RandomBytes.h"
#include "platform/os/UserName.h"
#include "services/core/ServiceClient.h"
#include "services/dbus/BusInterface.h"
#include "services/dbus/ValueCodec.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/ObMake.h"

#include <cinttypes>
#include <cstdio>
#include <set>
#include <vector>

namespace tessiva::daemon {
using namespace detail::bus;

namespace {
// The answer timer fires within a millisecond of its deadline; sd-event's
// default slack of a quarter second would let it pass a later evaluation's.
constexpr std::uint64_t answerAccuracyUsec = 1000;

OB_CONSTANT_STRING(unknownHandleMessage, "No context matches the handle.");
OB_CONSTANT_STRING(noticesMessage, "The reply cannot hold the evaluation's notices.");

ObRef<ObError> encodingFailure() {
    return KVErrorHelper::parameterErrorWithMessage(&noticesMessage);
}

int refuse(sd_bus_error* error, const char* name, const std::string& text) {
    return sd_bus_error_set(error, name, text.c_str());
}

// Refuses a call beyond a limit: "<who> may <verb> <limit> <what> at most".
int limitExceeded(sd_bus_error* error, const char* who, std::size_t limit, const char* what) {
    return refuse(error, SD_BUS_ERROR_LIMITS_EXCEEDED,
                  std::string(who) + " " + std::to_string(limit) + " " + what + " at most");
}

// Reads one value of the wanted kind (or absent); the D-Bus error otherwise.
template <class T>
int readArgument(sd_bus_message* call, ObRef<T>& value, const char* what, const char* kind,
                 sd_bus_error* error) {
    ObRef<ObObject> read;
    if (std::string problem = readValue(call, read); !problem.empty())
        return refuse(error, errorInvalidValue, std::string(what) + ": " + problem);
    if (read && !(value = ob_cast<T>(read)))
        return refuse(error, errorInvalidValue, std::string(what) + " must be " + kind);
    return 0;
}

std::string keyOf(const ObData& handle) {
    return std::string(reinterpret_cast<const char*>(handle.bytes()), handle.length());
}

// A client's path: 128 bits from the kernel's random source, which no other
// process can guess.
std::string randomClientPath() {
    unsigned char bytes[16];
    detail::fillRandomBytes(bytes, sizeof bytes);
    std::string path = clientPathPrefix;
    for (unsigned char byte : bytes) {
        constexpr char digits[] = "0123456789abcdef";
        path += digits[byte >> 4];
        path += digits[byte & 15];
    }
    return path;
}

// The caller's uid as the bus reports it: the effective uid the peer had
// when it connected, never anything read from /proc, where a process may
// change it. Refuses the call when the bus cannot say.
int callerUid(sd_bus_message* call, uid_t& uid, sd_bus_error* error, pid_t* pid = nullptr) {
    CredsRef creds;
    int result = sd_bus_query_sender_creds(call, SD_BUS_CREDS_EUID | SD_BUS_CREDS_PID, creds.put());
    if (result >= 0)
        result = sd_bus_creds_get_euid(creds.get(), &uid);
    if (result < 0)
        return refuse(error, SD_BUS_ERROR_ACCESS_DENIED, "The caller's user is unknown");
    if (pid != nullptr && sd_bus_creds_get_pid(creds.get(), pid) < 0)
        *pid = 0;
    return 0;
}

// Runs an sd-bus callback's work; what would escape into sd-bus, which is C,
// becomes an error reply instead.
template <class Work> int guarded(sd_bus_error* error, Work work) noexcept {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return sd_bus_error_set(error, SD_BUS_ERROR_NO_MEMORY, "The daemon is out of memory");
    } catch (...) {
        return sd_bus_error_set(error, SD_BUS_ERROR_FAILED, "The daemon could not do it");
    }
}

// A reply of (v result, v error).
Daemon::ReplyWriter outcomeWriter(ObRef<ObObject> result, ObRef<ObError> error) {
    return [result, error](sd_bus_message* reply, const ObRef<ObError>& failure) {
        if (failure)
            return appendValue(reply, nullptr) ? failure : appendValue(reply, failure);
        if (ObRef<ObError> problem = appendValue(reply, error ? nullptr : result))
            return problem;
        return appendValue(reply, error);
    };
}

// EvaluatePolicy's reply of (v result, v error, a(xv) notices): the outcome,
// and the notices the client's delegate gets before it.
Daemon::ReplyWriter evaluationWriter(ObRef<ObObject> result, ObRef<ObError> error,
                                     std::vector<RelayDelegate::Notice> notices) {
    return [outcome = outcomeWriter(std::move(result), std::move(error)),
            notices = std::move(notices)](sd_bus_message* reply,
                                          const ObRef<ObError>& failure) -> ObRef<ObError> {
        if (ObRef<ObError> problem = outcome(reply, failure))
            return problem;
        if (sd_bus_message_open_container(reply, 'a', "(xv)") < 0)
            return encodingFailure();
        // A failure to report goes without them: they failed to encode.
        for (const RelayDelegate::Notice& notice : failure ? decltype(notices){} : notices) {
            if (sd_bus_message_open_container(reply, 'r', "xv") < 0 ||
                sd_bus_message_append(reply, "x", std::int64_t(notice.event)) < 0)
                return encodingFailure();
            if (ObRef<ObError> problem = appendValue(reply, notice.params))
                return problem;
            if (sd_bus_message_close_container(reply) < 0)
                return encodingFailure();
        }
        return sd_bus_message_close_container(reply) < 0 ? encodingFailure() : nullptr;
    };
}

// A reply of (b success, v error).
Daemon::ReplyWriter successWriter(bool succeeded, ObRef<ObError> error) {
    return [succeeded, error](sd_bus_message* reply, const ObRef<ObError>& failure) {
        sd_bus_message_append(reply, "b", int(succeeded && !failure));
        return appendValue(reply, failure ? failure : error);
    };
}

// Connect's reply of (o client, v handle, v creator, v error): the client
// with its context's handle and creator, or "/" and neither when none was made.
Daemon::ReplyWriter connectWriter(std::string id, ObRef<ObData> handle, ObRef<ObString> creator,
                                  ObRef<ObError> error) {
    return [id, handle, creator, error](sd_bus_message* reply, const ObRef<ObError>& failure) {
        const bool made = !id.empty() && !failure;
        sd_bus_message_append(reply, "o", made ? id.c_str() : "/");
        appendValue(reply, made ? ObRef<ObObject>(handle) : nullptr);
        appendValue(reply, made ? ObRef<ObObject>(creator) : nullptr);
        return appendValue(reply, failure ? failure : error);
    };
}
} // namespace

struct Daemon::NoArguments {
    int read(sd_bus_message*, sd_bus_error*) { return 0; }
};

struct Daemon::PolicyArguments {
    std::int64_t policy = 0;
    ObRef<ObDictionary> options;
    int read(sd_bus_message* call, sd_bus_error* error) {
        if (int result = sd_bus_message_read(call, "x", &policy); result < 0)
            return result;
        return readArgument(call, options, "The options", "a dictionary", error);
    }
};

struct Daemon::ACLArguments {
    ObRef<ObObject> acl, operation;
    ObRef<ObDictionary> options;
    int read(sd_bus_message* call, sd_bus_error* error) {
        for (ObRef<ObObject>* value : {&acl, &operation})
            if (int refused = readArgument(call, *value, "The ACL or operation", "a value", error);
                refused < 0)
                return refused;
        return readArgument(call, options, "The options", "a dictionary", error);
    }
};

struct Daemon::PasswordArguments {
    ObRef<ObObject> password;
    int read(sd_bus_message* call, sd_bus_error* error) {
        sd_bus_message_sensitive(call);
        return readArgument(call, password, "The password", "a value", error);
    }
};

struct Daemon::FailureArguments {
    std::int64_t event = 0;
    ObRef<ObObject> failure;
    int read(sd_bus_message* call, sd_bus_error* error) {
        if (int result = sd_bus_message_read(call, "x", &event); result < 0)
            return result;
        return readArgument(call, failure, "The failure", "a value", error);
    }
};

// How the client's delegate call for the event ended and, when the delegate
// has answered by then, the answer; a later answer comes alone, as returned.
struct Daemon::AnswerArguments {
    std::uint64_t serial = 0;
    std::int32_t outcome = 0;
    const char* text = nullptr; // valid while the call is
    int answered = 0;
    ObRef<ObDictionary> response;
    ObRef<ObError> error;
    int read(sd_bus_message* call, sd_bus_error* refused) {
        sd_bus_message_sensitive(call);
        if (int result = sd_bus_message_read(call, "tisb", &serial, &outcome, &text, &answered);
            result < 0)
            return result;
        if (outcome < 0 || outcome > int(EventOutcome::running))
            return refuse(refused, errorInvalidValue, "The outcome must be 0, 1, 2 or 3");
        if (int result = readArgument(call, response, "The response", "a dictionary", refused);
            result < 0)
            return result;
        return readArgument(call, error, "The answer's error", "an error", refused);
    }
};

template <class Arguments, int (Daemon::*method)(sd_bus_message*, const std::string&,
                                                 Daemon::Client&, Arguments&, sd_bus_error*)>
int Daemon::onClientMethod(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    return guarded(error, [&] {
        const char* path = nullptr;
        if (int result = sd_bus_message_read(call, "o", &path); result < 0)
            return result;
        const std::string id = path;
        auto found = self.clients_.find(id);
        // Another process's client is as unknown as one that never was, and
        // nothing the caller sent is read for it.
        if (found == self.clients_.end() || found->second.owner != sd_bus_message_get_sender(call))
            return refuse(error, errorUnknownClient, "No client " + id + " of this connection");
        Arguments arguments;
        if (int refused = arguments.read(call, error); refused < 0)
            return refused;
        // Reading may have taken long enough for sd-bus to dispatch others.
        found = self.clients_.find(id);
        if (found == self.clients_.end())
            return refuse(error, errorUnknownClient, "No client " + id + " of this connection");
        return (self.*method)(call, id, found->second, arguments, error);
    });
}

// Every method is open to every user (sd-bus would otherwise refuse other
// users' calls); the daemon itself decides what each caller may reach. The
// Event signal goes out on each client's own path.
const sd_bus_vtable Daemon::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES(
        "Connect", "vb", SD_BUS_PARAM(handle) SD_BUS_PARAM(has_delegate), "ovvv",
        SD_BUS_PARAM(client) SD_BUS_PARAM(handle) SD_BUS_PARAM(creator) SD_BUS_PARAM(error),
        &Daemon::onConnect, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Release", "o", SD_BUS_PARAM(client), "", ,
                             (&onClientMethod<NoArguments, &Daemon::onRelease>),
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Invalidate", "o", SD_BUS_PARAM(client), "", ,
                             (&onClientMethod<NoArguments, &Daemon::onInvalidate>),
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES(
        "EvaluatePolicy", "oxv", SD_BUS_PARAM(client) SD_BUS_PARAM(policy) SD_BUS_PARAM(options),
        "vva(xv)", SD_BUS_PARAM(result) SD_BUS_PARAM(error) SD_BUS_PARAM(notices),
        (&onClientMethod<PolicyArguments, &Daemon::onEvaluatePolicy>), SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES(
        "EvaluateACL", "ovvv",
        SD_BUS_PARAM(client) SD_BUS_PARAM(acl) SD_BUS_PARAM(operation) SD_BUS_PARAM(options), "vv",
        SD_BUS_PARAM(result) SD_BUS_PARAM(error),
        (&onClientMethod<ACLArguments, &Daemon::onEvaluateACL>), SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("EnterPassword", "ov", SD_BUS_PARAM(client) SD_BUS_PARAM(password),
                             "bv", SD_BUS_PARAM(success) SD_BUS_PARAM(error),
                             (&onClientMethod<PasswordArguments, &Daemon::onEnterPassword>),
                             SD_BUS_VTABLE_SENSITIVE | SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("FailProcessedEvent", "oxv",
                             SD_BUS_PARAM(client) SD_BUS_PARAM(event) SD_BUS_PARAM(failure), "bv",
                             SD_BUS_PARAM(success) SD_BUS_PARAM(error),
                             (&onClientMethod<FailureArguments, &Daemon::onFailProcessedEvent>),
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("AnswerEvent", "otisbvv",
                             SD_BUS_PARAM(client) SD_BUS_PARAM(serial) SD_BUS_PARAM(outcome)
                                 SD_BUS_PARAM(exception) SD_BUS_PARAM(answered)
                                     SD_BUS_PARAM(response) SD_BUS_PARAM(error),
                             "", , (&onClientMethod<AnswerArguments, &Daemon::onAnswerEvent>),
                             SD_BUS_VTABLE_SENSITIVE | SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Statistics", "", , "a{st}", SD_BUS_PARAM(counts),
                             &Daemon::onStatistics, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

Daemon::Daemon(std::shared_ptr<EventLoop> loop, sd_bus* bus,
               std::unique_ptr<HostedServices> services, DaemonLimits limits)
    : loop_(std::move(loop)), bus_(bus), services_(std::move(services)), limits_(limits),
      pool_(std::make_shared<detail::ServicePool>(limits.threads,
                                                  std::max<std::size_t>(1, limits.threads / 2))),
      driver_(*loop_) {}

bool Daemon::runWhereServed(std::function<void()>& work) {
    // Asked from the loop's dispatch as a call starts an evaluation; one at
    // a time, so that the loop's thread is never inside two waits at once.
    if (servingHere_ || !loop_->dispatching())
        return false;
    servingHere_ = true;
    loop_->defer([this, work = std::move(work)] {
        {
            detail::WaitDriver::Scope driven(driver_);
            work();
        }
        servingHere_ = false;
    });
    return true;
}

Daemon::~Daemon() {
    // Events still waiting in the service's threads return at once.
    for (auto& [id, client] : clients_)
        if (client.relay)
            client.relay->close();
}

int Daemon::start() {
    int result =
        sd_bus_add_object_vtable(bus_, objectSlot_.put(), objectPath, interfaceName, vtable, this);
    if (result >= 0)
        result = sd_bus_match_signal(bus_, ownerSlot_.put(), "org.freedesktop.DBus",
                                     "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                     "NameOwnerChanged", &Daemon::onNameOwnerChanged, this);
    return result;
}

Daemon::User& Daemon::user(uid_t uid) {
    User& user = users_[uid];
    if (!user.guard)
        user.guard = ObMake<detail::AttemptGuard>(limits_.attempts);
    return user;
}

int Daemon::admitPending(uid_t uid, sd_bus_error* error) {
    if (user(uid).pending >= limits_.pendingPerUser)
        return limitExceeded(error, "A user may have", limits_.pendingPerUser,
                             "calls awaiting a reply");
    if (deferred_.size() >= limits_.pending)
        return limitExceeded(error, "The daemon may hold", limits_.pending,
                             "calls awaiting a reply");
    return 0;
}

std::uint64_t Daemon::defer(sd_bus_message* call, uid_t uid) {
    const std::uint64_t number = nextCall_++;
    deferred_.emplace(number, Pending{MessageRef(sd_bus_message_ref(call)), uid});
    ++user(uid).pending;
    return number;
}

template <class Write, class Then>
auto Daemon::replyCallback(sd_bus_message* call, uid_t uid, Write write, Then then) {
    return [this, loop = loop_, number = defer(call, uid), write, then](auto outcome,
                                                                        ObRef<ObError> failure) {
        auto finish = [=, this] {
            replyLater(number, write(outcome, failure));
            then(failure);
        };
        // A service thread replies itself when the loop is free, which saves
        // it a hand-off; in the loop's dispatch the reply waits until the
        // current callback is done.
        if (loop->dispatching())
            loop->post(std::move(finish));
        else
            loop->runHereOrPost([=, this] {
                finish();
                loop->lookAgainAfter(bus_);
            });
    };
}

void Daemon::reply(sd_bus_message* call, const ReplyWriter& write) {
    MessageRef reply;
    if (sd_bus_message_new_method_return(call, reply.put()) < 0)
        return;
    sd_bus_message_sensitive(reply.get());
    if (ObRef<ObError> failure = write(reply.get(), nullptr)) {
        // The value that failed left the message unusable.
        if (sd_bus_message_new_method_return(call, reply.put()) < 0)
            return;
        write(reply.get(), failure);
    }
    sd_bus_send(bus_, reply.get(), nullptr);
}

void Daemon::replyLater(std::uint64_t number, const ReplyWriter& write) {
    auto found = deferred_.find(number);
    if (found == deferred_.end())
        return;
    Pending pending = std::move(found->second);
    deferred_.erase(found);
    --users_[pending.uid].pending;
    reply(pending.call.get(), write);
}

int Daemon::onConnect(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    return guarded(error, [&] { return self.connect(call, error); });
}

int Daemon::connect(sd_bus_message* call, sd_bus_error* error) {
    // Who calls, as the bus (never the caller) says, before anything it sent
    // is read.
    uid_t uid = 0;
    pid_t pid = 0;
    if (int refused = callerUid(call, uid, error, &pid); refused < 0)
        return refused;
    CredsRef described;
    const char *comm = nullptr, *tty = nullptr;
    // Only for names and logs: these come from /proc, where the caller
    // could change them.
    if (sd_bus_query_sender_creds(call, SD_BUS_CREDS_COMM | SD_BUS_CREDS_TTY | SD_BUS_CREDS_AUGMENT,
                                  described.put()) < 0)
        described.reset();
    const ObRef<ObString> creator = ObString::make(
        described && sd_bus_creds_get_comm(described.get(), &comm) >= 0 ? comm : "unknown");
    detail::Requester requester;
    requester.user = detail::userName(uid);
    if (described && sd_bus_creds_get_tty(described.get(), &tty) >= 0 && tty != nullptr)
        requester.tty = std::string("/dev/") + tty;
    requester.pool = pool_;
    requester.poolKey = uid;
    requester.runWhereServed = [this](std::function<void()>& work) { return runWhereServed(work); };
    requester.guard = user(uid).guard;

    const std::string owner = sd_bus_message_get_sender(call);
    if (auto found = owners_.find(owner);
        found != owners_.end() && found->second.clients >= limits_.clientsPerConnection)
        return limitExceeded(error, "A connection may hold", limits_.clientsPerConnection,
                             "clients");
    if (clients_.size() >= limits_.clients)
        return limitExceeded(error, "The daemon may hold", limits_.clients, "clients");
    if (int refused = admitPending(uid, error); refused < 0)
        return refused;

    ObRef<ObData> handle;
    int hasDelegate = 0;
    if (int refused = readArgument(call, handle, "The handle", "data", error); refused < 0)
        return refused;
    if (int read = sd_bus_message_read(call, "b", &hasDelegate); read < 0)
        return read;
    if (handle) {
        auto found = contexts_.find(keyOf(*handle));
        // Another user's context is as unknown as one that never was.
        if (found == contexts_.end() || found->second.uid != uid) {
            reply(call,
                  connectWriter({}, nullptr, nullptr,
                                detail::kvError(KVErrorInvalidContext, &unknownHandleMessage)));
            return 1;
        }
    } else if (user(uid).contexts >= limits_.contextsPerUser) {
        return limitExceeded(error, "A user may hold", limits_.contextsPerUser, "contexts");
    } else if (contexts_.size() >= limits_.contexts) {
        return limitExceeded(error, "The daemon may hold", limits_.contexts, "contexts");
    }

    ObRef<ObError> noService;
    const ObRef<KVClientBackend> service = services_->forUser(uid, &noService);
    if (!service) {
        reply(call, connectWriter({}, nullptr, nullptr, noService));
        return 1;
    }
    owners_.try_emplace(owner, Owner{uid, 0});
    ObRef<RelayDelegate> relay;
    auto clientId = std::make_shared<std::string>();
    if (hasDelegate) {
        relay = ObMake<RelayDelegate>(
            loop_, [this, owner, clientId](std::uint64_t serial, ObInteger event,
                                           const ObRef<ObDictionary>& params) {
                if (auto found = clients_.find(*clientId); found != clients_.end())
                    sendEvent(owner, *clientId, serial, event, params, *found->second.relay);
            });
    }
    const std::uint64_t number = defer(call, uid);
    service->clientWithExternalizedContext_uiDelegate_reply(
        handle, relay,
        [this, loop = loop_, number, owner, uid, pid, creator, relay, clientId,
         requester](ObRef<KVClient> client, ObRef<ObError> failure) {
            // Acting for the caller from before the client is known to anyone.
            if (auto* serviceClient = dynamic_cast<detail::ServiceClient*>(client.get()))
                serviceClient->actFor(requester);
            loop->post([=, this] {
                *clientId = finishConnect(number, owner, uid, pid, creator, relay, client, failure);
            });
        });
    return 1;
}

std::string Daemon::finishConnect(std::uint64_t number, const std::string& owner, uid_t uid,
                                  pid_t pid, const ObRef<ObString>& creator,
                                  const ObRef<RelayDelegate>& relay, const ObRef<KVClient>& client,
                                  const ObRef<ObError>& failure) {
    const bool processGone = !owners_.count(owner);
    if (client && processGone) {
        // The process went while the service made its client: nothing stays.
        if (!contexts_.count(keyOf(*client->externalizedContext())))
            client->invalidate();
        if (relay)
            relay->close();
    }
    if (!client || processGone) {
        replyLater(number, connectWriter({}, nullptr, nullptr, failure));
        return {};
    }
    const ObRef<ObData> handle = client->externalizedContext();
    const std::string key = keyOf(*handle);
    auto [found, made] = contexts_.try_emplace(key);
    Context& context = found->second;
    if (made) {
        context.uid = uid;
        context.handle = handle;
        context.creator = creator;
        ++user(uid).contexts;
    }
    const std::string id = admit(owner, uid, pid, key, context, client, relay);
    replyLater(number, connectWriter(id, handle, context.creator, nullptr));
    return id;
}

void Daemon::sendEvent(const std::string& owner, const std::string& client, std::uint64_t serial,
                       ObInteger event, const ObRef<ObDictionary>& params, RelayDelegate& relay) {
    MessageRef signal;
    ObRef<ObError> failure;
    int result =
        sd_bus_message_new_signal(bus_, signal.put(), client.c_str(), interfaceName, "Event");
    if (result >= 0)
        result = sd_bus_message_set_destination(signal.get(), owner.c_str());
    if (result >= 0)
        result = sd_bus_message_append(signal.get(), "tx", serial, std::int64_t(event));
    if (result >= 0 && !(failure = appendValue(signal.get(), params)))
        result = sd_bus_send(bus_, signal.get(), nullptr);
    loop_->lookAgainAfter(bus_);
    // An event that cannot reach the client fails as a delegate that threw.
    if (failure || result < 0)
        relay.returned(serial, EventOutcome::threwException,
                       failure ? std::string(failure->localizedDescription()->text())
                               : "The event could not be sent to the client process.");
}

void Daemon::audit(const Attempt& attempt, const ObRef<ObError>& error) const {
    // One line per attempt, for the system log (standard error is the
    // journal under systemd), as PAM applications log theirs: who, from
    // which process, how, and the outcome; never what the user typed.
    if (!error)
        std::fprintf(stderr,
                     "<5>tessivad: authentication uid=%u pid=%d policy=%" PRId64
                     " service=%s outcome=success\n",
                     unsigned(attempt.uid), int(attempt.pid), attempt.policy, services_->name());
    else
        std::fprintf(stderr,
                     "<4>tessivad: authentication uid=%u pid=%d policy=%" PRId64
                     " service=%s outcome=failure code=%" PRId64 "\n",
                     unsigned(attempt.uid), int(attempt.pid), attempt.policy, services_->name(),
                     std::int64_t(error->code()));
    std::fflush(stderr);
}

// Client states.

std::string Daemon::admit(const std::string& owner, uid_t uid, pid_t pid, const std::string& key,
                          Context& context, const ObRef<KVClient>& client,
                          const ObRef<RelayDelegate>& relay) {
    std::string id = randomClientPath();
    while (clients_.count(id))
        id = randomClientPath();
    ++context.clients;
    context.idleTimer.reset();
    Client made;
    made.owner = owner;
    made.uid = uid;
    made.pid = pid;
    made.handleKey = key;
    made.client = client;
    made.relay = relay;
    clients_.emplace(id, std::move(made));
    ++owners_[owner].clients;
    return id;
}

struct Daemon::TimerTarget {
    Daemon* daemon;
    std::string key;
};

void Daemon::startEvaluation(const std::string& id, Client& client) {
    ++client.evaluations;
    ++user(client.uid).evaluations;
    ++evaluations_;
    if (client.state == ClientState::connected)
        client.state = ClientState::evaluating;
    // The user has this long to answer before the evaluation ends. The
    // timer stays between evaluations and looks at the deadline when it
    // fires, which spares each evaluation arming and disarming it.
    std::uint64_t now = 0;
    sd_event_now(loop_->event(), CLOCK_MONOTONIC, &now);
    client.answerDeadline = now + std::uint64_t(limits_.answerTimeout.count()) * 1000000u;
    int enabled = SD_EVENT_OFF;
    if (!client.answerTimer)
        armTimer(client.answerTimer, limits_.answerTimeout, &Daemon::onAnswerTimeout, id,
                 answerAccuracyUsec);
    else if (sd_event_source_get_enabled(client.answerTimer.get(), &enabled) >= 0 &&
             enabled == SD_EVENT_OFF)
        rearmAnswerTimer(client);
}

void Daemon::rearmAnswerTimer(Client& client) {
    sd_event_source_set_time(client.answerTimer.get(), client.answerDeadline);
    sd_event_source_set_enabled(client.answerTimer.get(), SD_EVENT_ONESHOT);
}

int Daemon::onAnswerTimeout(sd_event_source*, uint64_t, void* userdata) {
    auto* timer = static_cast<TimerTarget*>(userdata);
    auto found = timer->daemon->clients_.find(timer->key);
    if (found == timer->daemon->clients_.end())
        return 0;
    Client& client = found->second;
    if (client.evaluations == 0) {
        client.answerTimer.reset(); // an idle client holds no timer
        return 0;
    }
    std::uint64_t now = 0;
    sd_event_now(timer->daemon->loop_->event(), CLOCK_MONOTONIC, &now);
    if (now < client.answerDeadline)
        timer->daemon->rearmAnswerTimer(client); // an evaluation began since it was armed
    else
        client.client->failProcessedEvent_failureError_reply(
            2, detail::kvError(KVErrorTimedOut, "The user did not answer in time."),
            [](bool, ObRef<ObError>) {});
    return 0;
}

void Daemon::endEvaluation(const std::string& id, const Attempt& attempt,
                           const ObRef<ObError>& error) {
    audit(attempt, error);
    --user(attempt.uid).evaluations;
    --evaluations_;
    auto found = clients_.find(id);
    if (found == clients_.end())
        return;
    Client& client = found->second;
    if (--client.evaluations > 0)
        return;
    if (client.state == ClientState::gone)
        release(id);
    else
        client.state = ClientState::connected;
}

void Daemon::letGo(const std::string& id) {
    Client& client = clients_.at(id);
    if (client.state == ClientState::gone)
        return; // already stopped; released when its evaluations end
    if (client.state != ClientState::evaluating) {
        release(id);
        return;
    }
    // Its evaluations end as if the process had stopped them.
    std::set<ObInteger> events =
        client.relay ? client.relay->raisedEvents() : std::set<ObInteger>{};
    // Whichever event the evaluation processes, raised or not (a scan may
    // wait for a finger before it has raised anything).
    events.insert({1, 2, 3, 4});
    for (ObInteger event : events)
        client.client->failProcessedEvent_failureError_reply(event, nullptr,
                                                             [](bool, ObRef<ObError>) {});
    // Released once the service has replied to its last evaluation, since
    // until then it holds the context.
    client.state = ClientState::gone;
    if (client.relay)
        client.relay->close();
}

void Daemon::release(const std::string& id) {
    auto found = clients_.find(id);
    if (found == clients_.end())
        return;
    Client client = std::move(found->second);
    clients_.erase(found);
    if (auto owner = owners_.find(client.owner); owner != owners_.end())
        --owner->second.clients;
    if (client.relay)
        client.relay->close();
    if (auto context = contexts_.find(client.handleKey); context != contexts_.end())
        if (--context->second.clients == 0)
            armIdleTimer(context->first, context->second);
}

void Daemon::forgetContext(const std::string& key) {
    auto found = contexts_.find(key);
    if (found == contexts_.end())
        return;
    --user(found->second.uid).contexts;
    // Events its clients' delegates were asked stop waiting for a return.
    for (auto& [id, client] : clients_)
        if (client.handleKey == key && client.relay)
            client.relay->close();
    contexts_.erase(found); // and its idle timer with it
}

void Daemon::armTimer(DisabledSourceRef& source, std::chrono::seconds delay,
                      sd_event_time_handler_t handler, const std::string& key,
                      std::uint64_t accuracyUsec) {
    auto* target = new TimerTarget{this, key};
    const auto usec = std::uint64_t(delay.count()) * 1000000u;
    if (sd_event_add_time_relative(sd_bus_get_event(bus_), source.put(), CLOCK_MONOTONIC, usec,
                                   accuracyUsec, handler, target) < 0) {
        delete target;
        return;
    }
    sd_event_source_set_destroy_callback(
        source.get(), [](void* userdata) { delete static_cast<TimerTarget*>(userdata); });
    loop_->lookAgain();
}

void Daemon::armIdleTimer(const std::string& key, Context& context) {
    armTimer(context.idleTimer, limits_.idleTime, &Daemon::onIdle, key);
}

int Daemon::onIdle(sd_event_source*, uint64_t, void* userdata) {
    auto* timer = static_cast<TimerTarget*>(userdata);
    Daemon& self = *timer->daemon;
    const std::string key = timer->key; // the timer goes with the context
    auto found = self.contexts_.find(key);
    if (found == self.contexts_.end())
        return 0;
    // The service knows the context by its handle; a client of it ends it.
    ObRef<ObError> noService;
    if (const ObRef<KVClientBackend> service =
            self.services_->forUser(found->second.uid, &noService))
        service->clientWithExternalizedContext_uiDelegate_reply(
            found->second.handle, nullptr, [](ObRef<KVClient> client, ObRef<ObError>) {
                if (client)
                    client->invalidate();
            });
    self.forgetContext(key);
    return 0;
}

int Daemon::onRelease(sd_bus_message* call, const std::string& id, Client&, NoArguments&,
                      sd_bus_error*) {
    // A client released mid-evaluation stops it, as if its process had gone.
    letGo(id);
    return sd_bus_reply_method_return(call, "");
}

int Daemon::onInvalidate(sd_bus_message* call, const std::string&, Client& client, NoArguments&,
                         sd_bus_error*) {
    client.client->invalidate();
    forgetContext(client.handleKey);
    return sd_bus_reply_method_return(call, "");
}

int Daemon::onEvaluatePolicy(sd_bus_message* call, const std::string& id, Client& client,
                             PolicyArguments& arguments, sd_bus_error* error) {
    if (user(client.uid).evaluations >= limits_.evaluationsPerUser)
        return limitExceeded(error, "A user may run", limits_.evaluationsPerUser, "evaluations");
    if (evaluations_ >= limits_.evaluations)
        return limitExceeded(error, "The daemon may run", limits_.evaluations, "evaluations");
    if (int refused = admitPending(client.uid, error); refused < 0)
        return refused;
    const Attempt attempt{client.uid, client.pid, arguments.policy};
    startEvaluation(id, client);
    client.client->evaluatePolicy_options_reply(
        ObInteger(arguments.policy), arguments.options,
        replyCallback(
            call, client.uid,
            [relay = client.relay](ObRef<ObDictionary> result, ObRef<ObError> outcome) {
                return evaluationWriter(result, outcome,
                                        relay ? relay->takeNotices()
                                              : std::vector<RelayDelegate::Notice>{});
            },
            [this, id, attempt](const ObRef<ObError>& failure) {
                endEvaluation(id, attempt, failure);
            }));
    return 1;
}

int Daemon::onEvaluateACL(sd_bus_message* call, const std::string&, Client& client,
                          ACLArguments& arguments, sd_bus_error* error) {
    if (int refused = admitPending(client.uid, error); refused < 0)
        return refused;
    client.client->evaluateACL_operation_options_reply(
        arguments.acl, arguments.operation, arguments.options,
        replyCallback(call, client.uid, outcomeWriter));
    return 1;
}

int Daemon::onEnterPassword(sd_bus_message* call, const std::string&, Client& client,
                            PasswordArguments& arguments, sd_bus_error* error) {
    if (int refused = admitPending(client.uid, error); refused < 0)
        return refused;
    client.client->enterPassword_reply(arguments.password,
                                       replyCallback(call, client.uid, successWriter));
    return 1;
}

int Daemon::onFailProcessedEvent(sd_bus_message* call, const std::string&, Client& client,
                                 FailureArguments& arguments, sd_bus_error* error) {
    if (int refused = admitPending(client.uid, error); refused < 0)
        return refused;
    client.client->failProcessedEvent_failureError_reply(
        ObInteger(arguments.event), arguments.failure,
        replyCallback(call, client.uid, successWriter));
    return 1;
}

int Daemon::onAnswerEvent(sd_bus_message* call, const std::string&, Client& client,
                          AnswerArguments& arguments, sd_bus_error*) {
    if (client.relay) {
        // As in process, the answer given during the delegate's call comes
        // before its return.
        if (arguments.answered)
            client.relay->answer(arguments.serial, arguments.response, arguments.error);
        if (EventOutcome(arguments.outcome) != EventOutcome::running)
            client.relay->returned(arguments.serial, EventOutcome(arguments.outcome),
                                   arguments.text);
    }
    // Nothing goes out unless the caller, against custom, waits for a reply.
    return sd_bus_reply_method_return(call, "");
}

int Daemon::onStatistics(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    return guarded(error, [&] {
        uid_t uid = 0;
        if (int refused = callerUid(call, uid, error); refused < 0)
            return refused;
        // A user sees its own figures; root sees everyone's.
        auto counts = [uid](uid_t owner) { return uid == 0 || owner == uid; };
        std::uint64_t contexts = 0, clients = 0, connections = 0, calls = 0, evaluations = 0,
                      events = 0;
        for (const auto& [key, context] : self.contexts_)
            contexts += counts(context.uid);
        for (const auto& [id, client] : self.clients_) {
            if (!counts(client.uid))
                continue;
            ++clients;
            evaluations += client.evaluations;
            if (client.relay)
                events += client.relay->pendingCount();
        }
        for (const auto& [name, owner] : self.owners_)
            connections += counts(owner.uid);
        for (const auto& [number, pending] : self.deferred_)
            calls += counts(pending.uid);
        return sd_bus_reply_method_return(call, "a{st}", 6, "contexts", contexts, "clients",
                                          clients, "connections", connections, "calls", calls,
                                          "evaluations", evaluations, "events", events);
    });
}

int Daemon::onNameOwnerChanged(sd_bus_message* signal, void* userdata, sd_bus_error*) {
    auto& self = *static_cast<Daemon*>(userdata);
    // Only the bus says who left: any peer may send this signal, to us alone
    // even, but the bus stamps each peer's own name on what it sends.
    const char* sender = sd_bus_message_get_sender(signal);
    if (sender == nullptr || std::string_view(sender) != "org.freedesktop.DBus")
        return 0;
    const char *name = nullptr, *previous = nullptr, *next = nullptr;
    if (sd_bus_message_read(signal, "sss", &name, &previous, &next) < 0 || *next != '\0')
        return 0;
    auto found = self.owners_.find(name);
    if (found == self.owners_.end())
        return 0;
    self.owners_.erase(found);
    // Found by a scan, as the statistics are: a set per connection would
    // cost each idle client more than the scan costs a leaving process.
    std::vector<std::string> ids;
    for (const auto& [id, client] : self.clients_)
        if (client.owner == name)
            ids.push_back(id);
    // Replies it waits for would go nowhere.
    std::erase_if(self.deferred_, [&self, name](const auto& entry) {
        if (std::string_view(sd_bus_message_get_sender(entry.second.call.get())) != name)
            return false;
        --self.users_[entry.second.uid].pending;
        return true;
    });
    for (const std::string& id : ids)
        self.letGo(id);
    return 0;
}
} // namespace tessiva::daemon
