// SPDX-License-Identifier: MIT
// The numbers Tessiva's services raise events and read answers with.
#pragma once

#include "tessiva/object/ObDefines.h"

namespace tessiva::detail {
inline constexpr ObInteger passcodeEvent = 2;
// Parameters of the passcode event.
inline constexpr ObInteger activeParameter = 0;
// The service's own texts for the user (PAM's notices and errors); the VR
// side reads it as the event's status.
inline constexpr ObInteger noticeParameter = 1;
inline constexpr ObInteger remoteViewBundleParameter = 3;
inline constexpr ObInteger remoteViewNameParameter = 4;
inline constexpr ObInteger attemptsLeftParameter = 5;
// Where an answer to the passcode event holds the passcode.
inline constexpr ObInteger passcodeResponse = 0;
// The processing parameter of option 1007 that asks for the remote view.
inline constexpr ObInteger remoteViewProcessing = 0;
} // namespace tessiva::detail
