// SPDX-License-Identifier: MIT
// Evaluations from one thread and from two, through one shared reference and
// through one reference each, with a client that replies at once on the
// calling thread: the throughput the library leaves to a second thread.
#include "EvaluationCase.h"
#include "tessiva/VRConstants.h"
#include "tessiva/object/ObMake.h"

#include <benchmark/benchmark.h>

namespace {
using namespace tessiva::bench;

// Installed for the rest of the run on first use, with the shared reference.
struct ImmediateService {
    ObRef<WorkerClient> client = ObMake<WorkerClient>(nullptr, successResult());
    KVScopedClientBackend installed{ObMake<WorkerBackend>(client)};
    ObRef<VRCredentialReference> sharedReference = setUpReference();

    static ImmediateService& instance() {
        static ImmediateService service;
        return service;
    }
};

void evaluate(benchmark::State& state, bool shareOneReference) {
    ImmediateService& service = ImmediateService::instance();
    const ObRef<VRCredentialReference> reference =
        shareOneReference ? service.sharedReference : setUpReference();
    // Each thread's own hints, as independent callers have.
    const HintValues values = HintValues::make();
    const ObRef<ObDictionary> hints = typicalHints(values);
    for (auto _ : state) {
        ObRef<ObError> error;
        if (!reference->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, hints,
                                                   &error)) {
            state.SkipWithError("evaluation failed");
            return;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK_CAPTURE(evaluate, shared, true)
    ->Name("EvaluatePolicy/threads/shared")
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();
BENCHMARK_CAPTURE(evaluate, own, false)
    ->Name("EvaluatePolicy/threads/own")
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();
