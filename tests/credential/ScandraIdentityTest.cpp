// Alone in its executable: option 1009 reflects a class look-up made once per
// process, and here the class is registered before the first policy
// evaluation.
#include "credential/ReferenceTesting.h"
#include "tessiva/VRConstants.h"
#include "tessiva/object/ObClass.h"

#include <gtest/gtest.h>
#include <latch>
#include <thread>
#include <vector>

namespace {
using namespace tessiva::test;

TEST(ScandraIdentity, ARegisteredClassSetsOption1009) {
    const ObRef<FakeService> service = FakeService::make();
    const KVScopedClientBackend installed(service);
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    ASSERT_TRUE(reference->setupNewReferenceWithError(nullptr));
    // An ACL evaluation neither looks the class up nor settles the flag.
    ASSERT_TRUE(reference->evaluateACL_operation_hints_error(nullptr, nullptr, nullptr, nullptr));
    ASSERT_TRUE(ObRegisterClass("ScandraIdentity"));

    // Several first policy evaluations at once all see the class.
    constexpr int threadCount = 4;
    std::latch start(threadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            reference->evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, [](ObRef<ObError>) {});
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    const auto requests = service->policyRequests();
    ASSERT_EQ(requests.size(), std::size_t{threadCount});
    for (const auto& request : requests) {
        EXPECT_EQ(printed(request.options), "{1009 = 1}");
        EXPECT_TRUE(carriesScandraIdentity(request.options, true));
    }
}
} // namespace
