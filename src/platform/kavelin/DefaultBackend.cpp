// The table of backends that TESSIVA_SERVICE may name. A new backend adds
// one row.
#include "DefaultBackend.h"

#include "tessiva/kavelin/KVPAMService.h"
#include "tessiva/kavelin/KVSimulatedService.h"

#include <cstdlib>
#include <string_view>

namespace tessiva::detail {
namespace {
struct NamedBackend {
    std::string_view name;
    ObRef<KVClientBackend> (*make)();
};

constexpr std::string_view simulatedName = "simulated";

constexpr NamedBackend backends[] = {
    {simulatedName, [] { return ObRef<KVClientBackend>(KVSimulatedService::defaultService()); }},
    {"pam",
     [] {
         return ObRef<KVClientBackend>(
             KVPAMService::make(KVPAMService::configurationFromEnvironment()));
     }},
    {"none", [] { return ObRef<KVClientBackend>(); }},
};

std::string_view selectedName() {
    const char* value = std::getenv("TESSIVA_SERVICE");
    return value == nullptr || *value == '\0' ? simulatedName : std::string_view(value);
}
} // namespace

ObRef<KVClientBackend> environmentBackend() {
    const std::string_view name = selectedName();
    for (const NamedBackend& backend : backends) {
        if (backend.name == name)
            return backend.make();
    }
    return nullptr;
}

bool environmentSelectsSimulatedService() {
    static const bool selected = selectedName() == simulatedName;
    return selected;
}
} // namespace tessiva::detail
