// The daemon's methods: checks who calls and with what, then relays to the
// hosted service's clients; replies that come later go out from the loop.
#include "Daemon.h"

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
} // namespace

// Every method is open to every user (sd-bus would otherwise refuse other
// users' calls); the daemon itself decides what each caller may reach.
const sd_bus_vtable Daemon::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES(
        "Connect", "vb", SD_BUS_PARAM(handle) SD_BUS_PARAM(has_delegate), "tvvv",
        SD_BUS_PARAM(client) SD_BUS_PARAM(handle) SD_BUS_PARAM(creator) SD_BUS_PARAM(error),
        &Daemon::onConnect, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Release", "t", SD_BUS_PARAM(client), "", , &Daemon::onRelease,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("Invalidate", "t", SD_BUS_PARAM(client), "", , &Daemon::onInvalidate,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("EvaluatePolicy", "txv",
                             SD_BUS_PARAM(client) SD_BUS_PARAM(policy) SD_BUS_PARAM(options), "vv",
                             SD_BUS_PARAM(result) SD_BUS_PARAM(error), &Daemon::onEvaluatePolicy,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("EvaluateACL", "tvvv",
                             SD_BUS_PARAM(client) SD_BUS_PARAM(acl) SD_BUS_PARAM(operation)
                                 SD_BUS_PARAM(options),
                             "vv", SD_BUS_PARAM(result) SD_BUS_PARAM(error), &Daemon::onEvaluateACL,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("EnterPassword", "tv", SD_BUS_PARAM(client) SD_BUS_PARAM(password),
                             "bv", SD_BUS_PARAM(success) SD_BUS_PARAM(error),
                             &Daemon::onEnterPassword,
                             SD_BUS_VTABLE_SENSITIVE | SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("FailProcessedEvent", "txv",
                             SD_BUS_PARAM(client) SD_BUS_PARAM(event) SD_BUS_PARAM(failure), "bv",
                             SD_BUS_PARAM(success) SD_BUS_PARAM(error),
                             &Daemon::onFailProcessedEvent, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES(
        "AnswerEvent", "ttvv",
        SD_BUS_PARAM(client) SD_BUS_PARAM(serial) SD_BUS_PARAM(response) SD_BUS_PARAM(error), "", ,
        &Daemon::onAnswerEvent, SD_BUS_VTABLE_SENSITIVE | SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_NAMES("EventReturned", "ttis",
                             SD_BUS_PARAM(client) SD_BUS_PARAM(serial) SD_BUS_PARAM(outcome)
                                 SD_BUS_PARAM(exception),
                             "", , &Daemon::onEventReturned, SD_BUS_VTABLE_UNPRIVILEGED),
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
    for (auto& [id, client] : clients_)
        if (client.relay)
            client.relay->close();
    for (auto& [id, call] : deferred_)
        sd_bus_message_unref(call);
    for (auto& [key, context] : contexts_)
        sd_event_source_disable_unref(context.idleTimer);
    sd_bus_slot_unref(objectSlot_);
    sd_bus_slot_unref(ownerSlot_);
}

int Daemon::start() {
    int result =
        sd_bus_add_object_vtable(bus_, &objectSlot_, objectPath, interfaceName, vtable, this);
    if (result >= 0)
        result = sd_bus_match_signal(bus_, &ownerSlot_, "org.freedesktop.DBus",
                                     "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                     "NameOwnerChanged", &Daemon::onNameOwnerChanged, this);
    return result;
}

Daemon::Client* Daemon::callersClient(sd_bus_message* call, std::uint64_t id, sd_bus_error* error) {
    auto found = clients_.find(id);
    // Another process's client is as unknown as one that never was.
    if (found == clients_.end() || found->second.owner != sd_bus_message_get_sender(call)) {
        refuse(error, errorUnknownClient,
               "No client " + std::to_string(id) + " of this connection");
        return nullptr;
    }
    return &found->second;
}

std::uint64_t Daemon::defer(sd_bus_message* call) {
    const std::uint64_t number = nextCall_++;
    deferred_.emplace(number, sd_bus_message_ref(call));
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

void Daemon::replyLater(std::uint64_t number, const ReplyWriter& write) {
    auto found = deferred_.find(number);
    if (found == deferred_.end())
        return;
    sd_bus_message* call = found->second;
    deferred_.erase(found);
    sd_bus_message* reply = nullptr;
    if (sd_bus_message_new_method_return(call, &reply) >= 0) {
        sd_bus_message_sensitive(reply);
        if (ObRef<ObError> failure = write(reply, nullptr)) {
            reply = sd_bus_message_unref(reply);
            if (sd_bus_message_new_method_return(call, &reply) >= 0)
                write(reply, failure);
        }
        if (reply)
            sd_bus_send(bus_, reply, nullptr);
    }
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
}

namespace {
// Connect's reply when no client was made: no client, handle or creator.
int replyConnectFailure(sd_bus_message* call, const ObRef<ObError>& failure) {
    sd_bus_message* reply = nullptr;
    if (sd_bus_message_new_method_return(call, &reply) >= 0 &&
        sd_bus_message_append(reply, "t", std::uint64_t(0)) >= 0 && !appendValue(reply, nullptr) &&
        !appendValue(reply, nullptr) && !appendValue(reply, failure))
        sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return 1;
}
} // namespace

int Daemon::onConnect(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    ObRef<ObData> handle;
    int hasDelegate = 0;
    if (int refused = readArgument(call, handle, "The handle", "data", error); refused < 0)
        return refused;
    if (int result = sd_bus_message_read(call, "b", &hasDelegate); result < 0)
        return result;

    sd_bus_creds* creds = nullptr;
    uid_t uid = 0;
    const char* comm = nullptr;
    int result = sd_bus_query_sender_creds(
        call, SD_BUS_CREDS_UID | SD_BUS_CREDS_EUID | SD_BUS_CREDS_COMM | SD_BUS_CREDS_AUGMENT,
        &creds);
    if (result >= 0 && sd_bus_creds_get_euid(creds, &uid) < 0)
        result = sd_bus_creds_get_uid(creds, &uid);
    if (result < 0) {
        sd_bus_creds_unref(creds);
        return refuse(error, SD_BUS_ERROR_ACCESS_DENIED, "The caller's user is unknown");
    }
    const ObRef<ObString> creator =
        ObString::make(sd_bus_creds_get_comm(creds, &comm) >= 0 ? comm : "unknown");
    sd_bus_creds_unref(creds);

    const std::string owner = sd_bus_message_get_sender(call);
    auto& ownersClients = self.clientsByOwner_[owner];
    if (ownersClients.size() >= self.limits_.clientsPerConnection)
        return refuse(error, errorLimitExceeded,
                      "A connection may hold " + std::to_string(self.limits_.clientsPerConnection) +
                          " clients at most");
    if (handle) {
        auto found = self.contexts_.find(keyOf(*handle));
        // Another user's context is as unknown as one that never was.
        if (found == self.contexts_.end() || found->second.uid != uid)
            return replyConnectFailure(
                call, ObError::make(KVErrorDomain, KVErrorInvalidContext,
                                    ObDictionary::make(
                                        {{ObLocalizedDescriptionKey, &unknownHandleMessage}})));
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
    const ObRef<KVClientBackend> service = self.services_->forUser(uid, noService);
    if (!service)
        return replyConnectFailure(call, noService);

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
    auto ownersClients = clientsByOwner_.find(owner);
    if (client && ownersClients == clientsByOwner_.end()) {
        // The process went while the service made its client: nothing stays.
        if (!contexts_.count(keyOf(*client->externalizedContext())))
            client->invalidate();
        if (relay)
            relay->close();
    }
    if (!client || ownersClients == clientsByOwner_.end()) {
        replyLater(number, [failure](sd_bus_message* reply, const ObRef<ObError>& problem) {
            sd_bus_message_append(reply, "t", std::uint64_t(0));
            appendValue(reply, nullptr);
            appendValue(reply, nullptr);
            return appendValue(reply, problem ? problem : failure);
        });
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
    ++context.clients;
    context.idleTimer = sd_event_source_disable_unref(context.idleTimer);
    std::uint64_t id = randomIdentifier();
    while (clients_.count(id))
        id = randomIdentifier();
    clients_.emplace(id, Client{owner, key, client, relay, 0, false});
    ownersClients->second.insert(id);
    replyLater(number, [id, handle, creator = context.creator](sd_bus_message* reply,
                                                               const ObRef<ObError>& problem) {
        sd_bus_message_append(reply, "t", problem ? std::uint64_t(0) : id);
        appendValue(reply, problem ? nullptr : ObRef<ObObject>(handle));
        appendValue(reply, problem ? nullptr : ObRef<ObObject>(creator));
        return appendValue(reply, problem);
    });
    return id;
}

void Daemon::sendEvent(const std::string& owner, std::uint64_t client, std::uint64_t serial,
                       ObInteger event, const ObRef<ObDictionary>& params, RelayDelegate& relay) {
    sd_bus_message* signal = nullptr;
    ObRef<ObError> failure;
    int result = sd_bus_message_new_signal(bus_, &signal, objectPath, interfaceName, "Event");
    if (result >= 0)
        result = sd_bus_message_set_destination(signal, owner.c_str());
    if (result >= 0)
        result = sd_bus_message_append(signal, "ttx", client, serial, std::int64_t(event));
    if (result >= 0 && !(failure = appendValue(signal, params)))
        result = sd_bus_send(bus_, signal, nullptr);
    sd_bus_message_unref(signal);
    // An event that cannot reach the client fails as a delegate that threw.
    if (failure)
        relay.returned(serial, EventOutcome::threwException,
                       std::string(failure->localizedDescription()->text()));
    else if (result < 0)
        relay.returned(serial, EventOutcome::threwException,
                       "The event could not be sent to the client process.");
}

int Daemon::onRelease(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    std::uint64_t id = 0;
    if (int result = sd_bus_message_read(call, "t", &id); result < 0)
        return result;
    if (!self.callersClient(call, id, error))
        return -EINVAL;
    self.release(id);
    return sd_bus_reply_method_return(call, "");
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
    if (auto found = contexts_.find(key); found != contexts_.end()) {
        sd_event_source_disable_unref(found->second.idleTimer);
        contexts_.erase(found);
    }
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
    if (sd_event_add_time_relative(sd_bus_get_event(bus_), &context.idleTimer, CLOCK_MONOTONIC,
                                   usec, 0, &Daemon::onIdle, timer) < 0) {
        delete timer;
        return;
    }
    sd_event_source_set_destroy_callback(context.idleTimer, &deleteIdleTimer);
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
            self.services_->forUser(found->second.uid, noService))
        service->clientWithExternalizedContext_uiDelegate_reply(
            found->second.handle, nullptr, [](ObRef<KVClient> client, ObRef<ObError>) {
                if (client)
                    client->invalidate();
            });
    self.forgetContext(key);
    return 0;
}

int Daemon::onInvalidate(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    std::uint64_t id = 0;
    if (int result = sd_bus_message_read(call, "t", &id); result < 0)
        return result;
    Client* client = self.callersClient(call, id, error);
    if (!client)
        return -EINVAL;
    client->client->invalidate();
    self.forgetContext(client->handleKey);
    return sd_bus_reply_method_return(call, "");
}

int Daemon::onEvaluatePolicy(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    std::uint64_t id = 0;
    std::int64_t policy = 0;
    ObRef<ObDictionary> options;
    if (int result = sd_bus_message_read(call, "tx", &id, &policy); result < 0)
        return result;
    if (int refused = readArgument(call, options, "The options", "a dictionary", error);
        refused < 0)
        return refused;
    Client* client = self.callersClient(call, id, error);
    if (!client)
        return -EINVAL;
    ++client->evaluations;
    Daemon* daemon = &self;
    client->client->evaluatePolicy_options_reply(
        ObInteger(policy), options, self.replyCallback(call, outcomeWriter, [daemon, id] {
            if (auto found = daemon->clients_.find(id); found != daemon->clients_.end())
                if (--found->second.evaluations == 0 && found->second.gone)
                    daemon->release(id);
        }));
    return 1;
}

int Daemon::onEvaluateACL(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    std::uint64_t id = 0;
    ObRef<ObObject> acl, operation;
    ObRef<ObDictionary> options;
    if (int result = sd_bus_message_read(call, "t", &id); result < 0)
        return result;
    for (ObRef<ObObject>* value : {&acl, &operation})
        if (int refused = readArgument(call, *value, "The ACL or operation", "a value", error);
            refused < 0)
            return refused;
    if (int refused = readArgument(call, options, "The options", "a dictionary", error);
        refused < 0)
        return refused;
    Client* client = self.callersClient(call, id, error);
    if (!client)
        return -EINVAL;
    client->client->evaluateACL_operation_options_reply(acl, operation, options,
                                                        self.replyCallback(call, outcomeWriter));
    return 1;
}

int Daemon::onEnterPassword(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    sd_bus_message_sensitive(call);
    std::uint64_t id = 0;
    ObRef<ObObject> password;
    if (int result = sd_bus_message_read(call, "t", &id); result < 0)
        return result;
    if (int refused = readArgument(call, password, "The password", "a value", error); refused < 0)
        return refused;
    Client* client = self.callersClient(call, id, error);
    if (!client)
        return -EINVAL;
    client->client->enterPassword_reply(password, self.replyCallback(call, successWriter));
    return 1;
}

int Daemon::onFailProcessedEvent(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    std::uint64_t id = 0;
    std::int64_t event = 0;
    ObRef<ObObject> failureError;
    if (int result = sd_bus_message_read(call, "tx", &id, &event); result < 0)
        return result;
    if (int refused = readArgument(call, failureError, "The failure", "a value", error);
        refused < 0)
        return refused;
    Client* client = self.callersClient(call, id, error);
    if (!client)
        return -EINVAL;
    client->client->failProcessedEvent_failureError_reply(ObInteger(event), failureError,
                                                          self.replyCallback(call, successWriter));
    return 1;
}

int Daemon::onAnswerEvent(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    sd_bus_message_sensitive(call);
    std::uint64_t id = 0, serial = 0;
    ObRef<ObDictionary> response;
    ObRef<ObError> failure;
    if (int result = sd_bus_message_read(call, "tt", &id, &serial); result < 0)
        return result;
    if (int refused = readArgument(call, response, "The response", "a dictionary", error);
        refused < 0)
        return refused;
    if (int refused = readArgument(call, failure, "The answer's error", "an error", error);
        refused < 0)
        return refused;
    Client* client = self.callersClient(call, id, error);
    if (!client)
        return -EINVAL;
    if (client->relay)
        client->relay->answer(serial, response, failure);
    return sd_bus_reply_method_return(call, "");
}

int Daemon::onEventReturned(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    auto& self = *static_cast<Daemon*>(userdata);
    std::uint64_t id = 0, serial = 0;
    std::int32_t outcome = 0;
    const char* text = nullptr;
    if (int result = sd_bus_message_read(call, "ttis", &id, &serial, &outcome, &text); result < 0)
        return result;
    if (outcome < 0 || outcome > int(EventOutcome::threwOther))
        return refuse(error, errorInvalidValue, "The outcome must be 0, 1 or 2");
    Client* client = self.callersClient(call, id, error);
    if (!client)
        return -EINVAL;
    if (client->relay)
        client->relay->returned(serial, EventOutcome(outcome), text);
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
    sd_bus_message* reply = nullptr;
    int result = sd_bus_message_new_method_return(call, &reply);
    if (result >= 0)
        result = sd_bus_message_append(
            reply, "a{st}", 6, "contexts", std::uint64_t(self.contexts_.size()), "clients",
            std::uint64_t(self.clients_.size()), "connections",
            std::uint64_t(self.clientsByOwner_.size()), "calls",
            std::uint64_t(self.deferred_.size()), "evaluations", evaluations, "events", events);
    if (result >= 0)
        result = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return result;
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
    for (auto call = self.deferred_.begin(); call != self.deferred_.end();) {
        if (std::string_view(sd_bus_message_get_sender(call->second)) == name) {
            sd_bus_message_unref(call->second);
            call = self.deferred_.erase(call);
        } else {
            ++call;
        }
    }
    for (std::uint64_t id : ids) {
        Client& client = self.clients_.at(id);
        // Its evaluations end as if the process had stopped them.
        if (client.evaluations > 0) {
            std::set<ObInteger> events =
                client.relay ? client.relay->raisedEvents() : std::set<ObInteger>{};
            events.insert(2); // the passcode event, raised or not
            for (ObInteger event : events)
                client.client->failProcessedEvent_failureError_reply(event, nullptr,
                                                                     [](bool, ObRef<ObError>) {});
            // Released once the service has replied to its last evaluation.
            client.gone = true;
            if (client.relay)
                client.relay->close();
            continue;
        }
        self.release(id);
    }
    return 0;
}
} // namespace tessiva::daemon
