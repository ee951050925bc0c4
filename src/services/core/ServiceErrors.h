// SPDX-License-Identifier: MIT
// The errors Tessiva's services share, made with kvError like all of theirs.
#pragma once

#include "platform/brindle/KVErrors.h"
#include "tessiva/object/ObError.h"

namespace tessiva::detail {
// The error of every operation on a context that was invalidated.
ObRef<ObError> invalidatedContextError();
} // namespace tessiva::detail
