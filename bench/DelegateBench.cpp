// One user-interface event through the delegate proxy, against delivering
// the same event to the same delegate with both dictionaries built by hand.
#include "AllocationCounter.h"
#include "tessiva/DelegateProxy.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "tessiva/object/ObData.h"
#include "tessiva/object/ObMake.h"
#include "tessiva/object/ObNumber.h"

#include <benchmark/benchmark.h>

namespace {
using namespace tessiva::bench;

// Answers every event at once with consent given.
class ConsentingDelegate final : public VRUIDelegate {
public:
    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        benchmark::DoNotOptimize(event.get());
        benchmark::DoNotOptimize(params.get());
        reply(answer_, nullptr);
    }

private:
    const ObRef<ObDictionary> answer_ =
        ObDictionary::make({{VREventConsentResponse, ObNumber::makeBool(true)}});
};

// The ridge-scan event's three parameters, as the service sends them.
struct EventValues {
    ObRef<ObObject> status = ObNumber::make(2);
    ObRef<ObObject> identity = ObData::make("finger", 6);
    ObRef<ObObject> simpleStatus = ObNumber::make(1);

    ObRef<ObDictionary> serviceParams() const {
        return ObDictionary::make({{ObNumber::make(1), status},
                                   {ObNumber::make(2), identity},
                                   {ObNumber::make(5), simpleStatus}});
    }
};

KVUIReply serviceReply() {
    return [](ObRef<ObDictionary> answer, ObRef<ObError> error) {
        benchmark::DoNotOptimize(answer.get());
        benchmark::DoNotOptimize(error.get());
    };
}

// The same delivery as the proxy's, with the renaming written out for this
// one event: the parameters under their VR names, the answer under its number.
void deliverByHand(VRUIDelegate& delegate, const EventValues& values, KVUIReply reply) {
    ObRef<ObMutableDictionary> params = ObMutableDictionary::make();
    params->setObject_forKey(values.status, VREventRidgeScanParamStatus);
    params->setObject_forKey(values.identity, VREventRidgeScanParamIdentity);
    params->setObject_forKey(values.simpleStatus, VREventRidgeScanParamSimpleStatus);
    delegate.event_params_reply(
        VREventRidgeScan, params,
        [reply = std::move(reply)](ObRef<ObDictionary> answer, ObRef<ObError> error) {
            ObRef<ObMutableDictionary> translated = ObMutableDictionary::make();
            translated->setObject_forKey(answer->objectForKey(VREventConsentResponse),
                                         ObNumber::make(0));
            reply(translated, std::move(error));
        });
}

void DelegateEvent_ours(benchmark::State& state) {
    const ObRef<DelegateProxy> proxy =
        KVLegacyHelper::uiDelegateFromVRUIDelegate(ObMake<ConsentingDelegate>());
    const EventValues values;
    const ObRef<ObDictionary> params = values.serviceParams();
    const KVUIReply reply = serviceReply();
    AllocationProbe allocations(state);
    for (auto _ : state)
        proxy->event_params_reply(1, params, reply);
    allocations.finish();
}

void DelegateEvent_baseline(benchmark::State& state) {
    const ObRef<ConsentingDelegate> delegate = ObMake<ConsentingDelegate>();
    const EventValues values;
    const KVUIReply reply = serviceReply();
    AllocationProbe allocations(state);
    for (auto _ : state)
        deliverByHand(*delegate, values, reply);
    allocations.finish();
}

} // namespace

BENCHMARK(DelegateEvent_ours)->Name("DelegateEvent/ours");
BENCHMARK(DelegateEvent_baseline)->Name("DelegateEvent/baseline");
