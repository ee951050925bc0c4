// SPDX-License-Identifier: MIT
// The free policy functions of the VR interface.
//
// This build runs on a simulated device without authentication hardware:
// every call fails at once with the VRErrorDomain error -6, "Simulator is not
// supported.", and no service is contacted. Replies run exactly once, on the
// calling thread, before the function returns; they must be given.
//
// Each function logs its entry under the tag "VRTessiva" (see KVLogger).
#pragma once

#include "tessiva/TessivaExport.h"
#include "tessiva/VRReplies.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObError.h"
#include "tessiva/object/ObString.h"

#include <functional>

// Evaluates the policy with the hints (may be absent) and replies with the
// outcome. Logs "VREvaluatePolicy (<policy>, <hints>)".
TESSIVA_API void VREvaluatePolicy(const ObRef<ObString>& policy, const ObRef<ObDictionary>& hints,
                                  VRErrorReply reply);

// Replies with absent when the policy can be evaluated, otherwise with the
// reason. Runs a non-interactive VREvaluatePolicy in which code -1002 counts
// as success. Logs "VRCanEvaluatePolicyWithReply <policy>" on entry and, when
// the evaluation replies, "VRCanEvaluatePolicyWithReply (reply) -> <error>".
TESSIVA_API void VRCanEvaluatePolicyWithReply(const ObRef<ObString>& policy, VRErrorReply reply);

// Whether the policy can be evaluated; the reason goes to `error` when one is
// given (nullptr for none). Logs "VRCanEvaluatePolicy <policy>".
TESSIVA_API bool VRCanEvaluatePolicy(const ObRef<ObString>& policy, ObRef<ObError>* error);
