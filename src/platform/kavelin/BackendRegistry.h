// SPDX-License-Identifier: MIT
// The backends that TESSIVA_SERVICE may name. Each backend registers itself
// from its own folder with a BackendRegistration, so the platform layer knows
// no backend and a new one adds a line beside its own code.
#pragma once

#include "tessiva/kavelin/KVClient.h"

#include <string_view>

namespace tessiva::detail {
using BackendFactory = ObRef<KVClientBackend> (*)();

// Registers `make` under `name` (compared in any case). Meant for a static
// object in the backend's own source file, constructed when the library loads.
struct BackendRegistration {
    BackendRegistration(std::string_view name, BackendFactory make) noexcept;
};

// The backend TESSIVA_SERVICE names (read once, on first use, in any case):
// unset or empty is "simulated"; "none", or a name no backend registered
// (reported once at error level), is no service at all, so that a mistyped
// name never falls back to a simulation.
ObRef<KVClientBackend> environmentBackend();
// Whether TESSIVA_SERVICE names no service at all ("none" or an unknown
// name), so that the process has no simulated service either.
bool environmentNamesNoService();
} // namespace tessiva::detail
