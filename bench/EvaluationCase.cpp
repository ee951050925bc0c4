// SPDX-License-Identifier: MIT
#include "EvaluationCase.h"

#include "tessiva/VRConstants.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/os/ObSemaphore.h"

#include <memory>

namespace tessiva::bench {

ObRef<ObDictionary> successResult() {
    return ObDictionary::make({
        {ObNumber::make(1), ObNumber::makeBool(false)},
        {ObNumber::make(3), ObNumber::makeBool(true)},
        {ObNumber::make(4), ObNumber::makeBool(false)},
        {ObNumber::make(5), ObNumber::makeBool(false)},
    });
}

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

bool sendsTheSameRequest(WorkerClient& client, VRCredentialReference& reference,
                         const ObRef<ObDictionary>& hints, const HintValues& values) {
    client.setRecording(true);
    reference.evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, hints, nullptr);
    const ObInteger policy = client.lastPolicy();
    const ObRef<ObDictionary> options = client.lastOptions();
    evaluateDirectly(client, values);
    client.setRecording(false);
    return options && policy == client.lastPolicy() && options->isEqual(client.lastOptions());
}

ObRef<VRCredentialReference> setUpReference() {
    ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    reference->setupNewReferenceWithError(nullptr);
    return reference;
}

} // namespace tessiva::bench
