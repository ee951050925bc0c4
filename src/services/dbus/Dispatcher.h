// SPDX-License-Identifier: MIT
// Dispatcher: one thread that runs callers' callbacks (delegate events,
// evaluation replies) in order, so that a callback that blocks or calls the
// backend back never stalls the bus connection's own thread.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace tessiva::detail::bus {
class Dispatcher {
public:
    Dispatcher();
    // Ends the thread after the running task, dropping those still queued;
    // detaches instead of joining when a task itself drops the last owner.
    ~Dispatcher();
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

    void post(std::function<void()> task);

private:
    struct Queue {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<std::function<void()>> tasks;
        bool stopping = false;
    };
    static void drain(const std::shared_ptr<Queue>& queue);

    std::shared_ptr<Queue> queue_;
    std::thread thread_;
};
} // namespace tessiva::detail::bus
