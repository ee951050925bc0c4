// SPDX-License-Identifier: MIT
// One-time initialisation: ObDispatchOnce runs a function exactly once per
// token, however many threads arrive first; latecomers wait until it is done.
#pragma once

#include <atomic>
#include <mutex>

class ObOnceToken {
public:
    constexpr ObOnceToken() noexcept = default;
    ObOnceToken(const ObOnceToken&) = delete;
    ObOnceToken& operator=(const ObOnceToken&) = delete;

private:
    template <class Function> friend void ObDispatchOnce(ObOnceToken&, Function&&);
    std::atomic<bool> done_{false};
    std::once_flag flag_;
};

template <class Function> void ObDispatchOnce(ObOnceToken& token, Function&& function) {
    // The acquire load keeps the common, already-done path to one atomic read.
    if (token.done_.load(std::memory_order_acquire))
        return;
    std::call_once(token.flag_, [&] {
        function();
        token.done_.store(true, std::memory_order_release);
    });
}
