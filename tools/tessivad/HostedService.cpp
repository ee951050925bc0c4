// SPDX-License-Identifier: MIT
// The one place where a service name becomes the backends for the callers.
#include "HostedService.h"

#include "platform/brindle/KVErrors.h"
#include "platform/os/UserName.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVSimulatedService.h"

#include <unordered_map>
#include <vector>

namespace tessiva::daemon {
namespace {
class SharedService final : public HostedServices {
public:
    explicit SharedService(ObRef<KVClientBackend> service) : service_(std::move(service)) {}
    ObRef<KVClientBackend> forUser(uid_t, ObRef<ObError>*) override { return service_; }
    const char* name() const noexcept override { return "simulated"; }

private:
    const ObRef<KVClientBackend> service_;
};

// Kept for the daemon's lifetime: a user's contexts live in its service, and
// the services are as many as the system's users who called.
class PAMServicePerUser final : public HostedServices {
public:
    explicit PAMServicePerUser(KVPAMConfiguration configuration)
        : configuration_(std::move(configuration)) {}
    ObRef<KVClientBackend> forUser(uid_t uid, ObRef<ObError>* error) override {
        if (auto found = services_.find(uid); found != services_.end())
            return found->second;
        KVPAMConfiguration configuration = configuration_;
        configuration.user = detail::userName(uid);
        if (configuration.user.empty()) {
            *error = detail::kvError(KVErrorServiceUnavailable,
                                     "The caller's user (uid " + std::to_string(uid) +
                                         ") has no name on this system.");
            return nullptr;
        }
        ObRef<KVClientBackend> service = KVPAMService::make(std::move(configuration));
        services_.emplace(uid, service);
        return service;
    }
    const char* name() const noexcept override { return "pam"; }

private:
    const KVPAMConfiguration configuration_;
    std::unordered_map<uid_t, ObRef<KVClientBackend>> services_;
};
} // namespace

std::unique_ptr<HostedServices> hostedServicesNamed(const HostedServiceOptions& options,
                                                    bool systemBus, std::string& problem) {
    const std::string name = !options.name.empty() ? options.name
                             : systemBus           ? "system"
                                                   : "simulated";
    if (name == "simulated") {
        if (systemBus) {
            problem = "the simulated service cannot be hosted on the system bus: its one "
                      "passcode would authenticate every user";
            return nullptr;
        }
        return std::make_unique<SharedService>(KVSimulatedService::make());
    }
    if (name == "system" || name == "pam") {
        if (!KVPAMService::isSupported()) {
            problem = "PAM support is not built into Tessiva";
            return nullptr;
        }
        return std::make_unique<PAMServicePerUser>(options.pam);
    }
    problem = "unknown service '" + name + "' (expected " + hostedServiceNames + ")";
    return nullptr;
}
} // namespace tessiva::daemon
