// SPDX-License-Identifier: MIT
// EvaluationOptions: what a policy evaluation's options dictionary asks of the
// service.
#pragma once

#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObError.h"

#include <chrono>
#include <optional>

namespace tessiva::detail {
// The passcode failures an evaluation allows unless option 1004 says.
inline constexpr ObInteger defaultMaxPasscodeFailures = 3;

struct EvaluationOptions {
    bool interactive = true;
    std::optional<std::chrono::seconds> timeout;
    ObInteger maxPasscodeFailures;
    bool raisesPasscodeEvent = true;
    // The passcode event carries the remote view's parameters 3 and 4.
    bool showsRemoteView = false;

    // Reads the options (absent reads as empty). A malformed value yields
    // absent and, in the out-parameter, a KVErrorInvalidParameter error.
    static std::optional<EvaluationOptions> read(const ObRef<ObDictionary>& options,
                                                 ObRef<ObError>* error);
};
} // namespace tessiva::detail
