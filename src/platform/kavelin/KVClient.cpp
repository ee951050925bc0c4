// Clients come from the installed backend, else from the simulated service;
// with neither, the request fails at once.
#include "tessiva/kavelin/KVClient.h"

#include "../os/Seam.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/kavelin/KVSimulatedService.h"

#include <cstdlib>
#include <string_view>

namespace {
// The backend used while none is installed, chosen once by TESSIVA_SERVICE:
// "bus" the daemon, otherwise the simulated service (absent for "none").
ObRef<KVClientBackend> defaultBackend() {
    const char* name = std::getenv("TESSIVA_SERVICE");
    if (name != nullptr && std::string_view(name) == "bus")
        return KVBusService::make();
    return KVSimulatedService::defaultService();
}

tessiva::detail::Seam<KVClientBackend>& backendSeam() {
    static auto* seam = new tessiva::detail::Seam<KVClientBackend>(defaultBackend());
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
