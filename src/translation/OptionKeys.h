// SPDX-License-Identifier: MIT
// Immortal boxed numbers for the keys of the dictionaries sent to the service
// (options, event numbers, processing parameters), so that building one
// allocates no key and writes no shared reference count.
#pragma once

#include "tessiva/object/ObNumber.h"

namespace tessiva::detail {

// The key for the number: a constant for the numbers the service's
// vocabulary uses (0 to 15 and 1000 to 1015), a new number for any other.
ObRef<ObNumber> optionKey(ObInteger number);

} // namespace tessiva::detail
