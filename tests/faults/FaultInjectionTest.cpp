// Service faults injected through the fake service: every error code on every
// reply path, replies that come twice or before the request has returned, and
// a delegate that never answers.
#include "credential/ReferenceTesting.h"
#include "tessiva/VRConstants.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/os/ObSemaphore.h"
#include "translation/ExpectedTables.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <latch>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessiva::test {
namespace {

const FakeReplyMode replyModes[] = {FakeReplyMode::AtOnce, FakeReplyMode::OwnThread};

const char* modeName(FakeReplyMode mode) {
    return mode == FakeReplyMode::AtOnce ? "on the caller's thread" : "on a service thread";
}

// Every code of the error table, and codes outside it, which become 0.
std::vector<CodeRow> serviceCodes() {
    std::vector<CodeRow> codes(std::begin(expectedErrorCodes), std::end(expectedErrorCodes));
    for (ObInteger outside : {-8L, -9L, -10L, -1006L, -1010L, 0L, 5L})
        codes.push_back({outside, 0});
    return codes;
}

// What reached the caller on one reply path: the reply's error, and whether
// the path's result said success.
struct Delivered {
    ObRef<ObError> error;
    bool succeeded = false;
};

// Each path makes the fake service answer with `error` and returns what the
// caller received; every path waits for its reply.
struct ReplyPath {
    const char* name;
    std::function<Delivered(FakeService&, const ObRef<ObError>&)> deliver;
};

// A reference set up on a new client, whatever the service last answered.
ObRef<VRCredentialReference> setUpReference(FakeService& service) {
    service.answerClientRequests(service.makeClient(service.newContext()), nullptr);
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    EXPECT_TRUE(reference->setupNewReferenceWithError(nullptr));
    return reference;
}

Delivered throughClientRequest(FakeService& service, const ObRef<ObError>& error,
                               const ObRef<ObString>& request, const ObRef<ObDictionary>& params) {
    service.answerClientActions(error == nullptr, error);
    const ObRef<VRCredentialReference> reference = setUpReference(service);
    // Shared with the reply, which a service replying twice may call again
    // after this has returned.
    struct Rendezvous {
        std::mutex mutex;
        Delivered delivered;
        ObSemaphore replied;
    };
    const auto rendezvous = std::make_shared<Rendezvous>();
    reference->sendClientRequest_params_reply(
        request, params, [rendezvous](ObRef<ObDictionary> result, ObRef<ObError> received) {
            // On success an empty dictionary, on failure none.
            EXPECT_EQ(result == nullptr, received != nullptr);
            {
                std::lock_guard lock(rendezvous->mutex);
                rendezvous->delivered = {std::move(received), result != nullptr};
            }
            rendezvous->replied.signal();
        });
    rendezvous->replied.wait();
    std::lock_guard lock(rendezvous->mutex);
    return rendezvous->delivered;
}

std::vector<ReplyPath> replyPaths() {
    return {
        {"set-up",
         [](FakeService& service, const ObRef<ObError>& error) {
             service.answerClientRequests(error ? nullptr : service.makeClient(nullptr), error);
             Delivered delivered;
             delivered.succeeded =
                 VRCredentialReference::make()->setupNewReferenceWithError(&delivered.error);
             return delivered;
         }},
        {"policy evaluation",
         [](FakeService& service, const ObRef<ObError>& error) {
             service.answerEvaluations(error ? nullptr : ObDictionary::make(), error);
             const ObRef<VRCredentialReference> reference = setUpReference(service);
             Delivered delivered;
             delivered.succeeded =
                 reference->evaluatePolicy_hints_error(VRPolicyTirsa, nullptr, &delivered.error);
             return delivered;
         }},
        {"ACL evaluation",
         [](FakeService& service, const ObRef<ObError>& error) {
             service.answerEvaluations(error ? nullptr : ObDictionary::make(), error);
             const ObRef<VRCredentialReference> reference = setUpReference(service);
             Delivered delivered;
             delivered.succeeded = reference->evaluateACL_operation_hints_error(
                 nullptr, nullptr, nullptr, &delivered.error);
             return delivered;
         }},
        {"password entry",
         [](FakeService& service, const ObRef<ObError>& error) {
             return throughClientRequest(
                 service, error, VRClientRequestEnterPassword,
                 ObDictionary::make({{VRClientRequestParamPassword, ObString::make("1234")}}));
         }},
        {"event failure",
         [](FakeService& service, const ObRef<ObError>& error) {
             return throughClientRequest(
                 service, error, VRClientRequestStopEvents,
                 ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode}}));
         }},
    };
}

