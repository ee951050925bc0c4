// SPDX-License-Identifier: MIT
// ObRef<T>: a shared-ownership handle on an ObObject, and the ob_cast kind-of test.
#pragma once

#include "tessiva/object/ObObject.h"

#include <concepts>
#include <cstddef>
#include <type_traits>
#include <typeinfo>
#include <utility>

// Ownership is counted, not traced: objects that hold each other, directly
// or through others (a mutable dictionary holding itself, say), keep each
// other alive and leak once the last outside handle goes. Break such a cycle
// (remove the entry) before letting go. Releasing a graph of any depth, on
// the other hand, is safe: destructors run one after another, never nested.
template <class T> class ObRef {
public:
    using element_type = T;

    constexpr ObRef() noexcept = default;
    constexpr ObRef(std::nullptr_t) noexcept {}
    // Shares ownership of an existing object (retains it).
    ObRef(T* object) noexcept : object_(object) { retainObject(); }
    template <class U>
    requires std::convertible_to<U*, T*> ObRef(U* object)
    noexcept : object_(object) { retainObject(); }

    ObRef(const ObRef& other) noexcept : object_(other.object_) { retainObject(); }
    ObRef(ObRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    requires std::convertible_to<U*, T*> ObRef(const ObRef<U>& other)
    noexcept : object_(other.get()) { retainObject(); }
    template <class U>
    requires std::convertible_to<U*, T*> ObRef(ObRef<U>&& other)
    noexcept : object_(other.leakRef()) {}

    ~ObRef() {
        if (object_ != nullptr)
            object_->release();
    }

    ObRef& operator=(ObRef other) noexcept {
        swap(other);
        return *this;
    }

    // Takes over a share of ownership that the caller already holds
    // (a freshly made object), without retaining again.
    [[nodiscard]] static ObRef adopt(T* object) noexcept {
        ObRef ref;
        ref.object_ = object;
        return ref;
    }
    // Gives up this handle's share without releasing it; the caller now owns it.
    [[nodiscard]] T* leakRef() noexcept { return std::exchange(object_, nullptr); }

    T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

    void swap(ObRef& other) noexcept { std::swap(object_, other.object_); }

    // Identity comparison; use isEqual for value equality.
    template <class U> bool operator==(const ObRef<U>& other) const noexcept {
        return object_ == other.get();
    }
    bool operator==(std::nullptr_t) const noexcept { return object_ == nullptr; }

private:
    void retainObject() const noexcept {
        if (object_ != nullptr)
            object_->retain();
    }

    T* object_ = nullptr;
};

// Which dynamic types ob_cast may recognise by their type_info alone: T itself,
// and for ObString its final subclass ObConstantString too (see ObString.h).
// A miss only sends the test on to dynamic_cast, which answers for every
// other type, so the shortcut never changes a result.
template <class T> struct ObKindShortcut {
    static bool matches(const std::type_info& type) noexcept { return &type == &typeid(T); }
};

namespace tessiva::detail {
// The object as a T when it is a T or derives from one, null otherwise.
template <class T, class U> T* kindOf(U* object) noexcept {
    if constexpr (std::is_base_of_v<T, U>) {
        return object;
    } else {
        if (object == nullptr)
            return nullptr;
        if constexpr (requires { static_cast<T*>(object); }) {
            if (ObKindShortcut<std::remove_cv_t<T>>::matches(typeid(*object)))
                return static_cast<T*>(object);
        }
        return dynamic_cast<T*>(object);
    }
}
} // namespace tessiva::detail

// The kind-of test: the object as a T when it is a T or derives from one,
// absent otherwise (absent in, absent out).
template <class T, class U> ObRef<T> ob_cast(const ObRef<U>& ref) noexcept {
    return ObRef<T>(tessiva::detail::kindOf<T>(ref.get()));
}

template <class T, class U> ObRef<T> ob_cast(U* object) noexcept {
    return ObRef<T>(tessiva::detail::kindOf<T>(object));
}

// The kind-of test without taking a share, for hot paths that only look.
template <class T, class U> T* ob_cast_raw(const ObRef<U>& ref) noexcept {
    return tessiva::detail::kindOf<T>(ref.get());
}
