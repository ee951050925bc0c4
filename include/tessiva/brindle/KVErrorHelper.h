// SPDX-License-Identifier: MIT
// KVErrorHelper, KVErrorDomain and KVException: the errors of the service
// framework and the exception that carries one.
#pragma once

#include "tessiva/object/ObError.h"
#include "tessiva/object/ObException.h"

// The domain of every error the service framework reports.
// Its value is "org.kavelin.KVErrorDomain".
extern TESSIVA_PLATFORM_API ObString* const KVErrorDomain;

// The code of the errors parameterErrorWithMessage makes.
inline constexpr ObInteger KVErrorInvalidParameter = -1008;

// The exception raiseException raises. name() is "KVException"; reason() and
// what() give the carried error's localized description.
class TESSIVA_PLATFORM_API KVException : public ObException {
public:
    explicit KVException(ObRef<ObError> error) noexcept;
    ~KVException() override;

    const ObRef<ObError>& error() const noexcept { return error_; }

private:
    ObRef<ObError> error_;
};

class TESSIVA_PLATFORM_API KVErrorHelper final {
public:
    KVErrorHelper() = delete;

    // A KVErrorDomain error with code KVErrorInvalidParameter whose user info
    // holds the message under ObLocalizedDescriptionKey ("" when absent).
    static ObRef<ObError> parameterErrorWithMessage(const ObRef<ObString>& message);

    // Throws a KVException carrying the error on the calling thread; it never
    // returns.
    static void raiseException(const ObRef<ObError>& error);
};
