// SPDX-License-Identifier: MIT
// Service faults injected through the fake service: every error code on
// every reply path, in both reply modes, and replies that come twice.
#include "credential/ReferenceTesting.h"
#include "tessiva/VRConstants.h"
#include "translation/ExpectedTables.h"

#include <atomic>

namespace tessiva::test {
namespace {

// One request of a set-up reference on each reply path; the sink gets the
// error of every reply that reaches the caller.
const std::pair<const char*, void (*)(VRCredentialReference&, const VRErrorReply&)> paths[] = {
    {"set-up", [](auto& r, auto& sink) { r.setupNewReferenceWithReply(sink); }},
    {"policy evaluation",
     [](auto& r, auto& sink) { r.evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, sink); }},
    {"ACL evaluation",
     [](auto& r, auto& sink) {
         r.evaluateACL_operation_hints_reply(nullptr, nullptr, nullptr, sink);
     }},
    {"client request", [](auto& r, auto& sink) {
         r.sendClientRequest_params_reply(VRClientRequestEnterPassword, nullptr,
                                          [sink](auto result, auto error) {
                                              EXPECT_NE(result == nullptr, error == nullptr);
                                              sink(error);
                                          });
     }}};

TEST(FaultInjection, EveryReplyReachesTheCallerWithServiceErrorsTranslated) {
    const ObRef<ObDictionary> info =
        ObDictionary::make({{ObLocalizedDescriptionKey, ObString::make("from the service")}});
    // Each error the service gives and what the caller must get: the table's
    // codes translated, a code it lacks as 0, other domains' errors (told
    // apart by exact text) and success unchanged.
    const ObRef<ObString> serviceDomain = ObString::make(KVErrorDomain->text());
    std::vector<std::pair<ObRef<ObError>, ObRef<ObError>>> injected;
    for (const CodeRow& row : expectedErrorCodes)
        injected.emplace_back(ObError::make(serviceDomain, row.serviceCode, info),
                              ObError::make(VRErrorDomain, row.vrCode, info));
    injected.emplace_back(ObError::make(serviceDomain, -9999, info),
                          ObError::make(VRErrorDomain, 0, info));
    for (const ObRef<ObError>& same :
         {ObError::make(ObString::make("org.kavelin.kverrordomain"), -1, nullptr),
          ObError::make(nullptr, -3, nullptr),
          KVLegacyHelper::vrErrorWithCode_andMessage(-4, nullptr), ObRef<ObError>()})
        injected.emplace_back(same, same);

    for (FakeReplyMode mode : {FakeReplyMode::AtOnce, FakeReplyMode::OwnThread})
        for (int deliveries : {1, 2})
            for (const auto& [pathName, request] : paths)
                for (const auto& pair : injected) {
                    // References, not a structured binding: clang 14 cannot capture one.
                    const ObRef<ObError>& error = pair.first;
                    const ObRef<ObError>& expected = pair.second;
                    SCOPED_TRACE(::testing::Message()
                                 << pathName << ", mode " << int(mode) << ", " << deliveries
                                 << " replies: " << printed(error));
                    const ObRef<FakeService> service = FakeService::make();
                    const KVScopedClientBackend installed(service);
                    service->setReplyMode(mode);
                    service->setDeliveriesPerReply(deliveries);
                    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
                    ASSERT_TRUE(reference->setupNewReferenceWithError(nullptr));
                    service->answerClientRequests(error ? nullptr : service->makeClient(nullptr),
                                                  error);
                    service->answerEvaluations(error ? nullptr : ObDictionary::make(), error);
                    service->answerClientActions(!error, error);

                    // Checked as they come, on whichever thread: a service
                    // replying twice is forwarded twice. Every reply has come
                    // once the service's reply threads are joined.
                    std::atomic<int> replies{0}, wrong{0};
                    request(*reference, [&](ObRef<ObError> one) {
                        wrong += printed(one) != printed(expected) ||
                                 (one != expected && (!one || one->userInfo() != info));
                        ++replies;
                    });
                    service->joinReplyThreads();
                    EXPECT_EQ(replies.load(), deliveries);
                    EXPECT_EQ(wrong.load(), 0);
                }
}

} // namespace
} // namespace tessiva::test
