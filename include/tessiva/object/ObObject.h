// SPDX-License-Identifier: MIT
// ObObject: the root class of the object library, with an intrusive,
// thread-safe reference count.
#pragma once

#include "tessiva/object/ObDefines.h"

#include <atomic>
#include <cstddef>
#include <new>

template <class T> class ObRef;
class ObString;

class TESSIVA_PLATFORM_API ObObject {
public:
    ObObject(const ObObject&) = delete;
    ObObject& operator=(const ObObject&) = delete;

    // Takes one more share of ownership. Never writes to an immortal object.
    void retain() const noexcept;
    // Gives one share back; the last release destroys the object. Objects
    // freed by that destructor are destroyed after it, in turn, so releasing
    // a graph of any depth needs no more stack than a shallow one.
    void release() const noexcept;
    // True for constants, which live for the whole process.
    bool isImmortal() const noexcept;

    // The object's single-line text form, as "%@" prints it.
    virtual ObRef<ObString> description() const;
    // Value equality: identical objects are equal, absent equals nothing,
    // otherwise the classes decide through equals(). Equal objects hash equally.
    bool isEqual(const ObObject* other) const noexcept;
    bool isEqual(const ObRef<ObObject>& other) const noexcept;
    virtual ObUInteger hash() const noexcept;
    // The class name used in messages and text forms.
    virtual const char* className() const noexcept;

    // Every object is freed with the unsized form, since strings carry
    // their characters behind the object itself.
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(void* memory) noexcept { ::operator delete(memory); }
    static void* operator new(std::size_t, void* where) noexcept { return where; }
    static void operator delete(void*, void*) noexcept {}

    // Marks the constructor of a constant, which reference counting skips.
    struct ImmortalTag {};
    static constexpr ImmortalTag immortal{};

protected:
    constexpr ObObject() noexcept : count_(1) {}
    constexpr explicit ObObject(ImmortalTag) noexcept : count_(immortalCount) {}
    virtual ~ObObject();

    // Compares with another, distinct, present object; the default is
    // identity, so two distinct objects are unequal.
    virtual bool equals(const ObObject& other) const noexcept;

private:
    // Deletes the object once its last share is gone, one destructor at a time.
    TESSIVA_PLATFORM_NO_EXPORT void destroy() const noexcept;

    static constexpr ObUInteger immortalCount = ~ObUInteger{0};
    mutable std::atomic<ObUInteger> count_;
};
