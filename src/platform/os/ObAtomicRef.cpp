// SPDX-License-Identifier: MIT
// Indivisible object fields over a fixed pool of short locks.
#include "tessiva/os/ObAtomicRef.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

namespace {
constexpr std::size_t stripeCount = 64;

// A lock held for a pointer swap and a retain at most: taking it is one
// exchange, giving it back one store. A thread that finds it held yields
// until it is free, since the holder may have been preempted.
class alignas(64) Stripe {
public:
    void lock() noexcept {
        while (locked_.exchange(true, std::memory_order_acquire)) {
            while (locked_.load(std::memory_order_relaxed))
                std::this_thread::yield();
        }
    }
    void unlock() noexcept { locked_.store(false, std::memory_order_release); }

private:
    std::atomic<bool> locked_{false};
};

// Constant-initialised, so usable from any static initialiser or destructor.
constinit std::array<Stripe, stripeCount> stripes{};

Stripe& stripeFor(const void* field) {
    const auto address = reinterpret_cast<std::uintptr_t>(field);
    return stripes[(address >> 4) % stripeCount];
}
} // namespace

ObAtomicObject::~ObAtomicObject() {
    if (object_ != nullptr)
        object_->release();
}

ObRef<ObObject> ObAtomicObject::load() const {
    std::lock_guard lock(stripeFor(this));
    return ObRef<ObObject>(object_);
}

void ObAtomicObject::store(ObRef<ObObject> object) {
    (void)exchange(std::move(object));
}

ObRef<ObObject> ObAtomicObject::exchange(ObRef<ObObject> object) {
    ObObject* previous;
    {
        std::lock_guard lock(stripeFor(this));
        previous = object_;
        object_ = object.leakRef();
    }
    // Adopted outside the lock: releasing may run a destructor that itself
    // reads another field guarded by the same stripe.
    return ObRef<ObObject>::adopt(previous);
}
