// SPDX-License-Identifier: MIT
// KVServiceErrors: the KVErrorDomain codes that Tessiva's own services (the
// simulated one and the PAM one) reply with, and the ACL rule they ask.
#pragma once

#include "tessiva/kavelin/KVClient.h"

#include <functional>

// The KVErrorDomain codes Tessiva's services reply with, with the VR code that
// error translation turns each into. The service also uses
// KVErrorInvalidParameter (VR -1005) for an unknown policy or a malformed
// option, and KVErrorServiceUnavailable (VR -6) stands for no service at all.

// A wrong passcode was entered as often as the evaluation allows (VR -1).
inline constexpr ObInteger KVErrorAuthenticationFailed = -1;
// The user declined: the delegate answered with something not a passcode (VR -2).
inline constexpr ObInteger KVErrorUserCancel = -2;
// The application stopped the evaluation, by invalidating its context or by
// failing its event without an error object (VR -9).
inline constexpr ObInteger KVErrorAppCancel = -7;
// The user took the fallback that option 1 offers during a ridge scan of a
// policy with nothing to fall back to (VR -3).
inline constexpr ObInteger KVErrorUserFallback = -4;
// The reader has no finger enrolled for the user (VR -7).
inline constexpr ObInteger KVErrorBiometryNotEnrolled = -5;
// The policy needs a ridge-scan sensor that the device lacks, or that cannot
// serve the user now (in use by another program, unplugged, refused) (VR -6).
inline constexpr ObInteger KVErrorBiometryNotAvailable = -1001;
// The ACL rule refused the operation (VR -1000).
inline constexpr ObInteger KVErrorACLDenied = -1002;
// The user did not authenticate within the time-out (VR -1001).
inline constexpr ObInteger KVErrorTimedOut = -1003;
// The evaluation needs the user and option 1000 forbids asking (VR -1002).
inline constexpr ObInteger KVErrorNotInteractive = -1004;
// A client request named no event that an evaluation is processing (VR -1003).
inline constexpr ObInteger KVErrorNoEventProcessed = -1005;
// The context already runs an evaluation (VR -1006).
inline constexpr ObInteger KVErrorEvaluationInProgress = -1007;
// The context was invalidated, or no context matches the handle (VR -1010).
inline constexpr ObInteger KVErrorInvalidContext = -1009;

// Decides whether an ACL allows an operation; called on the thread that
// asks, with no lock held.
using KVACLRule = std::function<bool(const ObRef<ObObject>& acl, const ObRef<ObObject>& operation)>;
