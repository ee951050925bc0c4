// The root class: reference counting, identity equality, default text form.
#include "tessiva/object/ObObject.h"

#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObString.h"

#include <cstdio>

ObObject::~ObObject() = default;

void ObObject::retain() const noexcept {
    // Constants are read-only: reading the marker first keeps them unwritten,
    // so sharing them between threads costs no cache-line traffic.
    if (count_.load(std::memory_order_relaxed) == immortalCount)
        return;
    count_.fetch_add(1, std::memory_order_relaxed);
}

void ObObject::release() const noexcept {
    if (count_.load(std::memory_order_relaxed) == immortalCount)
        return;
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
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
