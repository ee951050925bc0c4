// SPDX-License-Identifier: MIT
// Translating a typical hints dictionary, against building the same options
// directly, and the translation's throughput on one thread and on two.
#include "AllocationCounter.h"
#include "TypicalHints.h"
#include "tessiva/KVLegacyHelper.h"

#include <benchmark/benchmark.h>

namespace {
using namespace tessiva::bench;

void OptionsFromVRHints_ours(benchmark::State& state) {
    const HintValues values = HintValues::make();
    const ObRef<ObDictionary> hints = typicalHints(values);
    if (!KVLegacyHelper::optionsFromVRHints(hints)->isEqual(handBuiltOptions(values).get())) {
        state.SkipWithError("the translation differs from the hand-built options");
        return;
    }
    AllocationProbe allocations(state);
    for (auto _ : state) {
        ObRef<ObMutableDictionary> options = KVLegacyHelper::optionsFromVRHints(hints);
        benchmark::DoNotOptimize(options.get());
    }
    allocations.finish();
}

void OptionsFromVRHints_baseline(benchmark::State& state) {
    const HintValues values = HintValues::make();
    AllocationProbe allocations(state);
    for (auto _ : state) {
        ObRef<ObMutableDictionary> options = handBuiltOptions(values);
        benchmark::DoNotOptimize(options.get());
    }
    allocations.finish();
}

// Each thread translates hints of its own, as independent callers do; the
// tables are shared. Shared hints would measure contention on the caller's
// value objects, whose counts every translation takes a share of.
void OptionsFromVRHints_threads(benchmark::State& state) {
    const HintValues values = HintValues::make();
    const ObRef<ObDictionary> hints = typicalHints(values);
    AllocationProbe allocations(state);
    for (auto _ : state) {
        ObRef<ObMutableDictionary> options = KVLegacyHelper::optionsFromVRHints(hints);
        benchmark::DoNotOptimize(options.get());
    }
    allocations.finish();
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(OptionsFromVRHints_ours)->Name("OptionsFromVRHints/ours");
BENCHMARK(OptionsFromVRHints_baseline)->Name("OptionsFromVRHints/baseline");
BENCHMARK(OptionsFromVRHints_threads)
    ->Name("OptionsFromVRHints/threads")
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();
