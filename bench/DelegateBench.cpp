// SPDX-License-Identifier: MIT
// One user-interface event through the delegate proxy, against delivering
// the same event to the same delegate with both dictionaries built by hand.
#include "AllocationCounter.h"
#include "DelegateCase.h"
#include "tessiva/DelegateProxy.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/object/ObMake.h"

#include <benchmark/benchmark.h>

namespace {
using namespace tessiva::bench;

void DelegateEvent_ours(benchmark::State& state) {
    const ObRef<DelegateProxy> proxy =
        KVLegacyHelper::uiDelegateFromVRUIDelegate(ObMake<ConsentingDelegate>());
    const EventValues values = EventValues::make();
    const ObRef<ObDictionary> params = values.serviceParams();
    const KVUIReply reply = serviceReply();
    AllocationProbe allocations(state);
    for (auto _ : state)
        proxy->event_params_reply(1, params, reply);
    allocations.finish();
}

void DelegateEvent_baseline(benchmark::State& state) {
    const ObRef<ConsentingDelegate> delegate = ObMake<ConsentingDelegate>();
    const EventValues values = EventValues::make();
    const KVUIReply reply = serviceReply();
    AllocationProbe allocations(state);
    for (auto _ : state)
        deliverByHand(*delegate, values, reply);
    allocations.finish();
}

} // namespace

BENCHMARK(DelegateEvent_ours)->Name("DelegateEvent/ours");
BENCHMARK(DelegateEvent_baseline)->Name("DelegateEvent/baseline");
