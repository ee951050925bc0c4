// SPDX-License-Identifier: MIT
// The kernel's random bytes: Tessiva's one source of randomness, for context
// handles and the dictionaries' hash key alike.
#pragma once

#include <cstddef>

namespace tessiva::detail {

// Fills `size` bytes at `buffer` from getrandom(2) and returns once every byte
// is written; interrupted and short reads are resumed. It blocks only while
// the kernel's pool is still unseeded, early after boot, and then never again.
//
// There is no fallback. With flags of 0, getrandom fails for good only where
// it does not exist (a kernel older than 3.17, or a sandbox that refuses the
// call): anything read instead would be no better than guessable, and a
// guessable handle or hash key is the very weakness this source is for. So
// the process then ends with abort(), after one line on standard error that
// names the cause.
void fillRandomBytes(void* buffer, std::size_t size) noexcept;

} // namespace tessiva::detail