class FaultInjection : public ::testing::Test {
protected:
    ObRef<FakeService> service = FakeService::make();
    KVScopedClientBackend installed{service};
};

TEST_F(FaultInjection, EveryServiceCodeOnEveryReplyPathReachesTheCallerTranslated) {
    for (FakeReplyMode mode : replyModes) {
        service->setReplyMode(mode);
        for (const ReplyPath& path : replyPaths()) {
            for (const CodeRow& code : serviceCodes()) {
                SCOPED_TRACE(std::string(path.name) + " " + modeName(mode) + ", service code " +
                             std::to_string(code.serviceCode));
                const ObRef<ObDictionary> userInfo = ObDictionary::make(
                    {{ObLocalizedDescriptionKey, ObString::make("from the service")}});
                const Delivered delivered = path.deliver(
                    *service, ObError::make(KVErrorDomain, code.serviceCode, userInfo));
                ASSERT_NE(delivered.error, nullptr);
                EXPECT_FALSE(delivered.succeeded);
                EXPECT_TRUE(delivered.error->domain()->isEqual(VRErrorDomain));
                EXPECT_EQ(delivered.error->code(), code.vrCode);
                EXPECT_EQ(delivered.error->userInfo(), userInfo);
            }
        }
    }
}

TEST_F(FaultInjection, ErrorsOfOtherDomainsAndSuccessPassUnchangedOnEveryReplyPath) {
    for (FakeReplyMode mode : replyModes) {
        service->setReplyMode(mode);
        for (const ReplyPath& path : replyPaths()) {
            SCOPED_TRACE(std::string(path.name) + " " + modeName(mode));
            for (const ObRef<ObError>& foreign :
                 {ObError::make(ObString::make("Caller"), -1, nullptr),
                  KVLegacyHelper::vrErrorWithCode_andMessage(-4, nullptr)}) {
                const Delivered delivered = path.deliver(*service, foreign);
                EXPECT_EQ(delivered.error, foreign);
                EXPECT_FALSE(delivered.succeeded);
            }
            const Delivered success = path.deliver(*service, nullptr);
            EXPECT_EQ(success.error, nullptr);
            EXPECT_TRUE(success.succeeded);
        }
    }
}

// A service that replies twice: each reply is forwarded, so the caller's
// reply runs twice, and the synchronous forms take either signal and return.
TEST_F(FaultInjection, AServiceReplyingTwiceIsForwardedTwice) {
    service->setDeliveriesPerReply(2);
    const ObRef<ObError> failure = serviceUnavailable();
    for (FakeReplyMode mode : replyModes) {
        SCOPED_TRACE(modeName(mode));
        service->setReplyMode(mode);
        for (const ReplyPath& path : replyPaths()) {
            SCOPED_TRACE(path.name);
            const Delivered failed = path.deliver(*service, failure);
            ASSERT_NE(failed.error, nullptr);
            EXPECT_EQ(failed.error->code(), -6);
            EXPECT_TRUE(path.deliver(*service, nullptr).succeeded);
        }

        service->answerClientRequests(service->makeClient(service->newContext()), nullptr);
        const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
        std::latch setUps(2), evaluations(2), requests(2);
        std::atomic<int> setUpErrors{0};
        reference->setupNewReferenceWithReply([&](ObRef<ObError> error) {
            setUpErrors += error != nullptr;
            setUps.count_down();
        });
        setUps.wait();
        EXPECT_EQ(setUpErrors.load(), 0);
        EXPECT_EQ(reference->credentialHandle(), service->newContext());

        service->answerEvaluations(ObDictionary::make({{ObNumber::make(3), ObString::make("v")}}),
                                   nullptr);
        reference->evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr,
                                              [&](ObRef<ObError>) { evaluations.count_down(); });
        evaluations.wait();
        EXPECT_EQ(printed(reference->resultForTag(VRResultTagUsedPasscode)), "v");

        reference->sendClientRequest_params_reply(VRClientRequestEnterPassword, nullptr,
                                                  [&](ObRef<ObDictionary> result, ObRef<ObError>) {
                                                      EXPECT_EQ(printed(result), "{}");
                                                      requests.count_down();
                                                  });
        requests.wait();
        service->joinReplyThreads();
    }
}

