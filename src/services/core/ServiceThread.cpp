// SPDX-License-Identifier: MIT
// Service threads: one detached std::thread per piece of work, or a pool.
#include "ServiceThread.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace tessiva::detail {
namespace {
// How long destroying a pool waits for the work its threads are running.
constexpr std::chrono::seconds shutdownGrace{1};
} // namespace

void runOnServiceThread(std::function<void()> work) {
    std::thread(std::move(work)).detach();
}

struct ServicePool::State {
    State(std::size_t threadLimit, std::size_t keyLimit)
        : threads(threadLimit ? threadLimit : 1), perKey(keyLimit ? keyLimit : 1) {
        threadsStarted.reserve(threads); // starting a thread never reallocates
    }
    const std::size_t threads;
    const std::size_t perKey;
    mutable std::mutex mutex;
    std::condition_variable ready;
    struct Key {
        std::deque<std::function<void()>> queued;
        std::size_t running = 0;
    };
    std::map<std::uint64_t, Key> keys;
    std::uint64_t lastServed = 0; // where the next turn starts looking
    std::size_t started = 0;
    std::size_t idle = 0;
    std::size_t busy = 0;          // threads running work
    std::condition_variable quiet; // busy fell to 0
    std::vector<std::thread> threadsStarted;
    bool stopping = false;

    // The next key whose turn it is; keys.end() when none may run now.
    std::map<std::uint64_t, Key>::iterator nextTurn() {
        auto runnable = [this](const auto& entry) {
            return !entry.second.queued.empty() && entry.second.running < perKey;
        };
        for (auto it = keys.upper_bound(lastServed); it != keys.end(); ++it)
            if (runnable(*it))
                return it;
        for (auto it = keys.begin(); it != keys.end() && it->first <= lastServed; ++it)
            if (runnable(*it))
                return it;
        return keys.end();
    }
};

ServicePool::ServicePool(std::size_t threads, std::size_t perKey)
    : state_(std::make_shared<State>(threads, perKey)) {}

namespace {
// The pool whose thread this is, if any.
thread_local const void* servingPool = nullptr;
} // namespace

ServicePool::~ServicePool() {
    std::vector<std::thread> joined;
    {
        std::unique_lock lock(state_->mutex);
        state_->stopping = true;
        state_->keys.clear();
        // Work that ends within a moment (a reply just sent, the bookkeeping
        // after it) is waited for, and the threads joined: a thread still
        // ending as the process exits leaves leak checkers a half-freed
        // block. Work that waits on (an unanswered prompt) is left to end on
        // its own, and a pool cannot join the thread it is destroyed on.
        if (servingPool != state_.get() &&
            state_->quiet.wait_for(lock, shutdownGrace, [this] { return state_->busy == 0; }))
            joined.swap(state_->threadsStarted);
        for (std::thread& thread : state_->threadsStarted)
            thread.detach();
        state_->threadsStarted.clear();
    }
    state_->ready.notify_all();
    for (std::thread& thread : joined)
        thread.join();
}

bool ServicePool::run(std::uint64_t key, std::function<void()> work) {
    std::unique_lock lock(state_->mutex);
    state_->keys[key].queued.push_back(std::move(work));
    if (state_->idle > 0 || state_->started >= state_->threads) {
        lock.unlock();
        state_->ready.notify_one();
        return true;
    }
    try {
        state_->threadsStarted.emplace_back(&ServicePool::serve, state_);
        ++state_->started;
    } catch (const std::system_error&) {
        // Out of threads: the ones running take the work in turn, if any.
        if (state_->started == 0) {
            auto found = state_->keys.find(key);
            found->second.queued.pop_back();
            if (found->second.queued.empty() && found->second.running == 0)
                state_->keys.erase(found);
            return false;
        }
    }
    return true;
}

std::size_t ServicePool::threadCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->started;
}

void ServicePool::serve(const std::shared_ptr<State>& state) {
    servingPool = state.get();
    std::unique_lock lock(state->mutex);
    for (;;) {
        auto turn = state->nextTurn();
        if (turn == state->keys.end()) {
            if (state->stopping)
                return;
            ++state->idle;
            state->ready.wait(lock);
            --state->idle;
            continue;
        }
        const std::uint64_t key = turn->first;
        std::function<void()> work = std::move(turn->second.queued.front());
        turn->second.queued.pop_front();
        ++turn->second.running;
        ++state->busy;
        state->lastServed = key;
        lock.unlock();
        work();
        work = nullptr; // what it holds goes before the next turn
        lock.lock();
        if (--state->busy == 0)
            state->quiet.notify_all();
        if (auto found = state->keys.find(key); found != state->keys.end()) {
            --found->second.running;
            if (found->second.running == 0 && found->second.queued.empty())
                state->keys.erase(found);
            else if (!found->second.queued.empty())
                state->ready.notify_one(); // its next piece may run now
        }
    }
}
} // namespace tessiva::detail
