// SPDX-License-Identifier: MIT
// Drawing the process's hash key.
#include "KeyedHash.h"

#include "RandomBytes.h"

namespace tessiva::detail {

HashKey drawHashKey() noexcept {
    HashKey key;
    fillRandomBytes(&key, sizeof key);
    // Odd, so that multiplying by them loses no bit.
    key.mix[1] |= 1;
    key.mix[2] |= 1;
    return key;
}

} // namespace tessiva::detail
