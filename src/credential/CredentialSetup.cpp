// SPDX-License-Identifier: MIT
// Set-up of a credential reference: asking the service for a client, in the
// asynchronous forms and the synchronous ones built on them.
#include "credential/ReferenceLog.h"
#include "credential/SyncCall.h"
#include "tessiva/DelegateProxy.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRCredentialReference.h"

using tessiva::detail::logReferenceEntry;
using tessiva::detail::logReferenceReply;
using tessiva::detail::OperationLogName;

namespace {
constexpr OperationLogName setupLog{
    "-[VRCredentialReference setupWithCredentialHandle:domain:uiDelegate:reply:]"};
} // namespace

void VRCredentialReference::setupWithCredentialHandle_domain_uiDelegate_reply(
    const ObRef<ObData>& handle, const ObRef<ObObject>& domain,
    const ObRef<VRUIDelegate>& uiDelegate, VRErrorReply reply) {
    logReferenceEntry(setupLog, "%@, %@, %@", handle, domain, uiDelegate);

    // Replaced on every set-up, so a set-up without a delegate drops the
    // previous proxy at once.
    const ObRef<KVUIDelegate> proxy = KVLegacyHelper::uiDelegateFromVRUIDelegate(uiDelegate);
    _delegateProxy.store(proxy);

    KVClient::clientWithExternalizedContext_uiDelegate_reply(
        handle, proxy,
        [self = ObRef<VRCredentialReference>(this),
         reply = std::move(reply)](ObRef<KVClient> client, ObRef<ObError> error) {
            logReferenceReply(setupLog, "-> %@, %@", client, error);
            // Unconditional: a failed set-up leaves no client and no handle,
            // and an earlier client is dropped without being invalidated.
            self->_client.store(client);
            self->_credentialHandle.store(client ? client->externalizedContext() : nullptr);
            reply(KVLegacyHelper::vrErrorFromKVError(error));
        });
}

void VRCredentialReference::setupNewReferenceWithReply(VRErrorReply reply) {
    setupWithCredentialHandle_domain_uiDelegate_reply(nullptr, nullptr, nullptr, std::move(reply));
}

void VRCredentialReference::setupWithCredentialHandle_reply(const ObRef<ObData>& handle,
                                                            VRErrorReply reply) {
    setupWithCredentialHandle_domain_uiDelegate_reply(handle, nullptr, nullptr, std::move(reply));
}

void VRCredentialReference::setupWithCredentialHandle_domain_reply(const ObRef<ObData>& handle,
                                                                   const ObRef<ObObject>& domain,
                                                                   VRErrorReply reply) {
    setupWithCredentialHandle_domain_uiDelegate_reply(handle, domain, nullptr, std::move(reply));
}

void VRCredentialReference::setupWithCredentialHandle_uiDelegate_reply(
    const ObRef<ObData>& handle, const ObRef<VRUIDelegate>& uiDelegate, VRErrorReply reply) {
    setupWithCredentialHandle_domain_uiDelegate_reply(handle, nullptr, uiDelegate,
                                                      std::move(reply));
}

bool VRCredentialReference::setupNewReferenceWithError(ObRef<ObError>* error) {
    return setupWithCredentialHandle_error(nullptr, error);
}

bool VRCredentialReference::setupWithCredentialHandle_error(const ObRef<ObData>& handle,
                                                            ObRef<ObError>* error) {
    return tessiva::detail::waitForErrorReply(
        [&](VRErrorReply reply) {
            setupWithCredentialHandle_domain_uiDelegate_reply(handle, nullptr, nullptr,
                                                              std::move(reply));
        },
        error);
}
