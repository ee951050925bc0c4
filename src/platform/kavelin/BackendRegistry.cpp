// SPDX-License-Identifier: MIT
// The table of backends that TESSIVA_SERVICE may name, filled by the
// backends' registrations while the library loads and read on first use.
#include "BackendRegistry.h"

#include "platform/os/EnvironmentFlag.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/os/ObLog.h"

#include <cstdlib>
#include <vector>

namespace tessiva::detail {
namespace {
struct NamedBackend {
    std::string_view name;
    BackendFactory make;
};

constexpr std::string_view defaultName = "simulated";
constexpr std::string_view noServiceName = "none";

// Built on first use, as registrations run during static initialisation in
// whatever order the linker chose; never destroyed, like the backend seam.
std::vector<NamedBackend>& table() {
    static auto* backends = new std::vector<NamedBackend>{{noServiceName, nullptr}};
    return *backends;
}

// The row TESSIVA_SERVICE names; null for a name no row has, which is said
// once at error level whatever the logging switch says, as the process then
// runs without a service.
const NamedBackend* readSelection() {
    const char* value = std::getenv("TESSIVA_SERVICE");
    const std::string_view wanted = value == nullptr || *value == '\0' ? defaultName : value;
    for (const NamedBackend& backend : table()) {
        if (equalsIgnoringCase(wanted, backend.name))
            return &backend;
    }
    ObLogWrite(ObLogPriority::Error,
               ObFormat("KVClient: unknown TESSIVA_SERVICE '%s'; no authentication service is used",
                        wanted.data())
                   ->text());
    return nullptr;
}

const NamedBackend* selection() {
    static const NamedBackend* const selected = readSelection();
    return selected;
}
} // namespace

BackendRegistration::BackendRegistration(std::string_view name, BackendFactory make) noexcept {
    table().push_back({name, make});
}

ObRef<KVClientBackend> environmentBackend() {
    const NamedBackend* selected = selection();
    return selected != nullptr && selected->make != nullptr ? selected->make() : nullptr;
}

bool environmentNamesNoService() {
    const NamedBackend* selected = selection();
    return selected == nullptr || selected->make == nullptr;
}
} // namespace tessiva::detail
