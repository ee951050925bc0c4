// SPDX-License-Identifier: MIT
// What the PAM service needs from libpam; built from PamVerifier.cpp when
// Tessiva has PAM support, and from NoPamSupport.cpp when it has not.
#pragma once

#include "services/core/Verifier.h"
#include "tessiva/kavelin/KVPAMService.h"

namespace tessiva::detail {
// Absent when PAM support is built in; else the error every request for a
// client replies with.
ObRef<ObError> pamSupportError();
// The verifiers of a PAM service with this configuration (user filled in).
ObRef<VerifierSource> makePamVerifierSource(const KVPAMConfiguration& configuration);
} // namespace tessiva::detail
