// SPDX-License-Identifier: MIT
// ObMake: the factory for objects of caller-defined subclasses (delegates,
// backends, sinks), so that no calling code writes a bare new.
#pragma once

#include "tessiva/object/ObRef.h"

#include <utility>

template <class T, class... Arguments> ObRef<T> ObMake(Arguments&&... arguments) {
    return ObRef<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}
