// SPDX-License-Identifier: MIT
// The queue outlives the Dispatcher when its own thread destroys it; tasks
// still queued when it stops are dropped.
#include "Dispatcher.h"

namespace tessiva::detail::bus {
Dispatcher::Dispatcher() : queue_(std::make_shared<Queue>()) {
    thread_ = std::thread(&Dispatcher::drain, queue_);
}

Dispatcher::~Dispatcher() {
    {
        std::lock_guard lock(queue_->mutex);
        queue_->stopping = true;
    }
    queue_->changed.notify_all();
    if (thread_.get_id() == std::this_thread::get_id())
        thread_.detach();
    else
        thread_.join();
}

void Dispatcher::post(std::function<void()> task) {
    {
        std::lock_guard lock(queue_->mutex);
        queue_->tasks.push_back(std::move(task));
    }
    queue_->changed.notify_one();
}

void Dispatcher::drain(const std::shared_ptr<Queue>& queue) {
    std::unique_lock lock(queue->mutex);
    for (;;) {
        queue->changed.wait(lock, [&] { return queue->stopping || !queue->tasks.empty(); });
        if (queue->stopping) {
            // What they hold may refer to the owner that is going.
            std::deque<std::function<void()>> dropped = std::move(queue->tasks);
            lock.unlock();
            return;
        }
        std::function<void()> task = std::move(queue->tasks.front());
        queue->tasks.pop_front();
        lock.unlock();
        task();
        task = nullptr; // what it captured goes before the next task
        lock.lock();
    }
}
} // namespace tessiva::detail::bus
