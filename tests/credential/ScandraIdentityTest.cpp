// SPDX-License-Identifier: MIT
// Alone in its executable: option 1009 reflects a class look-up made once per
// process, and here the class is registered before the first policy
// evaluation.
#include "credential/ReferenceTesting.h"
#include "tessiva/object/ObClass.h"

namespace tessiva::test {
namespace {

TEST_F(ReferenceTest, AClassRegisteredBeforeTheFirstPolicyEvaluationSetsOption1009) {
    ASSERT_TRUE(reference->setupNewReferenceWithError(nullptr));
    ASSERT_TRUE(ObRegisterClass("ScandraIdentity"));
    ASSERT_TRUE(reference->evaluatePolicy_hints_error(VRPolicyTirsa, nullptr, nullptr));
    EXPECT_EQ(printed(service->policyRequests().at(0).options), "{1009 = 1}");
}

} // namespace
} // namespace tessiva::test
