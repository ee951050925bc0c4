// SPDX-License-Identifier: MIT
// TESSIVA_SERVICE=bus: the daemon's client, in every build (without D-Bus
// support it refuses every set-up).
#include "platform/kavelin/BackendRegistry.h"
#include "tessiva/kavelin/KVBusService.h"

namespace tessiva::detail {
namespace {
const BackendRegistration registration{"bus",
                                       [] { return ObRef<KVClientBackend>(KVBusService::make()); }};
} // namespace
} // namespace tessiva::detail
