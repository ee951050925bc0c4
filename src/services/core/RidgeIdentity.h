// SPDX-License-Identifier: MIT
// The identity of a matching finger: HMAC-SHA-256 of the user's name and the
// finger's name under a key the service keeps. It is the same for one
// enrolled finger of one user whenever the same key is used, and tells a
// caller nothing else: neither the user, nor the finger, nor whether two
// users share a finger name.
#pragma once

#include "tessiva/object/ObData.h"

#include <string>

namespace tessiva::detail {
ObRef<ObData> ridgescanIdentity(const std::string& key, const std::string& user,
                                const std::string& finger);

// 32 fresh random bytes: the key of a service that keeps none (the
// simulated one's, for its lifetime).
std::string freshIdentityKey();

// The machine's key for its user: in process, the user's
// $XDG_STATE_HOME/tessiva/ridgescan-identity.key (~/.local/state when unset);
// in a daemon, $STATE_DIRECTORY/ridgescan-identity.key as its unit sets it.
// Made at first use with mode 0600; when it can be neither read nor made,
// a key for this process's lifetime, so identities then last only as long.
std::string machineIdentityKey();
} // namespace tessiva::detail
