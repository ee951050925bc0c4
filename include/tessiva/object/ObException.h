// SPDX-License-Identifier: MIT
// ObException and ObInvalidArgumentException: the exceptions of the object library.
#pragma once

#include "tessiva/object/ObString.h"

#include <exception>

class TESSIVA_PLATFORM_API ObException : public std::exception {
public:
    ObException(ObRef<ObString> name, ObRef<ObString> reason) noexcept;
    ~ObException() override;

    const ObRef<ObString>& name() const noexcept { return name_; }
    const ObRef<ObString>& reason() const noexcept { return reason_; }
    // The reason's text.
    const char* what() const noexcept override;

private:
    ObRef<ObString> name_;
    ObRef<ObString> reason_;
};

// Raised for an argument a callee cannot accept, such as an absent dictionary
// key or value. name() is "ObInvalidArgumentException".
class TESSIVA_PLATFORM_API ObInvalidArgumentException : public ObException {
public:
    explicit ObInvalidArgumentException(ObRef<ObString> reason) noexcept;
    ~ObInvalidArgumentException() override;
};
