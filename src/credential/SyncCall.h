// SPDX-License-Identifier: MIT
// The synchronous form of an asynchronous operation: start it, then wait,
// without time-out, until its reply has run.
#pragma once

#include "tessiva/object/ObError.h"

#include <atomic>
#include <memory>
#include <utility>

namespace tessiva::detail {

// Calls `start` with a one-argument reply that keeps the first value it
// receives and signals; then waits for that signal and returns the value. A
// reply that ran before `start` returned leaves the signal waiting, so this
// returns at once; a reply that never runs blocks for ever. Later replies,
// from any thread, change nothing here. An exception out of `start` passes
// through without waiting.
template <class Value, class Start> ObRef<Value> waitForReply(Start&& start) {
    // Shared with the reply, which may run on another thread after this
    // frame would otherwise be gone. Only the reply that claims it first
    // writes the value, before releasing `ready`, so the acquiring wait
    // orders the read after that one write. A reply that has already run,
    // the usual case, costs the wait a single load.
    struct Rendezvous {
        std::atomic<bool> claimed{false};
        std::atomic<bool> ready{false};
        ObRef<Value> value;
    };
    auto rendezvous = std::make_shared<Rendezvous>();
    std::forward<Start>(start)([rendezvous](ObRef<Value> value) {
        if (rendezvous->claimed.exchange(true, std::memory_order_relaxed))
            return;
        rendezvous->value = std::move(value);
        rendezvous->ready.store(true, std::memory_order_release);
        rendezvous->ready.notify_one();
    });
    rendezvous->ready.wait(false, std::memory_order_acquire);
    return std::move(rendezvous->value);
}

// The boolean forms: true when the reply brought no error. A given `error`
// is always written, so a stale error is cleared on success; it is left
// alone when `start` throws.
template <class Start> bool waitForErrorReply(Start&& start, ObRef<ObError>* error) {
    ObRef<ObError> received = waitForReply<ObError>(std::forward<Start>(start));
    const bool succeeded = !received;
    if (error != nullptr)
        *error = std::move(received);
    return succeeded;
}

} // namespace tessiva::detail
