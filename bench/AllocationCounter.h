// SPDX-License-Identifier: MIT
// AllocationCounter: counts heap allocations made through the global
// operator new, which this benchmark binary replaces, so that a benchmark can
// report its allocations per operation beside its times.
#pragma once

#include <benchmark/benchmark.h>
#include <cstdint>

namespace tessiva::bench {

// Allocations made so far by the calling thread.
std::uint64_t threadAllocations() noexcept;
// Allocations made so far by every thread of the process.
std::uint64_t processAllocations() noexcept;

// Which allocations a benchmark is charged with.
enum class AllocationScope {
    // The benchmark's own thread: exact even while other threads run.
    Thread,
    // Every thread, for work that hands part of an operation to another
    // thread (a service replying from its own thread).
    Process,
};

// Reads the count when made and reports the difference, per iteration, as
// the counter "allocs/op" when finished. Make it just before the timed loop
// and finish it just after; with several benchmark threads each counts its
// own and the counters add up over the total of iterations.
class AllocationProbe {
public:
    explicit AllocationProbe(benchmark::State& state,
                             AllocationScope scope = AllocationScope::Thread) noexcept;
    void finish();

private:
    std::uint64_t read() const noexcept;

    benchmark::State& state_;
    AllocationScope scope_;
    std::uint64_t start_;
};

} // namespace tessiva::bench
