// Shared by the credential reference suites: a fixture with a fake service
// installed, and the small helpers their checks use.
#pragma once

#include "support/FakeService.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/Ob.h"

#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <vector>

namespace tessiva::test {

inline std::string printed(const ObRef<ObObject>& object) {
    return std::string(ObFormat("%@", object)->text());
}

// A service error; its code translates to the VR code -6.
inline ObRef<ObError> serviceUnavailable() {
    return ObError::make(KVErrorDomain, KVErrorServiceUnavailable,
                         ObDictionary::make({{ObLocalizedDescriptionKey, ObString::make("gone")}}));
}

// Option 1009 as a policy evaluation sent it: a boolean number.
inline ::testing::AssertionResult carriesScandraIdentity(const ObRef<ObDictionary>& options,
                                                         bool expected) {
    const ObRef<ObNumber> option = ob_cast<ObNumber>(options->objectForKey(ObNumber::make(1009)));
    if (!option || !option->isBoolean() || option->boolValue() != expected)
        return ::testing::AssertionFailure() << "options " << printed(options);
    return ::testing::AssertionSuccess();
}

// A call that must raise, on the calling thread, a KVException with this message.
struct RaisingCall {
    const char* label;
    std::function<void()> call;
    const char* message;
};

inline void expectEachRaises(std::initializer_list<RaisingCall> cases) {
    for (const RaisingCall& c : cases) {
        SCOPED_TRACE(c.label);
        try {
            c.call();
            ADD_FAILURE() << "no exception";
        } catch (const KVException& exception) {
            EXPECT_STREQ(exception.what(), c.message);
        }
    }
}

template <class Reference> class ReferenceTest : public ::testing::Test {
protected:
    VRErrorReply recordReply() {
        return [this](ObRef<ObError> error) { replies.push_back(std::move(error)); };
    }

    ObRef<FakeService> service = FakeService::make();
    KVScopedClientBackend installed{service};
    ObRef<Reference> reference = Reference::make();
    const ObRef<ObData> handle = ObData::make("\x01\x02", 2);
    std::vector<ObRef<ObError>> replies;
};

// The same fixture with the reference set up against the fake service.
template <class Reference> class SetUpReferenceTest : public ReferenceTest<Reference> {
protected:
    void SetUp() override { ASSERT_TRUE(this->reference->setupNewReferenceWithError(nullptr)); }
};

using ReferenceKinds = ::testing::Types<VRCredentialReference, VRCredReference>;

} // namespace tessiva::test
