// SPDX-License-Identifier: MIT
// KVBusService in a build without D-Bus support: the same class, which
// refuses every set-up, so the exported interface does not depend on the build.
#include "platform/brindle/KVErrors.h"
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/object/ObMake.h"

namespace {
OB_CONSTANT_STRING(noBusMessage, "Tessiva was built without D-Bus support.");

class NoBusService final : public KVBusService {
public:
    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>&,
                                                        const ObRef<KVUIDelegate>&,
                                                        KVClientReply reply) override {
        reply(nullptr, tessiva::detail::kvError(KVErrorServiceUnavailable, &noBusMessage));
    }
    const char* className() const noexcept override { return "KVBusService"; }
};
} // namespace

ObRef<KVBusService> KVBusService::make(const ObRef<ObString>&) {
    return ObMake<NoBusService>();
}

KVBusService::~KVBusService() = default;
