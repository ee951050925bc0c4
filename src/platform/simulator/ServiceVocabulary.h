// The numbers the simulated service raises events and reads answers with.
#pragma once

#include "tessiva/object/ObDefines.h"

namespace tessiva::detail {
inline constexpr ObInteger passcodeEvent = 2;
// Parameters of the passcode event.
inline constexpr ObInteger activeParameter = 0;
inline constexpr ObInteger remoteViewBundleParameter = 3;
inline constexpr ObInteger remoteViewNameParameter = 4;
inline constexpr ObInteger attemptsLeftParameter = 5;
// Where an answer to the passcode event holds the passcode.
inline constexpr ObInteger passcodeResponse = 0;
// The processing parameter of option 1007 that asks for the remote view.
inline constexpr ObInteger remoteViewProcessing = 0;
} // namespace tessiva::detail
