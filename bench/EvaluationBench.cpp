// A synchronous policy evaluation through the credential reference, against
// the same request sent to the client directly and waited for by hand. Both
// go to one client whose replies come from one worker thread.
#include "AllocationCounter.h"
#include "TypicalHints.h"
#include "WorkerService.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/object/ObMake.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/os/ObSemaphore.h"

#include <benchmark/benchmark.h>
#include <memory>

namespace {
using namespace tessiva::bench;

// The policy number of VRPolicyDeviceOwnerAuthenticated ("" in this build).
constexpr ObInteger emptyPolicyNumber = 1007;

// What a successful evaluation replies: a passcode was used.
ObRef<ObDictionary> successResult() {
    return ObDictionary::make({
        {ObNumber::make(1), ObNumber::makeBool(false)},
        {ObNumber::make(3), ObNumber::makeBool(true)},
        {ObNumber::make(4), ObNumber::makeBool(false)},
        {ObNumber::make(5), ObNumber::makeBool(false)},
    });
}

// One worker and one client for the whole run, shared by both sides.
struct Service {
    ReplyWorker worker;
    ObRef<WorkerClient> client = ObMake<WorkerClient>(worker, successResult());

    static Service& shared() {
        static Service service;
        return service;
    }
};

// The options a caller would send without the library: the hints by hand,
// plus the option the library adds (the identity class is absent here).
ObRef<ObDictionary> handBuiltRequestOptions(const HintValues& values) {
    ObRef<ObMutableDictionary> options = handBuiltOptions(values);
    options->setObject_forKey(ObNumber::makeBool(false), ObNumber::make(1009));
    return options;
}

bool evaluateDirectly(KVClient& client, const HintValues& values) {
    // Shared with the reply, which may still be signalling when the wait returns.
    struct Rendezvous {
        ObSemaphore semaphore{0};
        ObRef<ObDictionary> result;
        ObRef<ObError> error;
    };
    auto rendezvous = std::make_shared<Rendezvous>();
    client.evaluatePolicy_options_reply(
        emptyPolicyNumber, handBuiltRequestOptions(values),
        [rendezvous](ObRef<ObDictionary> result, ObRef<ObError> error) {
            rendezvous->result = std::move(result);
            rendezvous->error = std::move(error);
            rendezvous->semaphore.signal();
        });
    rendezvous->semaphore.wait();
    return !rendezvous->error;
}

// Set up against the installed backend, which hands out the shared client.
ObRef<VRCredentialReference> setUpReference() {
    ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    reference->setupNewReferenceWithError(nullptr);
    return reference;
}

// Both sides must put the same request before the service, or the pair
// compares different work.
bool sendTheSameRequest(Service& service, VRCredentialReference& reference,
                        const ObRef<ObDictionary>& hints, const HintValues& values) {
    service.client->setRecording(true);
    reference.evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, hints, nullptr);
    const ObInteger policy = service.client->lastPolicy();
    const ObRef<ObDictionary> options = service.client->lastOptions();
    evaluateDirectly(*service.client, values);
    service.client->setRecording(false);
    return policy == service.client->lastPolicy() &&
           options->isEqual(service.client->lastOptions());
}

void EvaluatePolicy_ours(benchmark::State& state) {
    Service& service = Service::shared();
    const KVScopedClientBackend installed(ObMake<WorkerBackend>(service.client));
    const ObRef<VRCredentialReference> reference = setUpReference();
    const HintValues values = HintValues::make();
    const ObRef<ObDictionary> hints = typicalHints(values);
    if (!sendTheSameRequest(service, *reference, hints, values)) {
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
