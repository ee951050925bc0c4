// SPDX-License-Identifier: MIT
// The error slot that the hint translations share between their steps, and
// the way it leaves an operation that reports failure through an out-parameter.
#pragma once

#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/ObError.h"

#include <string_view>
#include <utility>

namespace tessiva::detail {

// A service parameter error carrying the message.
inline ObRef<ObError> parameterError(std::string_view message) {
    return KVErrorHelper::parameterErrorWithMessage(ObString::make(message));
}

// Ends an `_error` operation: a given out-parameter receives the slot (absent
// on success, so a stale error is cleared), and the result survives only when
// the slot is empty, so a partly built result never escapes a failure.
template <class T>
ObRef<T> resultThroughSlot(ObRef<T> result, ObRef<ObError> slot, ObRef<ObError>* error) {
    const bool failed = static_cast<bool>(slot);
    if (error != nullptr)
        *error = std::move(slot);
    return failed ? ObRef<T>() : std::move(result);
}

} // namespace tessiva::detail
