// SPDX-License-Identifier: MIT
// VRCredReference: the older name of the credential reference.
#include "tessiva/VRCredentialReference.h"

VRCredReference::~VRCredReference() = default;

ObRef<VRCredReference> VRCredReference::make() {
    return ObRef<VRCredReference>::adopt(new VRCredReference());
}

const char* VRCredReference::className() const noexcept {
    return "VRCredReference";
}
