// SPDX-License-Identifier: MIT
// Measure: runs one operation a given number of times with callgrind's
// collection switched on around the loop and nothing else, after one
// warm-up call outside it, and counts the loop's heap allocations.
#pragma once

#include "AllocationCounter.h"

#include <cstdint>
#include <valgrind/callgrind.h>

namespace tessiva::bench {

// Heap allocations made by the loop. Run outside callgrind the loop runs
// all the same, uncounted.
template <class Operation> std::uint64_t measure(Operation&& operation, long operations) {
    operation(); // tables built, caches warm: first-use cost stays out
    const std::uint64_t before = processAllocations();
    CALLGRIND_TOGGLE_COLLECT;
    for (long i = 0; i < operations; ++i)
        operation();
    CALLGRIND_TOGGLE_COLLECT;
    return processAllocations() - before;
}

} // namespace tessiva::bench
