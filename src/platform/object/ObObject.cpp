// SPDX-License-Identifier: MIT
// The root class: reference counting, identity equality, default text form.
#include "tessiva/object/ObObject.h"

#include "FastThreadLocal.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObString.h"

#include <cstdio>

ObObject::~ObObject() = default;

namespace {
// Objects whose last share went while another object of this thread was being
// destroyed, waiting their turn, so that releasing a deep graph runs one
// destructor after another instead of one inside another. The list is linked
// through the dead objects' own counts; plain pointers keep it free of any
// thread-exit order.
TESSIVA_FAST_THREAD_LOCAL const ObObject* pendingDestruction = nullptr;
TESSIVA_FAST_THREAD_LOCAL bool destroying = false;
} // namespace

void ObObject::retain() const noexcept {
    // Constants are read-only: reading the marker first keeps them unwritten,
    // so sharing them between threads costs no cache-line traffic.
    if (count_.load(std::memory_order_relaxed) == immortalCount)
        return;
    count_.fetch_add(1, std::memory_order_relaxed);
}

// Inline: every last release runs it.
inline void ObObject::destroy() const noexcept {
    if (destroying) {
        count_.store(reinterpret_cast<ObUInteger>(pendingDestruction), std::memory_order_relaxed);
        pendingDestruction = this;
        return;
    }
    destroying = true;
    delete this;
    while (const ObObject* next = pendingDestruction) {
        pendingDestruction =
            reinterpret_cast<const ObObject*>(next->count_.load(std::memory_order_relaxed));
        delete next;
    }
    destroying = false;
}

void ObObject::release() const noexcept {
    if (count_.load(std::memory_order_relaxed) == immortalCount)
        return;
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1)
        destroy();
}

bool ObObject::isImmortal() const noexcept {
    return count_.load(std::memory_order_relaxed) == immortalCount;
}

bool ObObject::isEqual(const ObObject* other) const noexcept {
    if (other == this)
        return true;
    return other != nullptr && equals(*other);
}

bool ObObject::isEqual(const ObRef<ObObject>& other) const noexcept {
    return isEqual(other.get());
}

bool ObObject::equals(const ObObject&) const noexcept {
    return false;
}

ObUInteger ObObject::hash() const noexcept {
    return reinterpret_cast<ObUInteger>(this);
}

const char* ObObject::className() const noexcept {
    return "ObObject";
}

ObRef<ObString> ObObject::description() const {
    char address[2 * sizeof(void*) + 3];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
    return ObFormat("<%s: %s>", className(), static_cast<const char*>(address));
}
