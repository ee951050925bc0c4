// Clients come from the installed backend, else from the simulated service;
// with neither, the request fails at once.
#include "tessiva/kavelin/KVClient.h"

#include "../os/EnvironmentFlag.h"
#include "../os/Seam.h"
#include "ServiceChoice.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/os/ObLog.h"

#include <cstdlib>
#include <string_view>

namespace tessiva::detail {
namespace {
// Every value TESSIVA_SERVICE knows; a new service adds its name here.
constexpr struct {
    std::string_view name;
    ServiceChoice choice;
} knownServices[] = {
    {"simulated", ServiceChoice::Simulated},
    {"none", ServiceChoice::None},
};

ServiceChoice readServiceChoice() {
    const char* value = std::getenv("TESSIVA_SERVICE");
    if (value == nullptr || *value == '\0')
        return ServiceChoice::Simulated;
    for (const auto& known : knownServices) {
        if (equalsIgnoringCase(value, known.name))
            return known.choice;
    }
    ObLogWrite(
        ObLogPriority::Error,
        ObFormat("KVClient: unknown TESSIVA_SERVICE '%s'; using the simulated service", value)
            ->text());
    return ServiceChoice::Simulated;
}
} // namespace

ServiceChoice configuredService() {
    static const ServiceChoice choice = readServiceChoice();
    return choice;
}
} // namespace tessiva::detail

namespace {
tessiva::detail::Seam<KVClientBackend>& backendSeam() {
    static auto* seam =
        new tessiva::detail::Seam<KVClientBackend>(KVSimulatedService::defaultService());
    return *seam;
}

OB_CONSTANT_STRING(noServiceMessage, "No authentication service is available.");
} // namespace

void KVClient::clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                              const ObRef<KVUIDelegate>& uiDelegate,
                                                              KVClientReply reply) {
    if (ObRef<KVClientBackend> backend = backendSeam().current()) {
        backend->clientWithExternalizedContext_uiDelegate_reply(context, uiDelegate,
                                                                std::move(reply));
        return;
    }
    reply(nullptr,
          ObError::make(KVErrorDomain, KVErrorServiceUnavailable,
                        ObDictionary::make({{ObLocalizedDescriptionKey, &noServiceMessage}})));
}

ObRef<KVClientBackend> KVSetClientBackend(const ObRef<KVClientBackend>& backend) {
    return backendSeam().install(backend);
}

KVClient::~KVClient() = default;

KVClientBackend::~KVClientBackend() = default;
