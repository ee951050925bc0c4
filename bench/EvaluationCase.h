// SPDX-License-Identifier: MIT
// The pieces of the evaluation pair shared by the time and instruction
// benchmarks: the service's reply, the direct call a caller would make
// without the library, and a reference set up against the installed backend.
#pragma once

#include "TypicalHints.h"
#include "WorkerService.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/kavelin/KVClient.h"

namespace tessiva::bench {

// The policy number of VRPolicyDeviceOwnerAuthenticated ("" in this build).
constexpr ObInteger emptyPolicyNumber = 1007;

// What a successful evaluation replies: a passcode was used.
ObRef<ObDictionary> successResult();

// The options a caller would send without the library: the hints by hand,
// plus the option the library adds (the identity class is absent here).
ObRef<ObDictionary> handBuiltRequestOptions(const HintValues& values);

// The same request sent to the client directly and waited for by hand; true
// when it succeeded.
bool evaluateDirectly(KVClient& client, const HintValues& values);

// Whether the reference's evaluation with the hints and the direct call put
// the same request before the client; a pair that does not compares
// different work.
bool sendsTheSameRequest(WorkerClient& client, VRCredentialReference& reference,
                         const ObRef<ObDictionary>& hints, const HintValues& values);

// A reference set up against the installed backend.
ObRef<VRCredentialReference> setUpReference();

} // namespace tessiva::bench
