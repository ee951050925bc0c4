// SPDX-License-Identifier: MIT
// Policy evaluation: the caller's hints and policy in the service's numbers,
// plus the one option the library adds itself, and the result kept for
// results by tag.
#include "credential/ReferenceLog.h"
#include "credential/SyncCall.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/object/ObClass.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/os/ObOnce.h"
#include "translation/OptionKeys.h"

using tessiva::detail::logReferenceEntry;
using tessiva::detail::logReferenceReply;
using tessiva::detail::OperationLogName;

namespace {
constexpr OperationLogName evaluatePolicyLog{
    "-[VRCredentialReference evaluatePolicy:hints:reply:]"};

// Tells the service whether the biometric identity class is present.
constexpr ObInteger scandraIdentityOption = 1009;
OB_CONSTANT_STRING(scandraIdentityClassName, "ScandraIdentity");

// Looked up on the first policy evaluation in the process and never again,
// so a class that appears later is not seen.
constinit ObOnceToken onceToken;
constinit bool canInstantiateScandraIdentity = false;

bool scandraIdentityAvailable() {
    ObDispatchOnce(onceToken, [] {
        canInstantiateScandraIdentity = ObClassFromString(&scandraIdentityClassName) != nullptr;
    });
    return canInstantiateScandraIdentity;
}

// The translation makes a new dictionary for this request alone, so the
// option is added to it rather than to a copy of it: the service receives
// the same entries in the same order. The option overrides anything under
// its key.
ObRef<ObMutableDictionary> withScandraIdentityOption(ObRef<ObMutableDictionary> translated,
                                                     bool available) {
    ObRef<ObMutableDictionary> options =
        translated ? std::move(translated) : ObMutableDictionary::make();
    options->setObject_forKey(ObNumber::makeBool(available),
                              tessiva::detail::optionKey(scandraIdentityOption));
    return options;
}

// Both forms: logs, translates and sends, then has the service's reply log,
// replace the kept result and hand `done` the error in the VR vocabulary.
// `done` is the caller's reply, or the synchronous form's own rendezvous,
// which so reaches the client inside one function object rather than two.
template <class Done>
void evaluate(VRCredentialReference& self, const ObAtomicRef<KVClient>& clientField,
              ObAtomicRef<ObDictionary>& lastResult, const ObRef<ObString>& policy,
              const ObRef<ObDictionary>& hints, Done done) {
    logReferenceEntry(evaluatePolicyLog, "%@, %@", policy, hints);
    // Hints first: when both are bad, the hints' exception is the one raised.
    ObRef<ObMutableDictionary> translated = KVLegacyHelper::optionsFromVRHints(hints);
    const ObRef<ObMutableDictionary> options =
        withScandraIdentityOption(std::move(translated), scandraIdentityAvailable());
    const ObRef<KVClient> client = clientField.load();
    const ObInteger policyNumber = KVLegacyHelper::policyFromVRPolicy(policy);
    if (!client)
        return;

    // `lastResult` is a field of `self`, which the reply keeps alive.
    client->evaluatePolicy_options_reply(
        policyNumber, options,
        [keepAlive = ObRef<VRCredentialReference>(&self), &lastResult,
         done = std::move(done)](ObRef<ObDictionary> result, ObRef<ObError> error) {
            logReferenceReply(evaluatePolicyLog, "-> %@, %@", result, error);
            // Unconditional: a failed evaluation leaves no result to read.
            lastResult.store(result);
            done(KVLegacyHelper::vrErrorFromKVError(error));
        });
}
} // namespace

void VRCredentialReference::evaluatePolicy_hints_reply(const ObRef<ObString>& policy,
                                                       const ObRef<ObDictionary>& hints,
                                                       VRErrorReply reply) {
    evaluate(*this, _client, _lastEvaluatePolicyResult, policy, hints, std::move(reply));
}

bool VRCredentialReference::evaluatePolicy_hints_error(const ObRef<ObString>& policy,
                                                       const ObRef<ObDictionary>& hints,
                                                       ObRef<ObError>* error) {
    return tessiva::detail::waitForErrorReply(
        [&](auto reply) {
            evaluate(*this, _client, _lastEvaluatePolicyResult, policy, hints, std::move(reply));
        },
        error);
}
