// A semaphore destroyed as soon as its wait returns, as the synchronous forms
// and their callers do, while the signalling thread may still be in signal().
#include "tessiva/os/ObSemaphore.h"

#include <gtest/gtest.h>
#include <optional>
#include <thread>

namespace {

constexpr int rounds = 200;

TEST(SemaphoreStress, DestroyedAsSoonAsItsWaitReturns) {
    int signalled = 0;
    for (int round = 0; round < rounds; ++round) {
        std::thread signaller;
        {
            std::optional<ObSemaphore> semaphore(std::in_place, 0);
            signaller = std::thread([&] { semaphore->signal(); });
            semaphore->wait();
            semaphore.reset();
            ++signalled;
        }
        signaller.join();
    }
    EXPECT_EQ(signalled, rounds);
}

} // namespace
