// ObMake: the factory for objects of caller-defined subclasses (delegates,
// backends, sinks), so that no calling code writes a bare new.
#pragma once

#include <utility>

#include "tessiva/object/ObRef.h"

template <class T, class... Arguments> ObRef<T> ObMake(Arguments&&... arguments) {
    return ObRef<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}
