// SPDX-License-Identifier: MIT
// VRCredentialReference: construction, properties and invalidation.
#include "tessiva/VRCredentialReference.h"

#include "credential/ReferenceLog.h"

using tessiva::detail::logReferenceEntry;
using tessiva::detail::OperationLogName;

namespace {
constexpr OperationLogName invalidateLog{"-[VRCredentialReference invalidate]"};
} // namespace

VRCredentialReference::VRCredentialReference() noexcept = default;

// The fields go in reverse order of declaration; the client is only released,
// never invalidated, so the context outlives the reference in the service.
VRCredentialReference::~VRCredentialReference() = default;

ObRef<VRCredentialReference> VRCredentialReference::make() {
    return ObRef<VRCredentialReference>::adopt(new VRCredentialReference());
}

ObRef<ObData> VRCredentialReference::credentialHandle() const {
    return _credentialHandle.load();
}

ObRef<ObString> VRCredentialReference::creatorDisplayName() const {
    const ObRef<KVClient> client = _client.load();
    return client ? client->creatorDisplayName() : nullptr;
}

void VRCredentialReference::invalidate() {
    logReferenceEntry(invalidateLog, "");
    if (const ObRef<KVClient> client = _client.load())
        client->invalidate();
}

const char* VRCredentialReference::className() const noexcept {
    return "VRCredentialReference";
}
