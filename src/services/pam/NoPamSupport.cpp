// SPDX-License-Identifier: MIT
// A build without libpam: the PAM service exists, but every request fails.
#include "PamSupport.h"
#include "services/core/ServiceErrors.h"
#include "tessiva/object/ObMake.h"

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(notBuiltInMessage, "PAM support is not built into Tessiva.");

// Never asked: the service refuses clients before any evaluation.
class NoVerifiers final : public VerifierSource {
public:
    ObRef<Verifier> verifierForPolicy(ObInteger, const Requester&, ObRef<ObError>* error) override {
        *error = pamSupportError();
        return nullptr;
    }
    const char* className() const noexcept override { return "NoVerifiers"; }
};
} // namespace

ObRef<ObError> pamSupportError() {
    return kvError(KVErrorServiceUnavailable, &notBuiltInMessage);
}

ObRef<VerifierSource> makePamVerifierSource(const KVPAMConfiguration&) {
    return ObMake<NoVerifiers>();
}
} // namespace tessiva::detail

bool KVPAMService::isSupported() noexcept {
    return false;
}