// Answers nothing: keeps every reply, and signals each event.
class SilentDelegate final : public VRUIDelegate {
public:
    void event_params_reply(const ObRef<ObString>&, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        std::lock_guard lock(mutex_);
        const ObRef<ObNumber> active = ob_cast<ObNumber>(params->objectForKey(VREventParamActive));
        if (!active || !active->boolValue())
            return;
        kept_.push_back(std::move(reply));
        prompted.signal();
    }
    std::vector<VRUIReply> kept() {
        std::lock_guard lock(mutex_);
        return kept_;
    }

    ObSemaphore prompted;

private:
    std::mutex mutex_;
    std::vector<VRUIReply> kept_;
};

// With a delegate that never answers, an asynchronous evaluation stays pending
// until the caller stops it, by failing the event or by invalidating; the
// reply then comes once, and an answer given afterwards changes nothing.
TEST(SilentDelegate, AnAsynchronousEvaluationWaitsUntilTheCallerStopsIt) {
    const ObRef<KVSimulatedService> service = KVSimulatedService::make();
    const KVScopedClientBackend installed(service);
    const ObRef<ObError> stopped = ObError::make(ObString::make("Caller"), 42, nullptr);
    struct Stop {
        const char* name;
        std::function<void(VRCredentialReference&)> stop;
        std::string expected;
    };
    const Stop stops[] = {
        {"event failure",
         [&](VRCredentialReference& reference) {
             reference.sendClientRequest_params_reply(
                 VRClientRequestStopEvents,
                 ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode},
                                     {VRClientRequestParamError, stopped}}),
                 [](ObRef<ObDictionary> result, ObRef<ObError> error) {
                     EXPECT_EQ(printed(result), "{}");
                     EXPECT_EQ(error, nullptr);
                 });
         },
         printed(stopped)},
        {"invalidation", [](VRCredentialReference& reference) { reference.invalidate(); },
         "Error Domain=org.tessiva.VRErrorDomain Code=-9"},
    };
    for (const Stop& stop : stops) {
        SCOPED_TRACE(stop.name);
        const ObRef<SilentDelegate> delegate = ObMake<SilentDelegate>();
        const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
        ObSemaphore done;
        reference->setupWithCredentialHandle_uiDelegate_reply(nullptr, delegate,
                                                              [&](ObRef<ObError> error) {
                                                                  EXPECT_EQ(error, nullptr);
                                                                  done.signal();
                                                              });
        done.wait();

        std::atomic<int> replies{0};
        ObRef<ObError> received;
        reference->evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, [&](ObRef<ObError> error) {
            received = std::move(error);
            ++replies;
            done.signal();
        });
        delegate->prompted.wait();
        EXPECT_EQ(replies.load(), 0);

        stop.stop(*reference);
        done.wait();
        EXPECT_EQ(printed(received).substr(0, stop.expected.size()), stop.expected);
        for (const VRUIReply& late : delegate->kept())
            late(ObDictionary::make({{VREventConsentResponse, ObString::make("1234")}}), nullptr);
        EXPECT_EQ(replies.load(), 1);
        EXPECT_EQ(reference->resultForTag(VRResultTagUsedPasscode), nullptr);
    }
}

} // namespace
} // namespace tessiva::test
