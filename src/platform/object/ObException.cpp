// SPDX-License-Identifier: MIT
// The object library's exceptions.
#include "tessiva/object/ObException.h"

namespace {
OB_CONSTANT_STRING(invalidArgumentName, "ObInvalidArgumentException");
}

ObException::ObException(ObRef<ObString> name, ObRef<ObString> reason) noexcept
    : name_(std::move(name)), reason_(std::move(reason)) {}

ObException::~ObException() = default;

const char* ObException::what() const noexcept {
    return reason_ ? reason_->cString() : "";
}

ObInvalidArgumentException::ObInvalidArgumentException(ObRef<ObString> reason) noexcept
    : ObException(ObRef<ObString>(&invalidArgumentName), std::move(reason)) {}

ObInvalidArgumentException::~ObInvalidArgumentException() = default;
