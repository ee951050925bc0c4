// SPDX-License-Identifier: MIT
#include "standalone/CanEvaluatePolicyFilter.h"

namespace tessiva::detail {

namespace {
constexpr ObInteger toleratedEvaluationCode = -1002;
} // namespace

ObRef<ObError> canEvaluatePolicyError(const ObRef<ObError>& evaluationError) {
    const ObInteger code = evaluationError ? evaluationError->code() : 0;
    return code == toleratedEvaluationCode ? nullptr : evaluationError;
}

} // namespace tessiva::detail
