// SPDX-License-Identifier: MIT
// Calls go out from the calling thread under the loop's lock; replies and
// events come in on the loop's thread, or on a thread waiting for a reply;
// callers' callbacks run on the loop's thread, deferred.
#include "BusLink.h"

#include "services/dbus/BusInterface.h"
#include "services/dbus/ValueCodec.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/ObString.h"

#include <cstring>

namespace tessiva::detail::bus {
ObRef<ObError> unreachableError(std::string_view why) {
    return kvError(KVErrorServiceUnavailable,
                   "The authentication daemon cannot be reached: " + std::string(why));
}

ObRef<ObError> malformedReplyError() {
    return kvError(KVErrorServiceUnavailable, "The authentication daemon sent a malformed reply.");
}

namespace {
// How a failed call reads to the caller: the daemon's own refusals keep
// their meaning, anything else means the daemon is out of reach.
ObRef<ObError> errorFromBus(const sd_bus_error* error) {
    const std::string message = error->message ? error->message : error->name;
    if (sd_bus_error_has_name(error, errorInvalidValue))
        return KVErrorHelper::parameterErrorWithMessage(ObString::make(message));
    if (sd_bus_error_has_name(error, errorUnknownClient))
        return kvError(KVErrorInvalidContext, "The context is unknown to the authentication "
                                              "daemon (it may have restarted).");
    // A daemon of another version knows no such interface; the bus itself
    // says ServiceUnknown when no daemon runs.
    if (sd_bus_error_has_names(error, SD_BUS_ERROR_UNKNOWN_METHOD, SD_BUS_ERROR_UNKNOWN_INTERFACE,
                               SD_BUS_ERROR_UNKNOWN_OBJECT))
        return kvError(KVErrorServiceUnavailable,
                       std::string("The authentication daemon does not speak ") + interfaceName +
                           ", which this library needs; tessivad and the library must come "
                           "from one release: " +
                           message);
    if (sd_bus_error_has_name(error, SD_BUS_ERROR_LIMITS_EXCEEDED))
        return kvError(KVErrorServiceUnavailable,
                       "The authentication daemon refused the request: " + message);
    return unreachableError(message);
}

struct PendingCall {
    ReplyReader read;
};

// Why the value cannot cross the bus, tried on a scratch message so that
// the real one stays usable; absent when it can.
ObRef<ObError> encodingError(sd_bus_message* like, const ObRef<ObObject>& value) {
    MessageRef scratch;
    if (sd_bus_message_new_method_call(sd_bus_message_get_bus(like), scratch.put(), "a.b", "/",
                                       "a.b", "c") < 0)
        return nullptr;
    return appendValue(scratch.get(), value);
}

int onReply(sd_bus_message* reply, void* userdata, sd_bus_error*) {
    auto& pending = *static_cast<PendingCall*>(userdata);
    if (const sd_bus_error* error = sd_bus_message_get_error(reply))
        pending.read(nullptr, errorFromBus(error));
    else
        pending.read(reply, nullptr);
    pending.read = nullptr; // once only, even if the slot lingers
    return 0;
}

void deletePendingCall(void* userdata) {
    delete static_cast<PendingCall*>(userdata);
}
} // namespace

// What the link's owners hold: the loop thread holds the link itself, so
// that a callback that drops the last owner ends the loop without pulling
// it from under its own thread.
struct BusLink::Grip {
    std::shared_ptr<BusLink> link;
    std::thread thread;
    ~Grip() {
        link->loop_.stop();
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else if (thread.joinable())
            thread.join();
    }
};

std::shared_ptr<BusLink> BusLink::open(const BusAddress& where, std::string& problem) {
    std::shared_ptr<BusLink> link(new BusLink());
    int result = connectToBus(where, &link->loop_, link->bus_);
    if (result >= 0)
        result = sd_bus_add_filter(link->bus_.get(), nullptr, &BusLink::onMessage, link.get());
    if (result < 0) {
        problem = std::strerror(-result);
        return nullptr;
    }
    auto grip = std::make_shared<Grip>();
    grip->link = link;
    grip->thread = std::thread([link] {
        link->loop_.run();
        // Release requests and answers still queued go out before the close.
        link->bus_.reset();
    });
    return {grip, link.get()};
}

void BusLink::call(const char* member, ArgumentWriter write, ReplyReader read, bool forever) {
    sendHeldAnswers();
    sendNow(member, write, std::move(read), forever);
}

void BusLink::callAndWait(const char* member, ArgumentWriter write, ReplyReader read) {
    bool done = false; // under the loop's lock, or before the call went out
    call(member, std::move(write), [&](sd_bus_message* reply, ObRef<ObError> failure) {
        read(reply, std::move(failure));
        done = true;
    });
    loop_.waitUntil([&] { return done; });
    if (!done)
        read(nullptr, unreachableError("the connection has closed"));
}

void BusLink::send(const char* member, ArgumentWriter write) {
    sendHeldAnswers();
    sendNow(member, write, nullptr, false);
}

void BusLink::sendNow(const char* member, const ArgumentWriter& write, ReplyReader read,
                      bool forever) {
    // On the calling thread, which saves a hand-off to the loop's; the
    // reply comes on the loop's thread.
    std::unique_lock held(loop_.lock());
    MessageRef message;
    int result = sd_bus_message_new_method_call(bus_.get(), message.put(), busName, objectPath,
                                                interfaceName, member);
    ObRef<ObError> failure;
    // Passcodes and answers cross in these; sd-bus wipes them when freed.
    if (result >= 0)
        sd_bus_message_sensitive(message.get());
    if (result >= 0 && write)
        failure = write(message.get());
    if (result >= 0 && !failure) {
        if (!read) {
            sd_bus_message_set_expect_reply(message.get(), 0);
            result = sd_bus_send(bus_.get(), message.get(), nullptr);
        } else {
            // The slot floats: sd-bus frees it, and the pending call with
            // it, once the reply has come or the connection has closed.
            SlotRef slot;
            auto* pending = new PendingCall{read};
            result = sd_bus_call_async(bus_.get(), slot.put(), message.get(), &onReply, pending,
                                       forever ? UINT64_MAX : 0);
            if (result >= 0) {
                sd_bus_slot_set_destroy_callback(slot.get(), &deletePendingCall);
                sd_bus_slot_set_floating(slot.get(), 1);
            } else {
                delete pending;
            }
        }
    }
    // The loop looks again when the message is not all out yet, or the
    // reply has a time-out to keep.
    if (result >= 0 && read && !forever)
        loop_.wake();
    else if (result >= 0)
        loop_.lookAgainAfter(bus_.get());
    message.reset(); // sd-bus counts its references without atomics
    held.unlock();
    if (!read)
        return;
    if (failure)
        read(nullptr, failure);
    else if (result < 0)
        read(nullptr, unreachableError(std::strerror(-result)));
}

void BusLink::addDelegate(const std::string& client, const char* daemon,
                          ObRef<KVUIDelegate> delegate) {
    std::lock_guard lock(delegatesMutex_);
    delegates_[client] = Delegate{daemon != nullptr ? daemon : "", std::move(delegate)};
}

void BusLink::forgetDelegate(const std::string& client) {
    ObRef<KVUIDelegate> forgotten;
    std::lock_guard lock(delegatesMutex_);
    if (auto found = delegates_.find(client); found != delegates_.end()) {
        forgotten = std::move(found->second.delegate);
        delegates_.erase(found);
    }
}

int BusLink::onMessage(sd_bus_message* message, void* self, sd_bus_error*) {
    auto& link = *static_cast<BusLink*>(self);
    if (sd_bus_message_is_signal(message, "org.freedesktop.DBus.Local", "Disconnected"))
        link.connected_ = false;
    else if (sd_bus_message_is_signal(message, interfaceName, "Event"))
        link.deliverEvent(message);
    return 0;
}

void BusLink::deliverEvent(sd_bus_message* message) {
    const char* path = sd_bus_message_get_path(message);
    const char* sender = sd_bus_message_get_sender(message);
    ObRef<KVUIDelegate> delegate;
    {
        std::lock_guard lock(delegatesMutex_);
        auto found = path != nullptr ? delegates_.find(path) : delegates_.end();
        // Anything else is another peer's forgery, or for a client gone:
        // neither is answered.
        if (found == delegates_.end() || sender == nullptr || found->second.daemon != sender)
            return;
        delegate = found->second.delegate;
    }
    std::uint64_t serial = 0;
    std::int64_t event = 0;
    ObRef<ObObject> params;
    if (sd_bus_message_read(message, "tx", &serial, &event) < 0 ||
        !readValue(message, params).empty())
        return;
    // Weak: a delegate may keep its reply after every client has gone.
    loop_.defer([weak = weak_from_this(), delegate, client = std::string(path), serial, event,
                 params = ob_cast<ObDictionary>(params)] {
        std::shared_ptr<BusLink> link = weak.lock();
        if (!link)
            return;
        // The answer given during the delegate's call goes with its return,
        // one message for both, unless the process calls the daemon first;
        // one given later goes alone.
        auto call = std::make_shared<EventCall>();
        call->client = client;
        call->serial = serial;
        {
            std::lock_guard lock(link->callsMutex_);
            link->calls_.push_back(call);
        }
        KVUIReply answer = [weak, call](ObRef<ObDictionary> response, ObRef<ObError> error) {
            {
                std::lock_guard lock(call->mutex);
                if (call->answered)
                    return;
                call->answered = true;
                if (!call->returned) {
                    call->response = std::move(response);
                    call->error = std::move(error);
                    return;
                }
            }
            if (std::shared_ptr<BusLink> alive = weak.lock())
                alive->answerEvent(call->client, call->serial, EventOutcome::returned, "", true,
                                   response, error);
        };
        EventOutcome outcome = EventOutcome::returned;
        std::string thrown;
        try {
            delegate->event_params_reply(ObInteger(event), params, std::move(answer));
        } catch (const std::exception& exception) {
            outcome = EventOutcome::threwException;
            thrown = exception.what();
        } catch (...) {
            outcome = EventOutcome::threwOther;
        }
        {
            std::lock_guard lock(link->callsMutex_);
            std::erase(link->calls_, call);
        }
        std::unique_lock lock(call->mutex);
        call->returned = true;
        const bool answered = call->answered && !call->sent;
        ObRef<ObDictionary> response = std::move(call->response);
        ObRef<ObError> error = std::move(call->error);
        lock.unlock();
        link->answerEvent(client, serial, outcome, thrown, answered, response, error);
    });
}

void BusLink::sendHeldAnswers() {
    std::vector<std::shared_ptr<EventCall>> calls;
    {
        std::lock_guard lock(callsMutex_);
        if (calls_.empty())
            return;
        calls = calls_;
    }
    for (const std::shared_ptr<EventCall>& call : calls) {
        ObRef<ObDictionary> response;
        ObRef<ObError> error;
        {
            std::lock_guard lock(call->mutex);
            if (!call->answered || call->sent || call->returned)
                continue;
            call->sent = true;
            response = std::move(call->response);
            error = std::move(call->error);
        }
        answerEvent(call->client, call->serial, EventOutcome::running, "", true, response, error);
    }
}

void BusLink::answerEvent(const std::string& client, std::uint64_t serial, EventOutcome outcome,
                          const std::string& thrown, bool answered,
                          const ObRef<ObDictionary>& response, const ObRef<ObError>& error) {
    sendNow(
        "AnswerEvent",
        [=](sd_bus_message* m) -> ObRef<ObError> {
            sd_bus_message_append(m, "otisb", client.c_str(), serial, std::int32_t(outcome),
                                  thrown.c_str(), int(answered));
            // An answer that cannot cross fails the evaluation with the reason.
            if (ObRef<ObError> failure = encodingError(m, response))
                return appendValue(m, nullptr) ? failure : appendValue(m, failure);
            if (ObRef<ObError> failure = appendValue(m, response))
                return failure;
            return appendValue(m, error);
        },
        nullptr, false);
}

} // namespace tessiva::detail::bus
