// SPDX-License-Identifier: MIT
// State that many threads share, bounded by counts: credential references
// evaluating for many threads while their replies replace what others read,
// and a semaphore's short life.
#include "credential/ReferenceTesting.h"
#include "support/RunTogether.h"
#include "support/TestSupport.h"
#include "tessiva/VRConstants.h"
#include "tessiva/os/ObSemaphore.h"
#include "translation/TranslationTesting.h"

#include <atomic>
#include <optional>

namespace tessiva::test {
namespace {

// Eight threads evaluate policies and ACLs with hints of their own, half
// through one shared reference and half through one each sets up. Meanwhile
// a writer sets the shared reference up again and again, and the service
// answers with two clients and two results in turn, one evaluation in three
// failing; readers look at what those replies replace: the handle, the
// client's creator and the kept result. Replies come from service threads.
TEST(SharedStateStress, EvaluationsSetUpsAndReadsOnManyThreads) {
    const ObRef<FakeService> service = FakeService::make();
    const KVScopedClientBackend installed(service);
    service->setReplyMode(FakeReplyMode::OwnThread);
    service->setCreatorDisplayName(str("creator"));
    const ObRef<ObData> handles[] = {ObData::make("first", 5), ObData::make("second", 6)};
    const ObRef<ObString> results[] = {str("first"), str("second")};
    service->answerClientRequests(service->makeClient(handles[0]), nullptr);
    const ObRef<VRCredentialReference> shared = VRCredentialReference::make();
    ASSERT_TRUE(shared->setupNewReferenceWithError(nullptr));
    const ObRef<CapturingTraceSink> trace = ObMake<CapturingTraceSink>();
    const ObScopedTraceSink traceInstalled(trace);
    std::atomic<std::size_t> absent{0};
    runTogether(13, [&](int t) {
        if (t < 8) {
            const ObRef<VRCredentialReference> reference = t % 2 ? VRCredReference::make() : shared;
            EXPECT_TRUE(reference == shared || reference->setupNewReferenceWithError(nullptr));
            const ObRef<ObDictionary> hints = dict({{VRHintTimeout, num(t)}});
            for (int i = 0; i < 8; ++i) {
                reference->evaluatePolicy_hints_error(VRPolicyTirsa, hints, nullptr);
                reference->evaluateACL_operation_hints_error(hints, nullptr, hints, nullptr);
            }
        }
        for (std::size_t i = 0; t == 8 && i < 60; ++i) {
            const ObRef<ObError> failure = i % 3 == 2 ? serviceUnavailable() : nullptr;
            service->answerClientRequests(service->makeClient(handles[i % 2]), nullptr);
            service->answerEvaluations(failure ? nullptr : dict({{num(3), results[i % 2]}}),
                                       failure);
            EXPECT_TRUE(shared->setupNewReferenceWithError(nullptr));
        }
        for (int i = 0; t > 8 && i < 1500; ++i) {
            const ObRef<ObData> handle = shared->credentialHandle();
            EXPECT_TRUE(handle == handles[0] || handle == handles[1]);
            EXPECT_EQ(shared->creatorDisplayName()->text(), "creator");
            const ObRef<ObObject> value = shared->resultForTag(VRResultTagUsedPasscode);
            EXPECT_TRUE(!value || value == results[0] || value == results[1]);
            absent += !value;
        }
    });
    // One trace message for every absent result the synchronous form returned.
    EXPECT_EQ(trace->messages().size(), absent.load());
    // Every request reached the service, each ACL request with the options
    // translated from its own thread's hints, which are also its ACL.
    EXPECT_EQ(service->policyRequests().size(), 64u);
    EXPECT_EQ(service->aclRequests().size(), 64u);
    for (const FakeACLRequest& request : service->aclRequests())
        EXPECT_EQ(printed(request.options), "{1001" + printed(request.acl).substr(8));
}

// A semaphore destroyed as soon as its wait returns, as the synchronous forms
// do, while the signalling thread may still be inside signal().
TEST(SemaphoreStress, DestroyedAsSoonAsItsWaitReturns) {
    for (int round = 0; round < 200; ++round) {
        bool signalled = false;
        std::optional<ObSemaphore> semaphore(std::in_place, 0);
        const std::jthread signaller([&] {
            signalled = true;
            semaphore->signal();
        });
        semaphore->wait();
        semaphore.reset();
        EXPECT_TRUE(signalled);
    }
}

} // namespace
} // namespace tessiva::test
