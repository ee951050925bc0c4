// SPDX-License-Identifier: MIT
// Requester: whom a daemon evaluates for. In process the caller is the
// process itself and nothing here is set; a daemon serving other users'
// processes says who asked, limits each user's guessing across all of that
// user's contexts, and runs the user's work in its fair share of threads.
#pragma once

#include "AttemptGuard.h"
#include "ServiceThread.h"

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace tessiva::detail {
struct Requester {
    // What PAM is told of the caller, as PAM_RUSER and PAM_TTY; empty: unset.
    std::string user;
    std::string tty;
    // The user's guessing limits; absent: only the evaluation's own.
    ObRef<AttemptGuard> guard;
    // Where the user's work runs, under the user's key; absent: a thread of
    // its own (runOnServiceThread).
    std::shared_ptr<ServicePool> pool;
    std::uint64_t poolKey = 0;
    // Takes work that waits only for what the requester's bus brings, to
    // run at once where that bus is served, when it can (the daemon's loop
    // thread, while no such work runs there); false leaves it to `pool`.
    std::function<bool(std::function<void()>& work)> runWhereServed;

    // Runs the work as the requester's; false when no thread can take it.
    // `waitsOnlyOnCaller`: the work waits for nothing but the caller's
    // answers (no PAM module, no reader), so it may run where served.
    bool run(std::function<void()> work, bool waitsOnlyOnCaller = false) const {
        if (waitsOnlyOnCaller && runWhereServed && runWhereServed(work))
            return true;
        if (pool)
            return pool->run(poolKey, std::move(work));
        try {
            runOnServiceThread(std::move(work));
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }
};
} // namespace tessiva::detail
