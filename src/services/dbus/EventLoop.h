// SPDX-License-Identifier: MIT
// EventLoop: an sd-event loop on one thread, with a queue through which any
// thread hands it work. sd-bus objects are not thread-safe, so every use of a
// connection goes through its loop.
#pragma once

#include "services/dbus/SdBus.h"

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace tessiva::detail::bus {
class EventLoop {
public:
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    sd_event* event() const noexcept { return event_.get(); }
    // False when the loop could not be made (no memory, no descriptors).
    bool usable() const noexcept { return event_ && wakeup_ >= 0; }

    // Runs the task on the loop's thread, in the order posted; tasks posted
    // before stop() still run, those posted after run() has returned are
    // dropped. Safe from any thread.
    void post(std::function<void()> task);
    // Runs until stop(); on the calling thread, which becomes the loop's.
    int run();
    // Ends run() after the current task; safe from any thread.
    void stop();
    bool onLoopThread() const noexcept { return std::this_thread::get_id() == thread_.load(); }

private:
    static int onWakeup(sd_event_source* source, int fd, uint32_t events, void* self);

    EventRef event_;
    EventSourceRef wakeupSource_;
    int wakeup_ = -1;
    std::mutex mutex_;
    std::deque<std::function<void()>> tasks_;
    bool stopping_ = false;
    bool finished_ = false;
    std::atomic<std::thread::id> thread_{};
};
} // namespace tessiva::detail::bus
