// SPDX-License-Identifier: MIT
// The client's operations as calls to the daemon, with their replies read back.
#include "BusClient.h"

#include "services/core/NoticeDelegate.h"
#include "services/dbus/ValueCodec.h"
#include "tessiva/brindle/KVErrorHelper.h"

#include <cstdint>
#include <vector>

namespace tessiva::detail::bus {
namespace {
// A reply's (v result, v error): the error when the daemon's message is
// not one; `result` must then be a dictionary or absent.
ObRef<ObError> readOutcome(sd_bus_message* reply, ObRef<ObObject>& result) {
    ObRef<ObObject> error;
    if (!readValue(reply, result).empty() || !readValue(reply, error).empty())
        return malformedReplyError();
    return ob_cast<ObError>(error);
}

struct Notice {
    ObInteger event;
    ObRef<ObDictionary> params;
};

// An evaluation's notices (a(xv)): events that need no answer, for the
// delegate before the result.
ObRef<ObError> readNotices(sd_bus_message* reply, std::vector<Notice>& notices) {
    if (sd_bus_message_enter_container(reply, 'a', "(xv)") < 0)
        return malformedReplyError();
    while (sd_bus_message_at_end(reply, false) == 0) {
        std::int64_t event = 0;
        ObRef<ObObject> params;
        if (sd_bus_message_enter_container(reply, 'r', "xv") < 0 ||
            sd_bus_message_read(reply, "x", &event) < 0 || !readValue(reply, params).empty() ||
            (params && !ob_cast<ObDictionary>(params)) || sd_bus_message_exit_container(reply) < 0)
            return malformedReplyError();
        notices.push_back({ObInteger(event), ob_cast<ObDictionary>(params)});
    }
    return sd_bus_message_exit_container(reply) < 0 ? malformedReplyError() : nullptr;
}
} // namespace

BusClient::~BusClient() {
    link_->forgetDelegate(id_);
    link_->send("Release", [id = id_](sd_bus_message* m) -> ObRef<ObError> {
        sd_bus_message_append(m, "o", id.c_str());
        return nullptr;
    });
}

void BusClient::invalidate() {
    link_->callAndWait(
        "Invalidate",
        [this](sd_bus_message* m) -> ObRef<ObError> {
            sd_bus_message_append(m, "o", id_.c_str());
            return nullptr;
        },
        [](sd_bus_message*, ObRef<ObError>) {});
}

void BusClient::evaluatePolicy_options_reply(ObInteger policy, const ObRef<ObDictionary>& options,
                                             KVResultReply reply) {
    // The reply is deferred, after the events that came before it.
    auto shared = std::make_shared<KVResultReply>(std::move(reply));
    link_->call(
        "EvaluatePolicy",
        [this, policy, options](sd_bus_message* m) -> ObRef<ObError> {
            sd_bus_message_append(m, "ox", id_.c_str(), std::int64_t(policy));
            return appendValue(m, options);
        },
        // The pending call keeps the link alive, then the deferred task.
        [link = link_, shared, delegate = delegate_](sd_bus_message* message,
                                                     ObRef<ObError> failure) mutable {
            ObRef<ObObject> result;
            std::vector<Notice> notices;
            if (message) {
                failure = readOutcome(message, result);
                if (ObRef<ObError> malformed = readNotices(message, notices))
                    failure = malformed;
            }
            BusLink& deferring = *link;
            deferring.defer([link = std::move(link), shared, delegate, failure,
                             result = ob_cast<ObDictionary>(result), notices = std::move(notices)] {
                if (delegate)
                    for (const Notice& notice : notices)
                        notify(*delegate, notice.event, notice.params);
                (*shared)(failure ? nullptr : result, failure);
            });
        },
        true);
}

void BusClient::evaluateACL_operation_options_reply(const ObRef<ObObject>& acl,
                                                    const ObRef<ObObject>& operation,
                                                    const ObRef<ObDictionary>& options,
                                                    KVResultReply reply) {
    ObRef<ObObject> result;
    ObRef<ObError> error;
    link_->callAndWait(
        "EvaluateACL",
        [&](sd_bus_message* m) -> ObRef<ObError> {
            sd_bus_message_append(m, "o", id_.c_str());
            for (const ObRef<ObObject>& value : {acl, operation, ObRef<ObObject>(options)})
                if (ObRef<ObError> failure = appendValue(m, value))
                    return failure;
            return nullptr;
        },
        [&](sd_bus_message* message, ObRef<ObError> failure) {
            error = message ? readOutcome(message, result) : failure;
        });
    reply(error ? nullptr : ob_cast<ObDictionary>(result), error);
}

void BusClient::requestSuccess(const char* member, const ArgumentWriter& write,
                               const KVSuccessReply& reply) {
    bool succeeded = false;
    ObRef<ObError> error;
    link_->callAndWait(member, write, [&](sd_bus_message* message, ObRef<ObError> failure) {
        int flag = 0;
        ObRef<ObObject> carried;
        if (!message)
            error = failure;
        else if (sd_bus_message_read(message, "b", &flag) < 0 ||
                 !readValue(message, carried).empty())
            error = malformedReplyError();
        else
            error = ob_cast<ObError>(carried);
        succeeded = flag != 0 && !error;
    });
    reply(succeeded, error);
}

void BusClient::enterPassword_reply(const ObRef<ObObject>& password, KVSuccessReply reply) {
    requestSuccess(
        "EnterPassword",
        [&](sd_bus_message* m) -> ObRef<ObError> {
            sd_bus_message_append(m, "o", id_.c_str());
            return appendValue(m, password);
        },
        reply);
}

void BusClient::failProcessedEvent_failureError_reply(ObInteger event,
                                                      const ObRef<ObObject>& failureError,
                                                      KVSuccessReply reply) {
    requestSuccess(
        "FailProcessedEvent",
        [&](sd_bus_message* m) -> ObRef<ObError> {
            sd_bus_message_append(m, "ox", id_.c_str(), std::int64_t(event));
            return appendValue(m, failureError);
        },
        reply);
}

const char* BusClient::className() const noexcept {
    return "BusClient";
}
} // namespace tessiva::detail::bus
