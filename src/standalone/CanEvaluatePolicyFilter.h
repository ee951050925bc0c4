// SPDX-License-Identifier: MIT
// The decision inside VRCanEvaluatePolicyWithReply's reply, kept apart so that
// it can be checked with errors this build never produces.
#pragma once

#include "tessiva/object/ObError.h"

namespace tessiva::detail {

// What VRCanEvaluatePolicyWithReply hands its caller for the error of its
// non-interactive evaluation: absent for code -1002, the tolerated failure,
// otherwise the error itself. Only the code is read, whatever the domain; an
// absent error reads as code 0 and stays absent.
ObRef<ObError> canEvaluatePolicyError(const ObRef<ObError>& evaluationError);

} // namespace tessiva::detail
