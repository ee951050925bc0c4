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
// The ridge scans that may fail to match unless option 1003 says.
inline constexpr ObInteger defaultMaxRidgescanFailures = 3;

struct EvaluationOptions {
    bool interactive = true;
    std::optional<std::chrono::seconds> timeout;
    ObInteger maxPasscodeFailures;
    ObInteger maxRidgescanFailures = defaultMaxRidgescanFailures;
    // Events 1 to 4 the caller wants raised, bit N for event N (option 1007).
    unsigned raisedEvents = 0x1e;
    // Option 1: the delegate may answer a ridge-scan event to fall back.
    bool offersFallback = false;
    // Option 1012: the password prompt is a passphrase, asked before a scan.
    bool passphraseFirst = false;
    // The passcode event carries the remote view's parameters 3 and 4.
    bool showsRemoteView = false;

    bool raises(ObInteger event) const noexcept {
        return event >= 1 && event <= 4 && (raisedEvents & (1u << event)) != 0;
    }

    // Reads the options (absent reads as empty). A malformed value yields
    // absent and, in the out-parameter, a KVErrorInvalidParameter error.
    static std::optional<EvaluationOptions> read(const ObRef<ObDictionary>& options,
                                                 ObRef<ObError>* error);
};
} // namespace tessiva::detail
