// SPDX-License-Identifier: MIT
// What a daemon builds on to serve many users: the pool that shares threads
// among them in turn, and the guard that limits one user's guessing.
#include "services/core/AttemptGuard.h"
#include "services/core/ServiceThread.h"
#include "support/Deadline.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace tessiva::detail {
namespace {
using test::await;
using namespace std::chrono_literals;
using Admission = AttemptGuard::Admission;

TEST(ServicePool, AUserWithAllItsWorkBlockedLeavesThreadsForOthers) {
    ServicePool pool(4, 2);
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<int> blockedRunning{0};
    // One user queues far more work than the pool has threads, all of it
    // waiting (as evaluations wait for answers).
    for (int i = 0; i < 8; ++i)
        ASSERT_TRUE(pool.run(1, [&, released] {
            ++blockedRunning;
            released.wait();
        }));
    test::waitUntil([&] { return blockedRunning.load() >= 2; }, "the first user's work");
    std::promise<void> served;
    ASSERT_TRUE(pool.run(2, [&] { served.set_value(); }));
    await(served.get_future(), "the other user's work while the first user's waits");
    EXPECT_LE(blockedRunning.load(), 2) << "one user holds half the threads at most";
    EXPECT_LE(pool.threadCount(), 4u);

    // Its queued work runs in turn once the first pieces end.
    std::promise<void> last;
    ASSERT_TRUE(pool.run(1, [&] { last.set_value(); }));
    release.set_value();
    await(last.get_future(), "the first user's queued work");
    test::waitUntil([&] { return blockedRunning.load() == 8; }, "all of the first user's work");
}

AttemptLimits limits(unsigned deny, std::chrono::milliseconds delay) {
    return AttemptLimits{deny, 900s, 600s, delay};
}

const auto never = [] { return false; };

TEST(AttemptGuard, FailuresAcrossContextsLockTheUserOutAndSuccessForgivesThem) {
    AttemptGuard guard(limits(3, 0ms));
    // A success clears what came before it.
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(guard.enter(never, std::nullopt), Admission::admitted);
        guard.leave(true);
    }
    ASSERT_EQ(guard.enter(never, std::nullopt), Admission::admitted);
    guard.leave(false);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(guard.enter(never, std::nullopt), Admission::admitted) << i;
        guard.leave(true);
    }
    // Whichever context asks next, the user is locked out at once.
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(guard.enter(never, std::chrono::steady_clock::now() + 100ms),
                  Admission::lockedOut);
    EXPECT_EQ(AttemptGuard::lockedOutError()->code(), -1);
}

TEST(AttemptGuard, NoMoreVerificationsAtOnceThanFailuresLeftAndADelayAfterAFailure) {
    AttemptGuard guard(limits(2, 0ms));
    // Two may fail before the lockout, so two verify at once; a third waits
    // for a turn, and stopping it ends the wait.
    ASSERT_EQ(guard.enter(never, std::nullopt), Admission::admitted);
    ASSERT_EQ(guard.enter(never, std::nullopt), Admission::admitted);
    std::atomic<bool> stop{false};
    auto third = std::async(std::launch::async,
                            [&] { return guard.enter([&] { return stop.load(); }, std::nullopt); });
    EXPECT_EQ(third.wait_for(0s), std::future_status::timeout);
    stop = true;
    guard.wake();
    EXPECT_EQ(await(std::move(third), "the stopped verification"), Admission::stopped);
    // A failure leaves one guess, which the verification still running holds.
    guard.leave(true);
    EXPECT_EQ(guard.enter(never, std::chrono::steady_clock::now() + 20ms), Admission::stopped);

    // After a failure the next one waits out the delay, or its own deadline.
    AttemptGuard delayed(limits(100, 1h));
    ASSERT_EQ(delayed.enter(never, std::nullopt), Admission::admitted);
    delayed.leave(true);
    const auto deadline = std::chrono::steady_clock::now() + 50ms;
    EXPECT_EQ(delayed.enter(never, deadline), Admission::stopped);
    EXPECT_GE(std::chrono::steady_clock::now(), deadline);
}
} // namespace
} // namespace tessiva::detail
