// SPDX-License-Identifier: MIT
// The option table's plain lookup, for translations that test a hint
// against it and handle a miss themselves.
#pragma once

#include "tessiva/object/ObString.h"

namespace tessiva::detail {

// The option number of the hint's text, or 0 when the table lacks it or the
// hint is absent; makes no error.
ObInteger optionNumber(const ObString* hint);

} // namespace tessiva::detail
