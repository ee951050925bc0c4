// The table of backends that TESSIVA_SERVICE may name. A new backend adds
// one row.
#include "DefaultBackend.h"

#include "../os/EnvironmentFlag.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/kavelin/KVPAMService.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/os/ObLog.h"

#include <cstdlib>
#include <string_view>

namespace tessiva::detail {
namespace {
struct NamedBackend {
    std::string_view name;
    ObRef<KVClientBackend> (*make)();
};

constexpr NamedBackend backends[] = {
    {"simulated", [] { return ObRef<KVClientBackend>(KVSimulatedService::defaultService()); }},
    {"pam",
     [] {
         return ObRef<KVClientBackend>(
             KVPAMService::make(KVPAMService::configurationFromEnvironment()));
     }},
    {"bus", [] { return ObRef<KVClientBackend>(KVBusService::make()); }},
    {"none", [] { return ObRef<KVClientBackend>(); }},
};
constexpr const NamedBackend* simulated = &backends[0];

// The row TESSIVA_SERVICE names, in any case; null for a name no row has,
// which is said once at error level whatever the logging switch says, as
// the process then runs without a service.
const NamedBackend* readSelection() {
    const char* value = std::getenv("TESSIVA_SERVICE");
    if (value == nullptr || *value == '\0')
        return simulated;
    for (const NamedBackend& backend : backends) {
        if (equalsIgnoringCase(value, backend.name))
            return &backend;
    }
    ObLogWrite(
        ObLogPriority::Error,
        ObFormat("KVClient: unknown TESSIVA_SERVICE '%s'; no authentication service is used", value)
            ->text());
    return nullptr;
}

const NamedBackend* selection() {
    static const NamedBackend* const selected = readSelection();
    return selected;
}
} // namespace

ObRef<KVClientBackend> environmentBackend() {
    const NamedBackend* selected = selection();
    return selected != nullptr ? selected->make() : nullptr;
}

bool environmentNamesNoService() {
    const NamedBackend* selected = selection();
    return selected == nullptr || selected->name == "none";
}
} // namespace tessiva::detail
