// SPDX-License-Identifier: MIT
// Parameter errors of the service framework and the exception that carries one.
#include "tessiva/brindle/KVErrorHelper.h"

#include "KVErrors.h"

namespace {
OB_CONSTANT_STRING(errorDomain, "org.kavelin.KVErrorDomain");
OB_CONSTANT_STRING(exceptionName, "KVException");
} // namespace

ObString* const KVErrorDomain = &errorDomain;

KVException::KVException(ObRef<ObError> error) noexcept
    : ObException(ObRef<ObString>(&exceptionName),
                  error ? error->localizedDescription() : ObString::make("")),
      error_(std::move(error)) {}

KVException::~KVException() = default;

ObRef<ObError> KVErrorHelper::parameterErrorWithMessage(const ObRef<ObString>& message) {
    return tessiva::detail::kvError(KVErrorInvalidParameter,
                                    message ? message : ObString::make(""));
}

void KVErrorHelper::raiseException(const ObRef<ObError>& error) {
    throw KVException(error);
}
