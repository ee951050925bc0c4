// SPDX-License-Identifier: MIT
// Client requests: a caller pushing a password or an event failure into a
// running evaluation.
#include "credential/ReferenceLog.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/brindle/KVLogger.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObNumber.h"

#include <vector>

using tessiva::detail::logReferenceEntry;
using tessiva::detail::logReferenceReply;
using tessiva::detail::OperationLogName;

namespace {
constexpr OperationLogName sendClientRequestLog{
    "-[VRCredentialReference sendClientRequest:params:reply:]"};

constexpr ObInteger unknownClientRequestCode = -1005;

// Requests are matched by text, so a caller's own equal string works too.
bool isRequest(const ObRef<ObString>& request, const ObString* name) {
    return request && request->text() == name->text();
}

OB_CONSTANT_STRING(redactedValue, "<redacted>");

// The parameters as the log line shows them: with redaction on, a copy whose
// password is the marker; otherwise the very dictionary.
ObRef<ObDictionary> loggedParams(const ObRef<ObDictionary>& params) {
    if (!params || !KVLogger::sharedInstance()->isRedactingSecrets() ||
        params->peekObjectForKey(VRClientRequestParamPassword) == nullptr)
        return params;
    std::vector<ObDictionary::Entry> entries(params->begin(), params->end());
    for (ObDictionary::Entry& entry : entries) {
        if (entry.first->isEqual(VRClientRequestParamPassword))
            entry.second = &redactedValue;
    }
    return ObDictionary::make(std::move(entries));
}

// Parameters are read as they are, never type-checked; absent parameters
// read as absent.
ObRef<ObObject> parameter(const ObRef<ObDictionary>& params, const ObString* key) {
    return params ? params->objectForKey(key) : nullptr;
}
} // namespace

void VRCredentialReference::sendClientRequest_params_reply(const ObRef<ObString>& request,
                                                           const ObRef<ObDictionary>& params,
                                                           VRDictionaryReply reply) {
    logReferenceEntry(sendClientRequestLog, "%@, %@", request, loggedParams(params));
    KVSuccessReply forward = [reply = std::move(reply)](bool success, ObRef<ObError> error) {
        logReferenceReply(sendClientRequestLog, "-> %@, %@", ObNumber::makeBool(success), error);
        reply(success ? ObDictionary::make() : nullptr, KVLegacyHelper::vrErrorFromKVError(error));
    };

    if (isRequest(request, VRClientRequestEnterPassword)) {
        if (const ObRef<KVClient> client = _client.load())
            client->enterPassword_reply(parameter(params, VRClientRequestParamPassword),
                                        std::move(forward));
    } else if (isRequest(request, VRClientRequestStopEvents)) {
        // Stopping means failing the named event with the caller's error.
        const ObInteger event = KVLegacyHelper::eventFromVREvent(
            ob_cast<ObString>(parameter(params, VRClientRequestParamEvent)));
        if (const ObRef<KVClient> client = _client.load())
            client->failProcessedEvent_failureError_reply(
                event, parameter(params, VRClientRequestParamError), std::move(forward));
    } else {
        // Through the forwarding reply, so that unknown requests log a reply
        // line too.
        forward(false,
                KVLegacyHelper::vrErrorWithCode_andMessage(
                    unknownClientRequestCode, ObFormat("Unknown client request: '%@'", request)));
    }
}
