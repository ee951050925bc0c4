// SPDX-License-Identifier: MIT
// Results by tag: one entry of the last policy evaluation's result, read by
// its VR result tag.
#include "credential/ReferenceLog.h"
#include "credential/SyncCall.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/os/ObTraceLog.h"

#include <cstdint>

using tessiva::detail::logReferenceEntry;
using tessiva::detail::OperationLogName;

namespace {
constexpr OperationLogName resultForTagLog{"-[VRCredentialReference resultForTag:reply:]"};

constexpr ObInteger resultNotAvailableCode = -10;
OB_CONSTANT_STRING(resultNotAvailableMessage, "Result not available.");

// The synchronous form hands out no error, so the reason goes to the trace
// log; the payload keeps tag and error for whenever the trace facility
// collects it.
void traceMissingResult(const ObRef<ObString>& tag, const ObRef<ObError>& error) {
    ObTraceLogWrite("Failed getting result for tag: error %d",
                    static_cast<std::int32_t>(error->code()),
                    [tag, error](ObTraceMessage& message) {
                        message.setString("tag", tag->cString());
                        // The error's whole text form: domain, code and message.
                        message.setString("error", error->description()->cString());
                    });
}
} // namespace

void VRCredentialReference::resultForTag_reply(const ObRef<ObString>& tag, VRResultReply reply) {
    logReferenceEntry(resultForTagLog, "%@", tag);
    const ObInteger number = KVLegacyHelper::resultFromVRResult(tag);
    // Absent before any policy evaluation has replied and after one failed.
    const ObRef<ObDictionary> results = _lastEvaluatePolicyResult.load();
    ObRef<ObObject> value = results ? results->objectForKey(ObNumber::make(number)) : nullptr;
    if (value)
        reply(std::move(value), nullptr);
    else
        reply(nullptr, KVLegacyHelper::vrErrorWithCode_andMessage(resultNotAvailableCode,
                                                                  &resultNotAvailableMessage));
}

ObRef<ObObject> VRCredentialReference::resultForTag(const ObRef<ObString>& tag) {
    // The reply runs before resultForTag_reply returns, so this never blocks.
    return tessiva::detail::waitForReply<ObObject>([&](auto keep) {
        resultForTag_reply(
            tag, [tag, keep = std::move(keep)](ObRef<ObObject> value, ObRef<ObError> error) {
                if (!value)
                    traceMissingResult(tag, error);
                keep(std::move(value));
            });
    });
}
