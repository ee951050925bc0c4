// SPDX-License-Identifier: MIT
// The free policy functions. This build has no authentication hardware, so
// they fail with one fixed error; VRCanEvaluatePolicyWithReply still goes
// through VREvaluatePolicy and its filter, as it does where hardware exists.
#include "logging/CallLog.h"
#include "standalone/CanEvaluatePolicyFilter.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRFunctions.h"
#include "tessiva/object/ObNumber.h"

#include <utility>

using tessiva::detail::freeFunctionTag;
using tessiva::detail::logCall;

namespace {
constexpr ObInteger simulatorErrorCode = -6;
OB_CONSTANT_STRING(simulatorMessage, "Simulator is not supported.");

// Marks the inner reply's log line as VRCanEvaluatePolicyWithReply's reply.
constexpr const char* canEvaluatePolicyReplyName = "VRCanEvaluatePolicyWithReply (reply)";

ObRef<ObError> simulatorError() {
    return KVLegacyHelper::vrErrorWithCode_andMessage(simulatorErrorCode, &simulatorMessage);
}
} // namespace

void VREvaluatePolicy(const ObRef<ObString>& policy, const ObRef<ObDictionary>& hints,
                      VRErrorReply reply) {
    logCall(freeFunctionTag, "VREvaluatePolicy", "(%@, %@)", policy, hints);
    reply(simulatorError());
}

void VRCanEvaluatePolicyWithReply(const ObRef<ObString>& policy, VRErrorReply reply) {
    logCall(freeFunctionTag, "VRCanEvaluatePolicyWithReply", "%@", policy);
    const ObRef<ObDictionary> hints =
        ObDictionary::make({{VRHintNotInteractive, ObNumber::makeBool(true)}});
    // The inner reply owns the caller's reply until it has run.
    VREvaluatePolicy(policy, hints, [reply = std::move(reply)](ObRef<ObError> error) {
        logCall(freeFunctionTag, canEvaluatePolicyReplyName, "-> %@", error);
        reply(tessiva::detail::canEvaluatePolicyError(error));
    });
}

bool VRCanEvaluatePolicy(const ObRef<ObString>& policy, ObRef<ObError>* error) {
    logCall(freeFunctionTag, "VRCanEvaluatePolicy", "%@", policy);
    if (error != nullptr)
        *error = simulatorError();
    return false;
}
