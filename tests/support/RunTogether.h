// SPDX-License-Identifier: MIT
// Threads released together: the start of every concurrency test.
#pragma once

#include <functional>
#include <latch>
#include <thread>
#include <vector>

namespace tessiva::test {

// Runs body(0) .. body(threadCount - 1) on as many threads, all started at
// once by a latch, and returns when every one has finished.
inline void runTogether(int threadCount, const std::function<void(int)>& body) {
    std::latch start(threadCount);
    std::vector<std::jthread> threads;
    for (int t = 0; t < threadCount; ++t)
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            body(t);
        });
}

} // namespace tessiva::test
