// The daemon's methods: checks who calls and with what, then relays to the
// hosted service's clients; replies that come later go out from the loop.
#include "Daemon.h"

#include "platform/brindle/KVErrors.h"
#include "services/dbus/BusInterface.h"
#include "services/dbus/ValueCodec.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/ObMake.h"

#include <cstdio>
#include <random>

namespace tessiva::daemon {
using namespace detail::bus;

namespace {
OB_CONSTANT_STRING(unknownHandleMessage, "No context matches the handle.");

int refuse(sd_bus_error* error, const char* name, const std::string& text) {
    return sd_bus_error_set(error, name, text.c_str());
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

std::uint64_t randomIdentifier() {
    static std::mt19937_64 generator{std::random_device{}()};
    std::uint64_t id = 0;
    while (id == 0)
        id = generator();
    return id;
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

// A reply of (b success, v error).
Daemon::ReplyWriter successWriter(bool succeeded, ObRef<ObError> error) {
    return [succeeded, error](sd_bus_message* reply, const ObRef<ObError>& failure) {
        sd_bus_message_append(reply, "b", int(succeeded && !failure));
        return appendValue(reply, failure ? failure : error);
    };
}

// Connect's reply of (t client, v handle, v creator, v error): the client
// with its context's handle and creator, or 0 and neither when none was made.
Daemon::ReplyWriter connectWriter(std::uint64_t id, ObRef<ObData> handle, ObRef<ObString> creator,
                                  ObRef<ObError> error) {
    return [id, handle, creator, error](sd_bus_message* reply, const ObRef<ObError>& failure) {
        const bool made = id != 0 && !failure;
        sd_bus_message_append(reply, "t", made ? id : std::uint64_t(0));
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

struct Daemon::AnswerArguments {
    std::uint64_t serial = 0;
    ObRef<ObDictionary> response;
    ObRef<ObError> error;
    int read(sd_bus_message* call, sd_bus_error* refused) {
        sd_bus_message_sensitive(call);
        if (int result = sd_bus_message_read(call, "t", &serial); result < 0)
            return result;
        if (int result = readArgument(call, response, "The response", "a dictionary", refused);
            result < 0)
            return result;
        return readArgument(call, error, "The answer's error", "an error", refused);
    }
};

struct Daemon::ReturnArguments {
    std::uint64_t serial = 0;
    std::int32_t outcome = 0;
    const char* text = nullptr; // valid while the call is
    int read(sd_bus_message* call, sd_bus_error* error) {
        if (int result = sd_bus_message_read(call, "tis", &serial, &outcome, &text); result < 0)
            return result;
        if (outcome < 0 || outcome > int(EventOutcome::threwOther))
            return refuse(error, errorInvalidValue, "The outcome must be 0, 1 or 2");
        return 0;
    }
};

template <class Arguments,
          int (Daemon::*method)(sd_bus_message*, std::uint64_t, Daemon::Client&, Arguments&)>
int Daemon::onClientMethod(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    std::uint64_t id = 0;
    Arguments arguments;
    if (int result = sd_bus_message_read(call, "t", &id); result < 0)
        return result;
    if (int refused = arguments.read(call, error); refused < 0)
        return refused;
    auto found = self.clients_.find(id);
    // Another process's client is as unknown as one that never was.
    if (found == self.clients_.end() || found->second.owner != sd_bus_message_get_sender(call))
        return refuse(error, errorUnknownClient,
                      "No client " + std::to_string(id) + " of this connection");
    return (self.*method)(call, id, found->second, arguments);
}

// Every method is open to every user (sd-bus would otherwise refuse other
// users' calls); the daemon itself decides what each caller may reach.
const sd_bus_vtable Daemon::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES(
        "Connect", "vb", SD_BUS_PARAM(handle) SD_BUS_PARAM(has_delegate), "tvvv",
        SD_BUS_PARAM(client) SD_BUS_PARAM(handle) SD_BUS_PARAM(creator) SD_BUS_PARAM(error),
        &Daemon::onConnect, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Release", "t", SD_BUS_PARAM(client), "", ,
                             (&onClientMethod<NoArguments, &Daemon::onRelease>),
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Invalidate", "t", SD_BUS_PARAM(client), "", ,
                             (&onClientMethod<NoArguments, &Daemon::onInvalidate>),
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES(
        "EvaluatePolicy", "txv", SD_BUS_PARAM(client) SD_BUS_PARAM(policy) SD_BUS_PARAM(options),
        "vv", SD_BUS_PARAM(result) SD_BUS_PARAM(error),
        (&onClientMethod<PolicyArguments, &Daemon::onEvaluatePolicy>), SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES(
        "EvaluateACL", "tvvv",
        SD_BUS_PARAM(client) SD_BUS_PARAM(acl) SD_BUS_PARAM(operation) SD_BUS_PARAM(options), "vv",
        SD_BUS_PARAM(result) SD_BUS_PARAM(error),
        (&onClientMethod<ACLArguments, &Daemon::onEvaluateACL>), SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("EnterPassword", "tv", SD_BUS_PARAM(client) SD_BUS_PARAM(password),
                             "bv", SD_BUS_PARAM(success) SD_BUS_PARAM(error),
                             (&onClientMethod<PasswordArguments, &Daemon::onEnterPassword>),
                             SD_BUS_VTABLE_SENSITIVE | SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("FailProcessedEvent", "txv",
                             SD_BUS_PARAM(client) SD_BUS_PARAM(event) SD_BUS_PARAM(failure), "bv",
                             SD_BUS_PARAM(success) SD_BUS_PARAM(error),
                             (&onClientMethod<FailureArguments, &Daemon::onFailProcessedEvent>),
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("AnswerEvent", "ttvv",
                             SD_BUS_PARAM(client) SD_BUS_PARAM(serial) SD_BUS_PARAM(response)
                                 SD_BUS_PARAM(error),
                             "", , (&onClientMethod<AnswerArguments, &Daemon::onAnswerEvent>),
                             SD_BUS_VTABLE_SENSITIVE | SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES(
        "EventReturned", "ttis",
        SD_BUS_PARAM(client) SD_BUS_PARAM(serial) SD_BUS_PARAM(outcome) SD_BUS_PARAM(exception), "",
        , (&onClientMethod<ReturnArguments, &Daemon::onEventReturned>), SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Statistics", "", , "a{st}", SD_BUS_PARAM(counts),
                             &Daemon::onStatistics, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL_WITH_NAMES(
        "Event", "ttxv",
        SD_BUS_PARAM(client) SD_BUS_PARAM(serial) SD_BUS_PARAM(event) SD_BUS_PARAM(params), 0),
    SD_BUS_VTABLE_END};

Daemon::Daemon(std::shared_ptr<EventLoop> loop, sd_bus* bus,
               std::unique_ptr<HostedServices> services, DaemonLimits limits)
    : loop_(std::move(loop)), bus_(bus), services_(std::move(services)), limits_(limits) {}

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

std::uint64_t Daemon::defer(sd_bus_message* call) {
    const std::uint64_t number = nextCall_++;
    deferred_.emplace(number, MessageRef(sd_bus_message_ref(call)));
    return number;
}

template <class Write, class Then>
auto Daemon::replyCallback(sd_bus_message* call, Write write, Then then) {
    return [this, loop = loop_, number = defer(call), write, then](auto outcome,
                                                                   ObRef<ObError> failure) {
        loop->post([=, this] {
            replyLater(number, write(outcome, failure));
            then();
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
    const MessageRef call = std::move(found->second);
    deferred_.erase(found);
    reply(call.get(), write);
}

int Daemon::onConnect(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    ObRef<ObData> handle;
    int hasDelegate = 0;
    if (int refused = readArgument(call, handle, "The handle", "data", error); refused < 0)
        return refused;
    if (int result = sd_bus_message_read(call, "b", &hasDelegate); result < 0)
        return result;

    CredsRef creds;
    uid_t uid = 0;
    const char* comm = nullptr;
    int result = sd_bus_query_sender_creds(
        call, SD_BUS_CREDS_UID | SD_BUS_CREDS_EUID | SD_BUS_CREDS_COMM | SD_BUS_CREDS_AUGMENT,
        creds.put());
    if (result >= 0 && sd_bus_creds_get_euid(creds.get(), &uid) < 0)
        result = sd_bus_creds_get_uid(creds.get(), &uid);
    if (result < 0)
        return refuse(error, SD_BUS_ERROR_ACCESS_DENIED, "The caller's user is unknown");
    const ObRef<ObString> creator =
        ObString::make(sd_bus_creds_get_comm(creds.get(), &comm) >= 0 ? comm : "unknown");

    const std::string owner = sd_bus_message_get_sender(call);
    auto& ownersClients = self.clientsByOwner_[owner];
    if (ownersClients.size() >= self.limits_.clientsPerConnection)
        return refuse(error, errorLimitExceeded,
                      "A connection may hold " + std::to_string(self.limits_.clientsPerConnection) +
                          " clients at most");
    if (handle) {
        auto found = self.contexts_.find(keyOf(*handle));
        // Another user's context is as unknown as one that never was.
        if (found == self.contexts_.end() || found->second.uid != uid) {
            self.reply(
                call, connectWriter(0, nullptr, nullptr,
                                    detail::kvError(KVErrorInvalidContext, &unknownHandleMessage)));
            return 1;
        }
    } else {
        std::size_t owned = 0;
        for (const auto& [key, context] : self.contexts_)
            owned += context.uid == uid;
        if (owned >= self.limits_.contextsPerUser)
            return refuse(error, errorLimitExceeded,
                          "A user may hold " + std::to_string(self.limits_.contextsPerUser) +
                              " contexts at most");
    }

    ObRef<ObError> noService;
    const ObRef<KVClientBackend> service = self.services_->forUser(uid, &noService);
    if (!service) {
        self.reply(call, connectWriter(0, nullptr, nullptr, noService));
        return 1;
    }
    ObRef<RelayDelegate> relay;
    auto clientId = std::make_shared<std::uint64_t>(0);
    if (hasDelegate) {
        Daemon* daemon = &self;
        relay = ObMake<RelayDelegate>(self.loop_, [daemon, owner,
                                                   clientId](std::uint64_t serial, ObInteger event,
                                                             const ObRef<ObDictionary>& params) {
            if (auto found = daemon->clients_.find(*clientId); found != daemon->clients_.end())
                daemon->sendEvent(owner, *clientId, serial, event, params, *found->second.relay);
        });
    }
    const std::uint64_t number = self.defer(call);
    Daemon* daemon = &self;
    service->clientWithExternalizedContext_uiDelegate_reply(
        handle, relay,
        [daemon, loop = self.loop_, number, owner, uid, creator, relay,
         clientId](ObRef<KVClient> client, ObRef<ObError> failure) {
            loop->post([=] {
                *clientId =
                    daemon->finishConnect(number, owner, uid, creator, relay, client, failure);
            });
        });
    return 1;
}

std::uint64_t Daemon::finishConnect(std::uint64_t number, const std::string& owner, uid_t uid,
                                    const ObRef<ObString>& creator,
                                    const ObRef<RelayDelegate>& relay,
                                    const ObRef<KVClient>& client, const ObRef<ObError>& failure) {
    const bool processGone = !clientsByOwner_.count(owner);
    if (client && processGone) {
        // The process went while the service made its client: nothing stays.
        if (!contexts_.count(keyOf(*client->externalizedContext())))
            client->invalidate();
        if (relay)
            relay->close();
    }
    if (!client || processGone) {
        replyLater(number, connectWriter(0, nullptr, nullptr, failure));
        return 0;
    }
    const ObRef<ObData> handle = client->externalizedContext();
    const std::string key = keyOf(*handle);
    auto [found, made] = contexts_.try_emplace(key);
    Context& context = found->second;
    if (made) {
        context.uid = uid;
        context.handle = handle;
        context.creator = creator;
    }
    const std::uint64_t id = admit(owner, key, context, client, relay);
    replyLater(number, connectWriter(id, handle, context.creator, nullptr));
    return id;
}

void Daemon::sendEvent(const std::string& owner, std::uint64_t client, std::uint64_t serial,
                       ObInteger event, const ObRef<ObDictionary>& params, RelayDelegate& relay) {
    MessageRef signal;
    ObRef<ObError> failure;
    int result = sd_bus_message_new_signal(bus_, signal.put(), objectPath, interfaceName, "Event");
    if (result >= 0)
        result = sd_bus_message_set_destination(signal.get(), owner.c_str());
    if (result >= 0)
        result = sd_bus_message_append(signal.get(), "ttx", client, serial, std::int64_t(event));
    if (result >= 0 && !(failure = appendValue(signal.get(), params)))
        result = sd_bus_send(bus_, signal.get(), nullptr);
    // An event that cannot reach the client fails as a delegate that threw.
    if (failure || result < 0)
        relay.returned(serial, EventOutcome::threwException,
                       failure ? std::string(failure->localizedDescription()->text())
                               : "The event could not be sent to the client process.");
}

// Client states.

std::uint64_t Daemon::admit(const std::string& owner, const std::string& key, Context& context,
                            const ObRef<KVClient>& client, const ObRef<RelayDelegate>& relay) {
    ++context.clients;
    context.idleTimer.reset();
    std::uint64_t id = randomIdentifier();
    while (clients_.count(id))
        id = randomIdentifier();
    clients_.emplace(id, Client{owner, key, client, relay});
    clientsByOwner_[owner].insert(id);
    return id;
}

void Daemon::startEvaluation(Client& client) {
    ++client.evaluations;
    if (client.state == ClientState::connected)
        client.state = ClientState::evaluating;
}

void Daemon::endEvaluation(std::uint64_t id) {
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

void Daemon::ownerGone(std::uint64_t id) {
    Client& client = clients_.at(id);
    if (client.state != ClientState::evaluating) {
        release(id);
        return;
    }
    // Its evaluations end as if the process had stopped them.
    std::set<ObInteger> events =
        client.relay ? client.relay->raisedEvents() : std::set<ObInteger>{};
    events.insert(2); // the passcode event, raised or not
    for (ObInteger event : events)
        client.client->failProcessedEvent_failureError_reply(event, nullptr,
                                                             [](bool, ObRef<ObError>) {});
    // Released once the service has replied to its last evaluation, since
    // until then it holds the context.
    client.state = ClientState::gone;
    if (client.relay)
        client.relay->close();
}

void Daemon::release(std::uint64_t id) {
    auto found = clients_.find(id);
    if (found == clients_.end())
        return;
    Client client = std::move(found->second);
    clients_.erase(found);
    if (auto owner = clientsByOwner_.find(client.owner); owner != clientsByOwner_.end())
        owner->second.erase(id);
    if (client.relay)
        client.relay->close();
    if (auto context = contexts_.find(client.handleKey); context != contexts_.end())
        if (--context->second.clients == 0)
            armIdleTimer(context->first, context->second);
}

void Daemon::forgetContext(const std::string& key) {
    contexts_.erase(key); // and its idle timer with it
}

namespace {
struct IdleTimer {
    Daemon* daemon;
    std::string key;
};
void deleteIdleTimer(void* userdata) {
    delete static_cast<IdleTimer*>(userdata);
}
} // namespace

void Daemon::armIdleTimer(const std::string& key, Context& context) {
    auto* timer = new IdleTimer{this, key};
    const auto usec = std::uint64_t(limits_.idleTime.count()) * 1000000u;
    if (sd_event_add_time_relative(sd_bus_get_event(bus_), context.idleTimer.put(), CLOCK_MONOTONIC,
                                   usec, 0, &Daemon::onIdle, timer) < 0) {
        delete timer;
        return;
    }
    sd_event_source_set_destroy_callback(context.idleTimer.get(), &deleteIdleTimer);
}

int Daemon::onIdle(sd_event_source*, uint64_t, void* userdata) {
    auto* timer = static_cast<IdleTimer*>(userdata);
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

int Daemon::onRelease(sd_bus_message* call, std::uint64_t id, Client&, NoArguments&) {
    release(id);
    return sd_bus_reply_method_return(call, "");
}

int Daemon::onInvalidate(sd_bus_message* call, std::uint64_t, Client& client, NoArguments&) {
    client.client->invalidate();
    forgetContext(client.handleKey);
    return sd_bus_reply_method_return(call, "");
}

int Daemon::onEvaluatePolicy(sd_bus_message* call, std::uint64_t id, Client& client,
                             PolicyArguments& arguments) {
    startEvaluation(client);
    client.client->evaluatePolicy_options_reply(
        ObInteger(arguments.policy), arguments.options,
        replyCallback(call, outcomeWriter, [this, id] { endEvaluation(id); }));
    return 1;
}

int Daemon::onEvaluateACL(sd_bus_message* call, std::uint64_t, Client& client,
                          ACLArguments& arguments) {
    client.client->evaluateACL_operation_options_reply(
        arguments.acl, arguments.operation, arguments.options, replyCallback(call, outcomeWriter));
    return 1;
}

int Daemon::onEnterPassword(sd_bus_message* call, std::uint64_t, Client& client,
                            PasswordArguments& arguments) {
    client.client->enterPassword_reply(arguments.password, replyCallback(call, successWriter));
    return 1;
}

int Daemon::onFailProcessedEvent(sd_bus_message* call, std::uint64_t, Client& client,
                                 FailureArguments& arguments) {
    client.client->failProcessedEvent_failureError_reply(
        ObInteger(arguments.event), arguments.failure, replyCallback(call, successWriter));
    return 1;
}

int Daemon::onAnswerEvent(sd_bus_message* call, std::uint64_t, Client& client,
                          AnswerArguments& arguments) {
    if (client.relay)
        client.relay->answer(arguments.serial, arguments.response, arguments.error);
    return sd_bus_reply_method_return(call, "");
}

int Daemon::onEventReturned(sd_bus_message* call, std::uint64_t, Client& client,
                            ReturnArguments& arguments) {
    if (client.relay)
        client.relay->returned(arguments.serial, EventOutcome(arguments.outcome), arguments.text);
    return sd_bus_reply_method_return(call, "");
}

int Daemon::onStatistics(sd_bus_message* call, void* userdata, sd_bus_error*) {
    auto& self = *static_cast<Daemon*>(userdata);
    std::uint64_t events = 0, evaluations = 0;
    for (auto& [id, client] : self.clients_) {
        evaluations += client.evaluations;
        if (client.relay)
            events += client.relay->pendingCount();
    }
    return sd_bus_reply_method_return(
        call, "a{st}", 6, "contexts", std::uint64_t(self.contexts_.size()), "clients",
        std::uint64_t(self.clients_.size()), "connections",
        std::uint64_t(self.clientsByOwner_.size()), "calls", std::uint64_t(self.deferred_.size()),
        "evaluations", evaluations, "events", events);
}

int Daemon::onNameOwnerChanged(sd_bus_message* signal, void* userdata, sd_bus_error*) {
    auto& self = *static_cast<Daemon*>(userdata);
    const char *name = nullptr, *previous = nullptr, *next = nullptr;
    if (sd_bus_message_read(signal, "sss", &name, &previous, &next) < 0 || *next != '\0')
        return 0;
    auto found = self.clientsByOwner_.find(name);
    if (found == self.clientsByOwner_.end())
        return 0;
    const std::set<std::uint64_t> ids = std::move(found->second);
    self.clientsByOwner_.erase(found);
    // Replies it waits for would go nowhere.
    std::erase_if(self.deferred_, [name](const auto& call) {
        return std::string_view(sd_bus_message_get_sender(call.second.get())) == name;
    });
    for (std::uint64_t id : ids)
        self.ownerGone(id);
    return 0;
}
} // namespace tessiva::daemon
