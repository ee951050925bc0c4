// SPDX-License-Identifier: MIT
// ObAtomicRef<T>: an object field whose every read and write is indivisible.
#pragma once

#include "tessiva/object/ObRef.h"

// The untyped core: a short lock, taken from a fixed pool by the field's
// address, makes each copy in or out indivisible without a mutex per field.
class TESSIVA_PLATFORM_API ObAtomicObject {
public:
    constexpr ObAtomicObject() noexcept = default;
    ObAtomicObject(const ObAtomicObject&) = delete;
    ObAtomicObject& operator=(const ObAtomicObject&) = delete;
    ~ObAtomicObject();

    ObRef<ObObject> load() const;
    // Replaces the held object; the previous one is released after the lock.
    void store(ObRef<ObObject> object);
    ObRef<ObObject> exchange(ObRef<ObObject> object);

private:
    ObObject* object_ = nullptr;
};

template <class T> class ObAtomicRef {
public:
    constexpr ObAtomicRef() noexcept = default;

    // The share the field hands out is adopted, not taken again.
    ObRef<T> load() const { return ObRef<T>::adopt(static_cast<T*>(field_.load().leakRef())); }
    void store(ObRef<T> object) { field_.store(ObRef<ObObject>(std::move(object))); }
    ObRef<T> exchange(ObRef<T> object) {
        return ObRef<T>::adopt(
            static_cast<T*>(field_.exchange(ObRef<ObObject>(std::move(object))).leakRef()));
    }

private:
    ObAtomicObject field_;
};

// Installs a replacement for a seam for one scope and puts the previous one
// back at its end.
template <class Interface, ObRef<Interface> (*Install)(const ObRef<Interface>&)>
class ObScopedInstall {
public:
    explicit ObScopedInstall(const ObRef<Interface>& replacement)
        : previous_(Install(replacement)) {}
    ~ObScopedInstall() { (void)Install(previous_); }
    ObScopedInstall(const ObScopedInstall&) = delete;
    ObScopedInstall& operator=(const ObScopedInstall&) = delete;

private:
    ObRef<Interface> previous_;
};
