// Indivisible object fields over a fixed pool of short locks.
#include "tessiva/os/ObAtomicRef.h"

#include <array>
#include <cstdint>
#include <mutex>

namespace {
constexpr std::size_t stripeCount = 64;

// Padded so that two stripes never share a cache line.
struct alignas(64) Stripe {
    std::mutex mutex;
};

std::mutex& stripeFor(const void* field) {
    static std::array<Stripe, stripeCount> stripes;
    const auto address = reinterpret_cast<std::uintptr_t>(field);
    return stripes[(address >> 4) % stripeCount].mutex;
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
