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
} // namespace

void VRCredentialReference::evaluatePolicy_hints_reply(const ObRef<ObString>& policy,
                                                       const ObRef<ObDictionary>& hints,
                                                       VRErrorReply reply) {
    logReferenceEntry(evaluatePolicyLog, "%@, %@", policy, hints);
    // Hints first: when both are bad, the hints' exception is the one raised.
    ObRef<ObMutableDictionary> translated = KVLegacyHelper::optionsFromVRHints(hints);
    const ObRef<ObMutableDictionary> options =
        withScandraIdentityOption(std::move(translated), scandraIdentityAvailable());
    const ObRef<KVClient> client = _client.load();
    const ObInteger policyNumber = KVLegacyHelper::policyFromVRPolicy(policy);
    if (!client)
        return;

    client->evaluatePolicy_options_reply(
        policyNumber, options,
        [self = ObRef<VRCredentialReference>(this),
         reply = std::move(reply)](ObRef<ObDictionary> result, ObRef<ObError> error) {
            logReferenceReply(evaluatePolicyLog, "-> %@, %@", result, error);
            // Unconditional: a failed evaluation leaves no result to read.
            self->_lastEvaluatePolicyResult.store(result);
            reply(KVLegacyHelper::vrErrorFromKVError(error));
        });
}

bool VRCredentialReference::evaluatePolicy_hints_error(const ObRef<ObString>& policy,
                                                       const ObRef<ObDictionary>& hints,
                                                       ObRef<ObError>* error) {
    return tessiva::detail::waitForErrorReply(
        [&](VRErrorReply reply) { evaluatePolicy_hints_reply(policy, hints, std::move(reply)); },
        error);
}
