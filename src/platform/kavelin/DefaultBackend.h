// The backend a process uses when none is installed, chosen by name through
// the environment variable TESSIVA_SERVICE.
#pragma once

#include "tessiva/kavelin/KVClient.h"

namespace tessiva::detail {
// The backend TESSIVA_SERVICE names (read once, on first use, in any case):
// unset or empty is the simulated service; "none", or a name no backend has
// (reported once at error level), is no service at all, so that a mistyped
// name never falls back to a simulation.
ObRef<KVClientBackend> environmentBackend();
// Whether TESSIVA_SERVICE names no service at all ("none" or an unknown
// name), so that the process has no simulated service either.
bool environmentNamesNoService();
} // namespace tessiva::detail
