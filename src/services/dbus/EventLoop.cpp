// SPDX-License-Identifier: MIT
// The loop's queue is woken through an eventfd, so posting never blocks.
#include "EventLoop.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <poll.h>

namespace tessiva::detail::bus {
namespace {
// The wake-up this thread waits on in waitUntil, if any.
thread_local const Wakeup* waitingOn = nullptr;
} // namespace

EventLoop::EventLoop() {
    if (wakeup_.fd() < 0 || sd_event_new(event_.put()) < 0)
        return;
    if (sd_event_add_io(event_.get(), wakeupSource_.put(), wakeup_.fd(), EPOLLIN,
                        &EventLoop::onWakeup, this) < 0)
        event_.reset();
}

EventLoop::~EventLoop() {
    // The source leaves the loop's epoll set before its descriptor closes.
    wakeupSource_.reset();
    event_.reset();
}

void EventLoop::post(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        // A task posted once the loop has ended would never run, and may hold
        // whatever holds this loop: it is dropped, outside the lock.
        if (!closed_)
            tasks_.push_back(std::move(task));
    }
    wake();
}

void EventLoop::runHereOrPost(std::function<void()> task) {
    std::unique_lock held(lock_, std::try_to_lock);
    if (!held)
        post(std::move(task));
    else if (!finished_)
        task();
}

void EventLoop::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake();
    // A waiting thread may be the one that ends the loop: its own thread
    // then needs a look.
    deferredWakeup_.signal();
}

void EventLoop::wake() {
    wakeup_.signal();
}

void EventLoop::lookAgain() {
    // The loop's own thread, in a deferred task, would otherwise poll
    // without arming what the task changed.
    if (onLoopThread())
        turns_.fetch_add(1, std::memory_order_relaxed);
    else
        wake();
}

void EventLoop::lookAgainAfter(sd_bus* bus) {
    if (sd_bus_get_events(bus) & POLLOUT)
        lookAgain();
}

void EventLoop::defer(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        // Dropped, outside the lock, once the owner is going: what it holds
        // may refer to that owner.
        if (stopping_ || closed_)
            return;
        deferred_.push_back(std::move(task));
    }
    if (!onLoopThread())
        deferredWakeup_.signal();
}

int EventLoop::turn() {
    turns_.fetch_add(1, std::memory_order_relaxed);
    sd_event* event = event_.get();
    int result = 0;
    const int state = sd_event_get_state(event);
    if (state == SD_EVENT_FINISHED)
        return -ESHUTDOWN;
    // Armed: this thread or another has polled since; sd_event_loop's steps
    // otherwise, every one of them under the lock.
    if (state == SD_EVENT_ARMED)
        result = sd_event_wait(event, 0);
    if (result == 0 && (result = sd_event_prepare(event)) == 0)
        return 0;
    if (result > 0) {
        dispatcher_.store(std::this_thread::get_id());
        result = sd_event_dispatch(event);
        dispatcher_.store({});
        wakeWaiters();
    }
    return result < 0 ? result : 1;
}

void EventLoop::wakeWaiters() {
    for (const Wakeup* waiter : waiters_)
        if (waiter != waitingOn)
            waiter->signal();
}

bool EventLoop::runDeferred() {
    std::deque<std::function<void()>> batch;
    {
        std::lock_guard lock(mutex_);
        if (deferred_.empty())
            return false;
        batch.swap(deferred_);
    }
    for (std::function<void()>& task : batch) {
        bool stopping = false;
        {
            std::lock_guard lock(mutex_);
            stopping = stopping_;
        }
        if (!stopping)
            task();
        task = nullptr; // what it captured goes before the next task
    }
    return true;
}

int EventLoop::run() {
    thread_.store(std::this_thread::get_id());
    sd_event* event = event_.get();
    pollfd ready[2] = {{sd_event_get_fd(event), POLLIN, 0}, {deferredWakeup_.fd(), POLLIN, 0}};
    std::unique_lock held(lock_);
    int result = 0;
    // Deferred tasks run once the loop is armed, so that it polls after
    // them without taking the lock again: a task that wakes a caller, who
    // calls at once under the lock, would otherwise meet the loop's thread
    // at the lock. The poll is skipped when another thread turned the loop
    // meanwhile, which may have left it disarmed.
    while ((result = turn()) >= 0) {
        if (result > 0)
            continue;
        const std::uint64_t armedAt = turns_.load();
        held.unlock();
        if (!runDeferred() || turns_.load() == armedAt) {
            while (poll(ready, 2, -1) < 0 && errno == EINTR) {
            }
            if (ready[1].revents & POLLIN)
                deferredWakeup_.clear();
        }
        held.lock();
    }
    if (sd_event_get_state(event) == SD_EVENT_FINISHED)
        sd_event_get_exit_code(event, &result);
    finished_ = true;
    wakeWaiters();
    held.unlock();
    std::deque<std::function<void()>> left, leftDeferred;
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
        left.swap(tasks_);
        leftDeferred.swap(deferred_);
    }
    return result;
}

bool EventLoop::waitUntil(const std::function<bool()>& done,
                          std::optional<std::chrono::steady_clock::time_point> deadline,
                          const Wakeup* alsoWakesOn) {
    thread_local const Wakeup wake;
    const Wakeup* outer = std::exchange(waitingOn, &wake);
    std::unique_lock held(lock_);
    if (wake.fd() >= 0)
        waiters_.push_back(&wake);
    bool met = false;
    bool turned = false;
    while (!(met = done()) && !finished_) {
        turned = true;
        const int result = turn();
        if (result < 0)
            break;
        if (result > 0)
            continue;
        // Without a wake-up of its own, the thread looks again now and then
        // for what another thread's dispatch brought it.
        int timeout = wake.fd() >= 0 ? -1 : 1;
        if (deadline) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                *deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                break;
            if (timeout < 0 || left.count() < timeout)
                timeout = int(std::min<std::int64_t>(left.count(), 1 << 30));
        }
        held.unlock();
        pollfd ready[3] = {{sd_event_get_fd(event_.get()), POLLIN, 0},
                           {wake.fd(), POLLIN, 0},
                           {alsoWakesOn ? alsoWakesOn->fd() : -1, POLLIN, 0}};
        while (poll(ready, 3, timeout) < 0 && errno == EINTR) {
        }
        if (ready[1].revents & POLLIN)
            wake.clear();
        if (ready[2].revents & POLLIN)
            alsoWakesOn->clear();
        held.lock();
    }
    std::erase(waiters_, &wake);
    waitingOn = outer;
    // What this thread read but left undispatched is on no descriptor: the
    // loop's thread, which may be polling, looks again.
    if (turned && !onLoopThread())
        deferredWakeup_.signal();
    return met;
}

int EventLoop::onWakeup(sd_event_source*, int, uint32_t, void* self) {
    auto& loop = *static_cast<EventLoop*>(self);
    loop.wakeup_.clear();
    for (;;) {
        std::function<void()> task;
        {
            std::lock_guard lock(loop.mutex_);
            if (loop.tasks_.empty())
                return loop.stopping_ ? sd_event_exit(loop.event_.get(), 0) : 0;
            task = std::move(loop.tasks_.front());
            loop.tasks_.pop_front();
        }
        task();
    }
}
} // namespace tessiva::detail::bus
