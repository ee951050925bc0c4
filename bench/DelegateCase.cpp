// SPDX-License-Identifier: MIT
#include "DelegateCase.h"

#include "tessiva/VRConstants.h"
#include "tessiva/object/ObData.h"
#include "tessiva/object/ObNumber.h"

#include <benchmark/benchmark.h>

namespace tessiva::bench {

ConsentingDelegate::ConsentingDelegate()
    : answer_(ObDictionary::make({{VREventConsentResponse, ObNumber::makeBool(true)}})) {}

void ConsentingDelegate::event_params_reply(const ObRef<ObString>& event,
                                            const ObRef<ObDictionary>& params, VRUIReply reply) {
    benchmark::DoNotOptimize(event.get());
    benchmark::DoNotOptimize(params.get());
    reply(answer_, nullptr);
}

EventValues EventValues::make() {
    return {ObNumber::make(2), ObData::make("finger", 6), ObNumber::make(1)};
}

ObRef<ObDictionary> EventValues::serviceParams() const {
    return ObDictionary::make({{ObNumber::make(1), status},
                               {ObNumber::make(2), identity},
                               {ObNumber::make(5), simpleStatus}});
}

KVUIReply serviceReply() {
    return [](ObRef<ObDictionary> answer, ObRef<ObError> error) {
        benchmark::DoNotOptimize(answer.get());
        benchmark::DoNotOptimize(error.get());
    };
}

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

} // namespace tessiva::bench
