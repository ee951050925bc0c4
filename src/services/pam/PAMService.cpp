// SPDX-License-Identifier: MIT
// The PAM service: its configuration, and clients from the shared machinery.
#include "PAMService.h"

#include "PamSupport.h"
#include "platform/kavelin/BackendRegistry.h"
#include "platform/os/UserName.h"
#include "tessiva/object/ObMake.h"

#include <cstdlib>
#include <unistd.h>

namespace tessiva::detail {
namespace {
KVPAMConfiguration withUser(KVPAMConfiguration configuration) {
    if (configuration.user.empty())
        // The real user, as a setuid program is run on someone's behalf.
        configuration.user = userName(getuid());
    return configuration;
}

ObRef<KVClientBackend> systemService() {
    return KVPAMService::make(KVPAMService::configurationFromEnvironment());
}

// "pam" is the system service's older name.
const BackendRegistration registration{"system", systemService};
const BackendRegistration pamRegistration{"pam", systemService};

void overrideFrom(std::string& setting, const char* variable) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0')
        setting = value;
}
} // namespace

PAMService::PAMService(KVPAMConfiguration configuration)
    : configuration_(withUser(std::move(configuration))),
      core_(ObMake<ServiceCore>(makePamVerifierSource(configuration_), "PAMClient")) {}

void PAMService::clientWithExternalizedContext_uiDelegate_reply(
    const ObRef<ObData>& context, const ObRef<KVUIDelegate>& uiDelegate, KVClientReply reply) {
    if (ObRef<ObError> unsupported = pamSupportError()) {
        reply(nullptr, unsupported);
        return;
    }
    core_->clientWithExternalizedContext_uiDelegate_reply(context, uiDelegate, std::move(reply));
}

const char* PAMService::className() const noexcept {
    return "KVPAMService";
}
} // namespace tessiva::detail

ObRef<KVPAMService> KVPAMService::make(KVPAMConfiguration configuration) {
    return ObMake<tessiva::detail::PAMService>(std::move(configuration));
}

KVPAMConfiguration KVPAMService::configurationFromEnvironment() {
    KVPAMConfiguration configuration;
    tessiva::detail::overrideFrom(configuration.service, "TESSIVA_PAM_SERVICE");
    tessiva::detail::overrideFrom(configuration.user, "TESSIVA_PAM_USER");
    return configuration;
}

KVPAMService::~KVPAMService() = default;
