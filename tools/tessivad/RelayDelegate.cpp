// SPDX-License-Identifier: MIT
// Events out to the client process, returns and answers back in.
#include "RelayDelegate.h"

#include <stdexcept>
#include <utility>

namespace tessiva::daemon {
void RelayDelegate::event_params_reply(ObInteger event, const ObRef<ObDictionary>& params,
                                       KVUIReply reply) {
    std::uint64_t serial = 0;
    {
        std::lock_guard lock(mutex_);
        if (closed_)
            return;
        serial = nextSerial_++;
        answers_.emplace(serial, std::move(reply));
        returns_.emplace(serial, Return{});
        raised_.insert(event);
    }
    // Sent from this thread when the loop is free, without a hand-off to the
    // loop's; what the loop served is gone once it has finished.
    loop_->runHereOrPost([self = ObRef<RelayDelegate>(this), serial, event, params] {
        self->send_(serial, event, params);
    });
    // A service that raises from the loop's dispatch cannot wait for it;
    // one that runs on the loop's thread serves the bus while it waits.
    if (loop_->onLoopThread() && !detail::WaitDriver::current()) {
        std::lock_guard lock(mutex_);
        returns_.erase(serial);
        return;
    }
    Return ended;
    {
        std::unique_lock lock(mutex_);
        // A delegate's call returns at once (the answer comes later); a
        // client that never says so must not hold a service thread.
        if (!changed_.wait(lock, std::chrono::steady_clock::now() + returnTimeout,
                           [&] { return closed_ || returns_[serial].done; }))
            returns_[serial] = Return{true, EventOutcome::threwException,
                                      "The client process did not return from the event."};
        ended = std::move(returns_[serial]);
        returns_.erase(serial);
    }
    if (ended.outcome == EventOutcome::threwException)
        throw std::runtime_error(ended.text);
    if (ended.outcome == EventOutcome::threwOther)
        throw EventOutcome::threwOther; // of no standard type, as the delegate's was
}

void RelayDelegate::notice(ObInteger event, const ObRef<ObDictionary>& params) {
    std::lock_guard lock(mutex_);
    if (!closed_)
        notices_.push_back({event, params});
}

std::vector<RelayDelegate::Notice> RelayDelegate::takeNotices() {
    std::lock_guard lock(mutex_);
    return std::exchange(notices_, {});
}

void RelayDelegate::answer(std::uint64_t serial, const ObRef<ObDictionary>& response,
                           const ObRef<ObError>& error) {
    KVUIReply reply;
    {
        std::lock_guard lock(mutex_);
        auto found = answers_.find(serial);
        if (found == answers_.end())
            return;
        reply = std::move(found->second);
        answers_.erase(found);
    }
    reply(response, error);
}

void RelayDelegate::returned(std::uint64_t serial, EventOutcome outcome, std::string text) {
    {
        std::lock_guard lock(mutex_);
        auto found = returns_.find(serial);
        if (found == returns_.end() || found->second.done)
            return;
        found->second = Return{true, outcome, std::move(text)};
    }
    changed_.notifyAll();
}

void RelayDelegate::close() {
    std::map<std::uint64_t, KVUIReply> dropped;
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
        dropped.swap(answers_);
        notices_.clear();
        for (auto& [serial, ended] : returns_)
            ended.done = true;
    }
    changed_.notifyAll();
}

std::set<ObInteger> RelayDelegate::raisedEvents() {
    std::lock_guard lock(mutex_);
    return raised_;
}

std::size_t RelayDelegate::pendingCount() {
    std::lock_guard lock(mutex_);
    return answers_.size() + returns_.size();
}
} // namespace tessiva::daemon
