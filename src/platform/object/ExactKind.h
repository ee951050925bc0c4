// The kind-of test inside the object library's hot equality paths.
#pragma once

#include "tessiva/object/ObObject.h"

#include <typeinfo>

namespace tessiva::detail {

// The object as a T when it is one, or null. An object of exactly class T,
// or of one of the final classes listed, is recognised by its type's
// identity, which costs a few loads; dynamic_cast, many times dearer, still
// decides for every other class, so the answer is always dynamic_cast's.
template <class T, class... Final> const T* kindOf(const ObObject& object) noexcept {
    const std::type_info& type = typeid(object);
    if (type == typeid(T) || ((type == typeid(Final)) || ...))
        return static_cast<const T*>(&object);
    return dynamic_cast<const T*>(&object);
}

} // namespace tessiva::detail
