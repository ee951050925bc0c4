// The PAM service: its configuration, and clients from the shared machinery.
#include "PAMService.h"

#include "PamSupport.h"
#include "tessiva/object/ObMake.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace tessiva::detail {
namespace {
// The user the process runs as (its real user, as a setuid program is run
// on someone's behalf); empty when the system has no name for it.
std::string processUser() {
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
        return {};
    return found->pw_name;
}

KVPAMConfiguration withUser(KVPAMConfiguration configuration) {
    if (configuration.user.empty())
        configuration.user = processUser();
    return configuration;
}

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
    tessiva::detail::overrideFrom(configuration.biometricService, "TESSIVA_PAM_BIOMETRIC_SERVICE");
    return configuration;
}

KVPAMService::~KVPAMService() = default;
