// The service the daemon hosts, chosen by its --service name.
#pragma once

#include "tessiva/kavelin/KVClient.h"

#include <string>
#include <string_view>

namespace tessiva::daemon {
// The names --service accepts, for the usage text.
inline constexpr char hostedServiceNames[] = "simulated|pam";

// A new service of that name; absent, with the reason, when there is none.
ObRef<KVClientBackend> hostedServiceNamed(std::string_view name, std::string& problem);
} // namespace tessiva::daemon
