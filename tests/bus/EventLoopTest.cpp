// SPDX-License-Identifier: MIT
// The loop's threads: work on the loop's own thread that waits on a
// condition keeps the loop served and wakes when another thread notifies;
// a thread waiting for what the loop brings runs the loop itself while the
// loop's thread is held up in a deferred task; a thread that finds the loop
// busy hands its work over instead of waiting for it.
#include "services/dbus/LoopDriver.h"
#include "support/Deadline.h"

#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace tessiva::test {
namespace {
using detail::Condition;
using detail::WaitDriver;
using detail::bus::EventLoop;
using detail::bus::LoopDriver;

class EventLoopTest : public ::testing::Test {
protected:
    void TearDown() override {
        loop.stop();
        thread.join();
    }
    EventLoop loop;
    std::thread thread{[this] { loop.run(); }};
};

TEST_F(EventLoopTest, DeferredWorkWaitingOnAConditionServesTheLoopAndWakesWhenNotified) {
    LoopDriver driver(loop);
    std::mutex mutex;
    Condition condition;
    bool set = false;
    std::promise<bool> waited, driven;
    loop.defer([&] {
        WaitDriver::Scope scope(driver);
        driven.set_value(WaitDriver::current() == &driver);
        std::unique_lock lock(mutex);
        const bool seen = condition.wait(lock, std::nullopt, [&] { return set; });
        lock.unlock(); // the test's end may take the mutex with it once told
        waited.set_value(seen);
    });
    EXPECT_TRUE(await(driven.get_future(), "the deferred work"));
    // Posted work needs the loop served: the waiting work does it.
    std::promise<void> posted;
    loop.post([&] { posted.set_value(); });
    await(posted.get_future(), "the task posted while the deferred work waits");
    {
        std::lock_guard lock(mutex);
        set = true;
    }
    condition.notifyAll();
    EXPECT_TRUE(await(waited.get_future(), "the wait to see the notification"));
}

// A deferred task runs with the loop armed; a timer it arms fires once it
// says so, with no other event to make the loop look again.
TEST_F(EventLoopTest, ATimerADeferredTaskArmsFires) {
    std::promise<void> fired;
    detail::bus::EventSourceRef timer;
    // Deferred from the loop's thread, which then has no wake-up pending.
    loop.post([&] {
        loop.defer([&] {
            std::lock_guard held(loop.lock());
            sd_event_add_time_relative(
                loop.event(), timer.put(), CLOCK_MONOTONIC, 1000, 0,
                [](sd_event_source*, std::uint64_t, void* promise) {
                    static_cast<std::promise<void>*>(promise)->set_value();
                    return 0;
                },
                &fired);
            loop.lookAgain();
        });
    });
    await(fired.get_future(), "the timer");
    std::lock_guard held(loop.lock());
    timer.reset();
}

TEST_F(EventLoopTest, AWaitingThreadRunsTheLoopWhileTheLoopsThreadIsHeldUp) {
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::promise<void> heldUp;
    loop.defer([&heldUp, released] {
        heldUp.set_value();
        released.wait();
    });
    await(heldUp.get_future(), "the loop's thread to be held up");
    std::atomic<bool> ran = false;
    auto waiter = std::async(std::launch::async, [&] {
        loop.post([&] { ran = true; });
        return loop.waitUntil([&] { return ran.load(); },
                              std::chrono::steady_clock::now() + testDeadline);
    });
    EXPECT_TRUE(await(std::move(waiter), "the waiting thread's own run of the loop"));
    release.set_value();
}

TEST_F(EventLoopTest, AThreadThatMeetsTheLoopBusyHandsItsWorkOverAndOtherwiseRunsItHere) {
    const auto runs = [&] {
        auto ranOn = std::make_shared<std::promise<std::thread::id>>();
        loop.runHereOrPost([ranOn] { ranOn->set_value(std::this_thread::get_id()); });
        return std::pair(std::this_thread::get_id(), ranOn->get_future());
    };
    auto [caller, free] = std::async(std::launch::async, runs).get();
    EXPECT_EQ(free.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_EQ(free.get(), caller);

    std::unique_lock held(loop.lock());
    auto busy = std::async(std::launch::async, runs);
    const bool returned = busy.wait_for(testDeadline) == std::future_status::ready;
    held.unlock();
    EXPECT_TRUE(returned) << "the call waited for the loop's lock";
    EXPECT_EQ(await(busy.get().second, "the handed-over work"), thread.get_id());
}
} // namespace
} // namespace tessiva::test
