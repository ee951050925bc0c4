// The errors Tessiva's services reply with, all in KVErrorDomain.
#pragma once

#include "tessiva/object/ObError.h"

namespace tessiva::detail {
// A KVErrorDomain error carrying the message as its localized description.
ObRef<ObError> serviceError(ObInteger code, const ObRef<ObString>& message);

// The error of every operation on a context that was invalidated.
ObRef<ObError> invalidatedContextError();
} // namespace tessiva::detail
