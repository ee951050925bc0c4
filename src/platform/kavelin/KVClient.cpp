// SPDX-License-Identifier: MIT
// Clients come from the installed backend, else from the one the environment
// names (the simulated service by default); with neither, the request fails
// at once.
#include "tessiva/kavelin/KVClient.h"

#include "BackendRegistry.h"
#include "platform/brindle/KVErrors.h"
#include "platform/os/Seam.h"
#include "tessiva/brindle/KVErrorHelper.h"

namespace {
tessiva::detail::Seam<KVClientBackend>& backendSeam() {
    static auto* seam =
        new tessiva::detail::Seam<KVClientBackend>(tessiva::detail::environmentBackend());
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
    reply(nullptr, tessiva::detail::kvError(KVErrorServiceUnavailable, &noServiceMessage));
}

ObRef<KVClientBackend> KVSetClientBackend(const ObRef<KVClientBackend>& backend) {
    return backendSeam().install(backend);
}

KVClient::~KVClient() = default;

KVClientBackend::~KVClientBackend() = default;
