// The one place where a service name becomes a backend.
#include "HostedService.h"

#include "tessiva/kavelin/KVSimulatedService.h"

namespace tessiva::daemon {
ObRef<KVClientBackend> hostedServiceNamed(std::string_view name, std::string& problem) {
    if (name == "simulated")
        return KVSimulatedService::make();
    if (name == "pam") {
        problem = "the PAM service is not part of this build of Tessiva yet";
        return nullptr;
    }
    problem = "unknown service '" + std::string(name) + "' (expected " + hostedServiceNames + ")";
    return nullptr;
}
} // namespace tessiva::daemon
