// SPDX-License-Identifier: MIT
// A synchronous policy evaluation through the credential reference, against
// the same request sent to the client directly and waited for by hand. Both
// go to one client whose replies come from one worker thread.
#include "AllocationCounter.h"
#include "EvaluationCase.h"
#include "WorkerService.h"
#include "tessiva/VRConstants.h"
#include "tessiva/object/ObMake.h"

#include <benchmark/benchmark.h>

namespace {
using namespace tessiva::bench;

// One worker and one client for the whole run, shared by both sides.
struct Service {
    ReplyWorker worker;
    ObRef<WorkerClient> client = ObMake<WorkerClient>(&worker, successResult());

    static Service& shared() {
        static Service service;
        return service;
    }
};

void EvaluatePolicy_ours(benchmark::State& state) {
    Service& service = Service::shared();
    const KVScopedClientBackend installed(ObMake<WorkerBackend>(service.client));
    const ObRef<VRCredentialReference> reference = setUpReference();
    const HintValues values = HintValues::make();
    const ObRef<ObDictionary> hints = typicalHints(values);
    if (!sendsTheSameRequest(*service.client, *reference, hints, values)) {
        state.SkipWithError("the two sides send different requests");
        return;
    }

    AllocationProbe allocations(state, AllocationScope::Process);
    for (auto _ : state) {
        ObRef<ObError> error;
        if (!reference->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, hints,
                                                   &error)) {
            state.SkipWithError("evaluation failed");
            return;
        }
    }
    allocations.finish();
}

void EvaluatePolicy_baseline(benchmark::State& state) {
    Service& service = Service::shared();
    const HintValues values = HintValues::make();

    AllocationProbe allocations(state, AllocationScope::Process);
    for (auto _ : state) {
        if (!evaluateDirectly(*service.client, values)) {
            state.SkipWithError("evaluation failed");
            return;
        }
    }
    allocations.finish();
}

} // namespace

// Wall-clock time decides; the CPU time shown is the whole process's, the
// service's thread included, which is what the layer adds to the machine.
BENCHMARK(EvaluatePolicy_ours)->Name("EvaluatePolicy/ours")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(EvaluatePolicy_baseline)
    ->Name("EvaluatePolicy/baseline")
    ->UseRealTime()
    ->MeasureProcessCPUTime();
