// SPDX-License-Identifier: MIT
// ObImmortal<T>: static storage for an immortal object that is never destroyed.
#pragma once

#include <utility>

// An object in static storage outlives every static destructor: threads that
// are still running while the process exits (a service thread dropping its
// last reply, say) may go on retaining, releasing and reading it. A plain
// static would be destroyed at exit under their feet. Constant-initialised
// only; reach the object through get().
template <class T> class ObImmortal {
public:
    template <class... Arguments>
    consteval explicit ObImmortal(Arguments&&... arguments) noexcept
        : object_(std::forward<Arguments>(arguments)...) {}
    ObImmortal(const ObImmortal&) = delete;
    ObImmortal& operator=(const ObImmortal&) = delete;
    // Deliberately leaves the object alone.
    constexpr ~ObImmortal() {}

    constexpr T& get() noexcept { return object_; }

private:
    union {
        T object_;
    };
};
