// SPDX-License-Identifier: MIT
// Exact-type tests for the object library's hot paths.
#pragma once

#include "tessiva/object/ObObject.h"

#include <typeinfo>

namespace tessiva::detail {

// True when `type` is the very type_info object of T. Comparing addresses
// never takes one class for another; at worst, with a class whose type_info
// exists once per library, it misses, and callers then take their general
// path, so a miss costs time and never changes an answer. (type_info's own
// equality would compare names with strcmp on every mismatch.)
template <class T> bool isExactly(const std::type_info& type) noexcept {
    return &type == &typeid(T);
}

} // namespace tessiva::detail
