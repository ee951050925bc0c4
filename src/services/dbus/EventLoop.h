// SPDX-License-Identifier: MIT
// EventLoop: an sd-event loop on one thread, with a queue through which any
// thread hands it work, and a lock that the loop's thread holds while it runs
// anything and lets go of only while it waits. sd-bus and sd-event objects
// are not thread-safe: the loop's sources and connections are used on the
// loop's thread, or by another thread that holds the lock, which saves that
// thread a hand-off. Such a thread wakes the loop when what it did needs the
// loop to look again: a timer armed, a message left half written, a reply
// with a time-out. A thread that waits for a reply may run the loop itself
// meanwhile (waitUntil), and callers' callbacks run on the loop's thread
// with the lock let go of (defer), so a callback that blocks stalls only
// the callbacks after it.
#pragma once

#include "services/core/Wakeup.h"
#include "services/dbus/SdBus.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace tessiva::detail::bus {
class EventLoop {
public:
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    sd_event* event() const noexcept { return event_.get(); }
    // False when the loop could not be made (no memory, no descriptors).
    bool usable() const noexcept {
        return event_ && wakeup_.fd() >= 0 && deferredWakeup_.fd() >= 0;
    }

    // Runs the task on the loop's thread, in the order posted; tasks posted
    // before stop() still run, those posted after run() has returned are
    // dropped. Safe from any thread.
    void post(std::function<void()> task);
    // Runs the task on the loop's thread with the lock let go of, in the
    // order deferred, once the loop is through what it is dispatching: for
    // callers' callbacks, which may block or call back in. Safe from any
    // thread; dropped once stop() has been asked.
    void defer(std::function<void()> task);
    // Runs the loop on the calling thread until `done()`, asked under the
    // lock, holds, the deadline passes or the loop has ended; whether
    // `done()` held. For a thread waiting for a reply, which may be the
    // loop's own thread inside a deferred task; not from inside a dispatch
    // (a posted task, a bus callback). A signal of `alsoWakesOn`, the
    // caller's, makes it ask `done()` again.
    bool waitUntil(const std::function<bool()>& done,
                   std::optional<std::chrono::steady_clock::time_point> deadline = {},
                   const Wakeup* alsoWakesOn = nullptr);
    // Whether the calling thread is inside the loop's dispatch.
    bool dispatching() const noexcept { return dispatcher_.load() == std::this_thread::get_id(); }
    // Runs until stop(); on the calling thread, which becomes the loop's.
    int run();
    // Runs the task at once on the calling thread under the lock, as the
    // loop's thread would, when the lock is free (dropped once run() has
    // returned, as what the loop served may be gone); when another thread
    // holds it, posts the task instead of waiting. A service thread that meets a busy loop
    // thus hands its message over rather than sleeping on the lock, to be
    // woken again as the loop's thread lets go: under load that sleep and
    // wake-up cost more than the message.
    void runHereOrPost(std::function<void()> task);
    // Ends run() after the current task; safe from any thread.
    void stop();
    bool onLoopThread() const noexcept { return std::this_thread::get_id() == thread_.load(); }

    // Held, another thread may use the loop's connections and sources.
    // Recursive, as sd-bus callbacks run under it.
    std::recursive_mutex& lock() noexcept { return lock_; }
    // Whether run() has ended; asked under the lock, what the loop served
    // may be gone once it has.
    bool finished() const noexcept { return finished_; }
    // Wakes the loop: after another thread's use of a connection asked for
    // a time-out.
    void wake();
    // Makes the loop look at its sources again before it next waits: after
    // a timer was armed, from any thread (on the loop's own, a deferred
    // task's change would otherwise wait for the next event).
    void lookAgain();
    // After a use of one of the loop's connections: the loop looks again
    // when a message is left half written, which only its next look sends
    // on.
    void lookAgainAfter(sd_bus* bus);

private:
    static int onWakeup(sd_event_source* source, int fd, uint32_t events, void* self);
    // One look, under the lock: 1 when it dispatched, 0 when the loop is
    // armed and the caller may poll its descriptor, negative when it failed
    // or has finished.
    int turn();
    // Runs the deferred tasks queued so far, on the loop's thread without
    // the lock; whether there were any.
    bool runDeferred();
    void wakeWaiters();

    EventRef event_;
    EventSourceRef wakeupSource_;
    Wakeup wakeup_;
    // Wakes the loop's thread alone for deferred tasks: a waiting thread
    // that runs the loop would take a wake-up through sd-event for itself.
    Wakeup deferredWakeup_;
    std::mutex mutex_;
    std::deque<std::function<void()>> tasks_;
    std::deque<std::function<void()>> deferred_;
    bool stopping_ = false;
    // run() has returned: posts are dropped (under mutex_).
    bool closed_ = false;
    std::atomic<std::thread::id> thread_{};
    std::atomic<std::thread::id> dispatcher_{}; // the thread in the dispatch
    std::atomic<std::uint64_t> turns_{0};       // looks taken, by any thread
    std::recursive_mutex lock_;
    bool finished_ = false;
    std::vector<const Wakeup*> waiters_; // each waiting thread's (under lock_)
};
} // namespace tessiva::detail::bus
