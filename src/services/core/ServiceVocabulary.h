// SPDX-License-Identifier: MIT
// The numbers Tessiva's services raise events and read answers with.
#pragma once

#include "tessiva/object/ObDefines.h"

namespace tessiva::detail {
inline constexpr ObInteger ridgescanEvent = 1;
inline constexpr ObInteger passcodeEvent = 2;
inline constexpr ObInteger consentEvent = 3;
inline constexpr ObInteger passphraseEvent = 4;
// The availability report: no user-interface event of its own, its
// parameters map an event to whether it can be used now.
inline constexpr ObInteger availabilityEvent = 0;
// Parameters of the ridge-scan event.
inline constexpr ObInteger scanStatusParameter = 1;
inline constexpr ObInteger scanIdentityParameter = 2;
inline constexpr ObInteger scanSimpleStatusParameter = 5;
// The coarse status of a scan, for callers that need no more.
inline constexpr ObInteger simpleStatusScanning = 0;
inline constexpr ObInteger simpleStatusMatched = 1;
inline constexpr ObInteger simpleStatusNotMatched = 2;
inline constexpr ObInteger simpleStatusFailed = 3;
// Results of an evaluation.
inline constexpr ObInteger usedRidgescanResult = 1;
inline constexpr ObInteger ridgescanIdentityResult = 2;
inline constexpr ObInteger usedPasscodeResult = 3;
inline constexpr ObInteger usedYesNoResult = 4;
inline constexpr ObInteger usedPassphraseResult = 5;
// Parameters of the passcode event.
inline constexpr ObInteger activeParameter = 0;
// The service's own texts for the user (PAM's notices and errors); the VR
// side reads it as the event's status.
inline constexpr ObInteger noticeParameter = 1;
inline constexpr ObInteger remoteViewBundleParameter = 3;
inline constexpr ObInteger remoteViewNameParameter = 4;
inline constexpr ObInteger attemptsLeftParameter = 5;
// Where an answer to the passcode event holds the passcode (and one to the
// passphrase event the passphrase, to the consent event the consent, to a
// ridge-scan event the fallback).
inline constexpr ObInteger passcodeResponse = 0;
// The processing parameter of option 1007 that asks for the remote view.
inline constexpr ObInteger remoteViewProcessing = 0;
} // namespace tessiva::detail
