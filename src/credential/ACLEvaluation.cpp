// SPDX-License-Identifier: MIT
// Access-control-list evaluation: forwarded with translated hints; unlike a
// policy evaluation it keeps nothing and does not hold the reference.
#include "credential/ReferenceLog.h"
#include "credential/SyncCall.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRCredentialReference.h"

using tessiva::detail::logReferenceEntry;
using tessiva::detail::logReferenceReply;
using tessiva::detail::OperationLogName;

namespace {
constexpr OperationLogName evaluateACLLog{
    "-[VRCredentialReference evaluateACL:operation:hints:reply:]"};
} // namespace

void VRCredentialReference::evaluateACL_operation_hints_reply(const ObRef<ObObject>& acl,
                                                              const ObRef<ObObject>& operation,
                                                              const ObRef<ObDictionary>& hints,
                                                              VRErrorReply reply) {
    logReferenceEntry(evaluateACLLog, "%@, %@, %@", acl, operation, hints);
    const ObRef<KVClient> client = _client.load();
    const ObRef<ObMutableDictionary> options = KVLegacyHelper::optionsFromVRHints(hints);
    if (!client)
        return;

    // The service's classes for the ACL and the operation are its own
    // business: both go on as the caller gave them.
    client->evaluateACL_operation_options_reply(
        acl, operation, options,
        [reply = std::move(reply)](ObRef<ObDictionary> result, ObRef<ObError> error) {
            logReferenceReply(evaluateACLLog, "-> %@, %@", result, error);
            // The result is dropped: only policy evaluations feed results by tag.
            reply(KVLegacyHelper::vrErrorFromKVError(error));
        });
}

bool VRCredentialReference::evaluateACL_operation_hints_error(const ObRef<ObObject>& acl,
                                                              const ObRef<ObObject>& operation,
                                                              const ObRef<ObDictionary>& hints,
                                                              ObRef<ObError>* error) {
    return tessiva::detail::waitForErrorReply(
        [&](VRErrorReply reply) {
            evaluateACL_operation_hints_reply(acl, operation, hints, std::move(reply));
        },
        error);
}
