// SPDX-License-Identifier: MIT
// ObClass itself; the registry that finds classes by name is an installable
// process service (platform/os/ObClassRegistry.cpp).
#include "tessiva/object/ObClass.h"

#include "tessiva/object/ObFormat.h"

ObRef<ObString> ObClass::description() const {
    return ObFormat("<class %@>", name_);
}

const char* ObClass::className() const noexcept {
    return "ObClass";
}

ObClassRegistry::~ObClassRegistry() = default;
