// Many threads evaluating at once, through one credential reference and
// through one each: against the fake service replying from threads of its
// own, and against the simulated service.
#include "credential/ReferenceTesting.h"
#include "support/RunTogether.h"
#include "tessiva/VRConstants.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/os/ObSemaphore.h"

#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <map>
#include <string>

namespace tessiva::test {
namespace {

constexpr int threadCount = 8;
constexpr int evaluationsPerThread = 12;

ObRef<ObDictionary> timeoutHints(int seconds) {
    return ObDictionary::make({{VRHintTimeout, ObNumber::make(seconds)}});
}

// Each thread evaluates with its own hints, half synchronously and half
// asynchronously, policies and ACLs alternating; the service must receive
// every request with the options of the thread that sent it.
void evaluateFromEveryThread(const std::function<ObRef<VRCredentialReference>(int)>& referenceFor,
                             FakeService& service) {
    std::latch asyncReplies(threadCount * evaluationsPerThread / 2);
    std::atomic<int> failures{0};
    const VRErrorReply countReply = [&](ObRef<ObError> error) {
        if (error)
            ++failures;
        asyncReplies.count_down();
    };
    runTogether(threadCount, [&](int t) {
        const ObRef<VRCredentialReference> reference = referenceFor(t);
        const ObRef<ObDictionary> hints = timeoutHints(t);
        for (int i = 0; i < evaluationsPerThread; ++i) {
            switch (i % 4) {
            case 0:
                EXPECT_TRUE(reference->evaluatePolicy_hints_error(VRPolicyTirsa, hints, nullptr));
                break;
            case 1:
                EXPECT_TRUE(
                    reference->evaluateACL_operation_hints_error(hints, nullptr, hints, nullptr));
                break;
            case 2:
                reference->evaluatePolicy_hints_reply(VRPolicyTirsa, hints, countReply);
                break;
            case 3:
                reference->evaluateACL_operation_hints_reply(hints, nullptr, hints, countReply);
                break;
            }
        }
    });
    asyncReplies.wait();
    service.joinReplyThreads();
    EXPECT_EQ(failures.load(), 0);

    std::map<std::string, int> policyOptions, aclOptions;
    for (const FakePolicyRequest& request : service.policyRequests())
        ++policyOptions[printed(request.options)];
    for (const FakeACLRequest& request : service.aclRequests()) {
        EXPECT_EQ(printed(request.acl).substr(0, 10), "{Timeout =");
        ++aclOptions[printed(request.options)];
    }
    ASSERT_EQ(policyOptions.size(), std::size_t{threadCount});
    ASSERT_EQ(aclOptions.size(), std::size_t{threadCount});
    for (int t = 0; t < threadCount; ++t) {
        const std::string timeout = "1001 = " + std::to_string(t);
        EXPECT_EQ(policyOptions["{" + timeout + "; 1009 = 0}"], evaluationsPerThread / 2);
        EXPECT_EQ(aclOptions["{" + timeout + "}"], evaluationsPerThread / 2);
    }
}

class FakeServiceEvaluationStress : public ::testing::Test {
protected:
    void SetUp() override {
        service->setReplyMode(FakeReplyMode::OwnThread);
        service->answerEvaluations(
            ObDictionary::make({{ObNumber::make(3), ObNumber::makeBool(true)}}), nullptr);
    }

    ObRef<FakeService> service = FakeService::make();
    KVScopedClientBackend installed{service};
};

TEST_F(FakeServiceEvaluationStress, ManyThreadsThroughOneReference) {
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    ASSERT_TRUE(reference->setupNewReferenceWithError(nullptr));
    evaluateFromEveryThread([&](int) { return reference; }, *service);
    EXPECT_EQ(printed(reference->resultForTag(VRResultTagUsedPasscode)), "1");
}

TEST_F(FakeServiceEvaluationStress, ManyThreadsThroughOneReferenceEach) {
    evaluateFromEveryThread(
        [&](int t) {
            // Set up concurrently, each on a handle of its own.
            const std::string name = "handle " + std::to_string(t);
            const ObRef<ObData> handle = ObData::make(name.data(), name.size());
            const ObRef<VRCredentialReference> reference = VRCredReference::make();
            EXPECT_TRUE(reference->setupWithCredentialHandle_error(handle, nullptr));
            EXPECT_TRUE(reference->credentialHandle()->isEqual(handle));
            return reference;
        },
        *service);
    EXPECT_EQ(service->clientRequests().size(), std::size_t{threadCount});
}

// Answers every passcode prompt with the right passcode, from inside the
// event call, on the simulated service's evaluation thread.
class PasscodeDelegate final : public VRUIDelegate {
public:
    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        EXPECT_TRUE(event->isEqual(VREventPasscode));
        const ObRef<ObNumber> active = ob_cast<ObNumber>(params->objectForKey(VREventParamActive));
        if (active && active->boolValue())
            reply(ObDictionary::make({{VREventConsentResponse, ObString::make("1234")}}), nullptr);
    }
};

ObRef<VRCredentialReference> setUpWithDelegate() {
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    ObSemaphore done;
    reference->setupWithCredentialHandle_uiDelegate_reply(nullptr, ObMake<PasscodeDelegate>(),
                                                          [&](ObRef<ObError> error) {
                                                              EXPECT_EQ(error, nullptr);
                                                              done.signal();
                                                          });
    done.wait();
    return reference;
}

constexpr int simulatedThreadCount = 4;
constexpr int simulatedEvaluationsPerThread = 4;

class SimulatedServiceEvaluationStress : public ::testing::Test {
protected:
    ObRef<KVSimulatedService> service = KVSimulatedService::make();
    KVScopedClientBackend installed{service};
};

TEST_F(SimulatedServiceEvaluationStress, ManyThreadsThroughOneReference) {
    // One context runs one evaluation at a time: the others are refused with
    // the VR code of "evaluation in progress", and at least one succeeds.
    const ObRef<VRCredentialReference> reference = setUpWithDelegate();
    std::atomic<int> succeeded{0}, refused{0};
    runTogether(simulatedThreadCount, [&](int) {
        for (int i = 0; i < simulatedEvaluationsPerThread; ++i) {
            ObRef<ObError> error;
            if (reference->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, nullptr,
                                                      &error))
                ++succeeded;
            else if (error->domain()->isEqual(VRErrorDomain) && error->code() == -1006)
                ++refused;
            else
                ADD_FAILURE() << printed(error);
        }
    });
    EXPECT_GE(succeeded.load(), 1);
    EXPECT_EQ(succeeded + refused, simulatedThreadCount * simulatedEvaluationsPerThread);
}

TEST_F(SimulatedServiceEvaluationStress, ManyThreadsThroughOneReferenceEach) {
    runTogether(simulatedThreadCount, [&](int) {
        const ObRef<VRCredentialReference> reference = setUpWithDelegate();
        for (int i = 0; i < simulatedEvaluationsPerThread; ++i) {
            ObRef<ObError> error;
            EXPECT_TRUE(reference->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated,
                                                              nullptr, &error))
                << printed(error);
            EXPECT_EQ(printed(reference->resultForTag(VRResultTagUsedPasscode)), "1");
            EXPECT_EQ(printed(reference->resultForTag(VRResultTagUsedRidgeScan)), "0");
        }
    });
}

} // namespace
} // namespace tessiva::test
