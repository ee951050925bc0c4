// SPDX-License-Identifier: MIT
// The loop's queue is woken through an eventfd, so posting never blocks.
#include "EventLoop.h"

#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tessiva::detail::bus {
EventLoop::EventLoop() {
    wakeup_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeup_ < 0 || sd_event_new(event_.put()) < 0)
        return;
    if (sd_event_add_io(event_.get(), wakeupSource_.put(), wakeup_, EPOLLIN, &EventLoop::onWakeup,
                        this) < 0)
        event_.reset();
}

EventLoop::~EventLoop() {
    // The source leaves the loop's epoll set before its descriptor closes.
    wakeupSource_.reset();
    event_.reset();
    if (wakeup_ >= 0)
        close(wakeup_);
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

void EventLoop::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake();
}

void EventLoop::wake() {
    const std::uint64_t one = 1;
    (void)!write(wakeup_, &one, sizeof one);
}

void EventLoop::lookAgainAfter(sd_bus* bus) {
    if (!onLoopThread() && (sd_bus_get_events(bus) & POLLOUT))
        wake();
}

int EventLoop::run() {
    thread_.store(std::this_thread::get_id());
    sd_event* event = event_.get();
    pollfd ready{sd_event_get_fd(event), POLLIN, 0};
    std::unique_lock held(lock_);
    // sd_event_loop's steps, with the lock let go of only while polling
    // sd-event's own descriptor: every call into sd-event is under the lock.
    int result = 0;
    while (result >= 0 && sd_event_get_state(event) != SD_EVENT_FINISHED) {
        result = sd_event_prepare(event);
        if (result == 0) {
            held.unlock();
            while (poll(&ready, 1, -1) < 0 && errno == EINTR) {
            }
            held.lock();
            result = sd_event_wait(event, 0);
        }
        if (result > 0)
            result = sd_event_dispatch(event);
    }
    if (result >= 0)
        sd_event_get_exit_code(event, &result);
    finished_ = true;
    held.unlock();
    std::deque<std::function<void()>> left;
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
        left.swap(tasks_);
    }
    return result;
}

int EventLoop::onWakeup(sd_event_source*, int fd, uint32_t, void* self) {
    auto& loop = *static_cast<EventLoop*>(self);
    std::uint64_t count = 0;
    (void)!read(fd, &count, sizeof count);
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
