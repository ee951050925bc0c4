// SPDX-License-Identifier: MIT
// RelayDelegate: the KVUIDelegate the daemon gives the hosted service for a
// client with a delegate. It forwards each event to that client process and
// waits until the process's delegate call has returned, so that what it
// threw reaches the service as if the delegate were in process; the answer
// usually comes back with the return, else later. Notices, which need no
// answer, wait to go out with the evaluation's result.
#pragma once

#include "services/core/Condition.h"
#include "services/core/NoticeDelegate.h"
#include "services/dbus/BusInterface.h"
#include "services/dbus/EventLoop.h"
#include "tessiva/kavelin/KVUIDelegate.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace tessiva::daemon {
using detail::bus::EventOutcome;

// How long a service thread waits for the client's delegate call to return.
inline constexpr std::chrono::seconds returnTimeout{10};

// Sends an event to the client; under the loop's lock, on any thread.
using EventSender =
    std::function<void(std::uint64_t serial, ObInteger event, const ObRef<ObDictionary>& params)>;

class RelayDelegate final : public detail::NoticeDelegate {
public:
    RelayDelegate(std::shared_ptr<detail::bus::EventLoop> loop, EventSender send)
        : loop_(std::move(loop)), send_(std::move(send)) {}

    // On a service thread: relays, then waits for the call's return.
    void event_params_reply(ObInteger event, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override;

    // Kept for the evaluation's result; dropped once the client is gone.
    void notice(ObInteger event, const ObRef<ObDictionary>& params) override;
    struct Notice {
        ObInteger event;
        ObRef<ObDictionary> params;
    };
    // The notices so far, to send with a result. On the loop's thread.
    std::vector<Notice> takeNotices();

    // The client's answer to an event; a second answer, or one to an unknown
    // event, is dropped. On the loop's thread.
    void answer(std::uint64_t serial, const ObRef<ObDictionary>& response,
                const ObRef<ObError>& error);
    // The client's delegate call for the event has ended.
    void returned(std::uint64_t serial, EventOutcome outcome, std::string text);
    // The client is gone: waiting events return, answers are dropped, and
    // later events are acknowledged at once with no answer.
    void close();

    // The events raised so far, to stop them when the client goes.
    std::set<ObInteger> raisedEvents();
    // Events whose answer or return is still awaited.
    std::size_t pendingCount();

    const char* className() const noexcept override { return "RelayDelegate"; }

private:
    struct Return {
        bool done = false;
        EventOutcome outcome = EventOutcome::returned;
        std::string text;
    };

    const std::shared_ptr<detail::bus::EventLoop> loop_;
    const EventSender send_;
    std::mutex mutex_;
    detail::Condition changed_;
    bool closed_ = false;
    std::uint64_t nextSerial_ = 1;
    std::map<std::uint64_t, KVUIReply> answers_;
    std::map<std::uint64_t, Return> returns_;
    std::set<ObInteger> raised_;
    std::vector<Notice> notices_;
};
} // namespace tessiva::daemon
