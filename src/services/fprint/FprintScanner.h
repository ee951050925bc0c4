// SPDX-License-Identifier: MIT
// The fingerprint reader of the machine, through fprintd on the system bus
// (DBUS_SYSTEM_BUS_ADDRESS when set). Each call opens a connection of its
// own, so that a process that dies mid-scan lets the reader go with it.
#pragma once

#include "services/core/RidgeScanner.h"

#include <tessiva/object/ObRef.h>

namespace tessiva::detail {
// fprintd's default device; without fprintd support built in, a scanner that
// always reports that there is no reader.
ObRef<RidgeScanner> makeFprintScanner();
} // namespace tessiva::detail
