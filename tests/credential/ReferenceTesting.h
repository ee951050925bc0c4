// SPDX-License-Identifier: MIT
// Shared by the suites that drive a credential reference: a fixture with a
// fake service installed, and the small helpers their checks use.
#pragma once

#include "support/FakeService.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/brindle/KVLogger.h"
#include "tessiva/object/Ob.h"

#include <gmock/gmock.h>

namespace tessiva::test {

inline std::string printed(const ObRef<ObObject>& object) {
    return std::string(ObFormat("%@", object)->text());
}

// A service error; its code translates to the VR code -6.
inline ObRef<ObError> serviceUnavailable() {
    return ObError::make(KVErrorDomain, KVErrorServiceUnavailable,
                         ObDictionary::make({{ObLocalizedDescriptionKey, ObString::make("gone")}}));
}

class ReferenceTest : public ::testing::Test {
protected:
    // Both log switches end off, as every test starts.
    ~ReferenceTest() override {
        KVLogger::sharedInstance()->setLoggingEnabled(false);
        KVLogger::sharedInstance()->setRedactingSecrets(false);
    }
    VRErrorReply recordReply() {
        return [this](ObRef<ObError> error) { replies.push_back(std::move(error)); };
    }

    ObRef<FakeService> service = FakeService::make();
    KVScopedClientBackend installed{service};
    ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    const ObRef<ObData> handle = ObData::make("\x01\x02", 2);
    const ObRef<ObObject> acl = ObString::make("acl"), operation = ObData::make("op", 2);
    std::vector<ObRef<ObError>> replies;
};

} // namespace tessiva::test
