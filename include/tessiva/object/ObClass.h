// SPDX-License-Identifier: MIT
// ObClass and ObClassFromString: classes known by name in this process.
#pragma once

#include "tessiva/object/ObString.h"

#include <string_view>

// A class known to the process, found by its name. Registered classes live
// until the process ends.
class TESSIVA_PLATFORM_API ObClass : public ObObject {
public:
    const ObRef<ObString>& name() const noexcept { return name_; }

    // "<class Name>"
    ObRef<ObString> description() const override;
    const char* className() const noexcept override;

    explicit ObClass(ObRef<ObString> name) noexcept : name_(std::move(name)) {}

private:
    ObRef<ObString> name_;
};

// Where class names are looked up. The default registry holds the classes
// registered with ObRegisterClass; a test or host can install its own.
class TESSIVA_PLATFORM_API ObClassRegistry : public ObObject {
public:
    virtual ObRef<ObClass> classNamed(std::string_view name) = 0;

protected:
    // Out of line, so the library holds the vtable and type information.
    ~ObClassRegistry() override;
};

// Registers a class under its name in the default registry and returns it;
// registering a name twice returns the first class. Thread-safe.
TESSIVA_PLATFORM_API ObRef<ObClass> ObRegisterClass(std::string_view name);

// The class of that name in the installed registry; absent when no such class
// is known or the name is absent.
TESSIVA_PLATFORM_API ObRef<ObClass> ObClassFromString(const ObRef<ObString>& name);

// Installs a registry (absent restores the default); returns the one it replaces.
TESSIVA_PLATFORM_API ObRef<ObClassRegistry>
ObSetClassRegistry(const ObRef<ObClassRegistry>& registry);
