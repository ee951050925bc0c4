// SPDX-License-Identifier: MIT
// The service the daemon hosts for each caller, chosen by its --service name.
#pragma once

#include "tessiva/kavelin/KVClient.h"
#include "tessiva/kavelin/KVPAMService.h"

#include <memory>
#include <string>
#include <sys/types.h>

namespace tessiva::daemon {
// The names --service accepts, for the usage text.
inline constexpr char hostedServiceNames[] = "simulated|system|pam";

// The backend that serves each user. The simulated service is one for all
// users; the PAM service is one per user, made on the user's first call with
// the name the system gives the uid, so that PAM judges the caller and never
// the daemon's own user. Used on the daemon's loop thread only.
class HostedServices {
public:
    virtual ~HostedServices() = default;
    // The backend for the user with that uid; absent, with the error to
    // reply, when that user cannot be served.
    virtual ObRef<KVClientBackend> forUser(uid_t uid, ObRef<ObError>* error) = 0;
    // The name --service gives it.
    virtual const char* name() const noexcept = 0;
};

struct HostedServiceOptions {
    // Empty: the default for the bus, pam on the machine's system bus and
    // simulated elsewhere.
    std::string name;
    // Service names only: the user is always the caller's.
    KVPAMConfiguration pam;
};

// The services of that name; absent, with the reason, when there are none.
// On the machine's system bus the simulated service is refused: its one
// passcode would authenticate every user of the machine.
std::unique_ptr<HostedServices> hostedServicesNamed(const HostedServiceOptions& options,
                                                    bool systemBus, std::string& problem);
} // namespace tessiva::daemon
