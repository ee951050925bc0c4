// SPDX-License-Identifier: MIT
// The threads Tessiva's services do their waiting on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace tessiva::detail {
// Runs the work on a new thread of its own, which nobody waits for: the work
// must own everything it touches, so that it may outlive the service and even
// static destruction, and a thread still waiting at process end ends with it.
// In process the caller's own threads bound how much work there is.
void runOnServiceThread(std::function<void()> work);

// A bounded set of service threads shared fairly among keys (a daemon's
// callers' uids): one key's work runs in the order given, at most `perKey`
// pieces of one key at once, and a thread that frees up takes the next key
// in turn, so that a key with much work queued cannot hold back the others.
// Threads start as work needs them, up to `threads`. Destroying the pool
// drops what has not started; it waits a moment for running work to end and
// then joins the threads, or, when work still runs (a prompt nobody
// answers), lets it end on its own.
class ServicePool {
public:
    ServicePool(std::size_t threads, std::size_t perKey);
    ~ServicePool();
    ServicePool(const ServicePool&) = delete;
    ServicePool& operator=(const ServicePool&) = delete;

    // Queues the work; false when no thread runs and none can be started.
    bool run(std::uint64_t key, std::function<void()> work);
    // Threads started so far.
    std::size_t threadCount() const;

private:
    struct State;
    static void serve(const std::shared_ptr<State>& state);
    const std::shared_ptr<State> state_;
};
} // namespace tessiva::detail
