// State that several threads share without the caller's locks: a reference's
// handle and kept result while replies replace them, proxies answering on many
// threads, and the constant vocabulary retained and released everywhere.
#include "credential/ReferenceTesting.h"
#include "support/RecordingUIDelegate.h"
#include "support/RunTogether.h"
#include "support/TestSupport.h"
#include "tessiva/DelegateProxy.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"

#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <string>
#include <vector>

namespace tessiva::test {
namespace {

constexpr int readerCount = 4;
constexpr int readsPerReader = 1500;
constexpr int repliesToRace = 60;

ObRef<ObData> data(std::string_view text) {
    return ObData::make(text.data(), text.size());
}

// A writer starts `repliesToRace` asynchronous requests, each answered from a
// new service thread with the next of `answers`, while readers look.
void raceRepliesWithReaders(FakeService& service, const std::vector<std::function<void()>>& answers,
                            const std::function<void(VRErrorReply)>& request,
                            const std::function<void()>& read) {
    std::latch replies(repliesToRace);
    runTogether(1 + readerCount, [&](int t) {
        if (t == 0) {
            for (int i = 0; i < repliesToRace; ++i) {
                answers[static_cast<std::size_t>(i) % answers.size()]();
                request([&](ObRef<ObError>) { replies.count_down(); });
            }
            return;
        }
        for (int i = 0; i < readsPerReader; ++i)
            read();
    });
    replies.wait();
    service.joinReplyThreads();
}

class SharedStateStress : public ::testing::Test {
protected:
    void SetUp() override { service->setReplyMode(FakeReplyMode::OwnThread); }

    ObRef<FakeService> service = FakeService::make();
    KVScopedClientBackend installed{service};
    ObRef<VRCredentialReference> reference = VRCredentialReference::make();
};

TEST_F(SharedStateStress, SetUpRepliesRaceCredentialHandleReads) {
    const ObRef<ObData> first = data("first"), second = data("second");
    const ObRef<FakeClient> firstClient = service->makeClient(first);
    const ObRef<FakeClient> secondClient = service->makeClient(second);
    service->setCreatorDisplayName(ObString::make("creator"));
    const auto isOneOfTheHandles = [&](const ObRef<ObData>& handle) {
        return handle == nullptr || handle == first || handle == second;
    };
    raceRepliesWithReaders(
        *service,
        {[&] { service->answerClientRequests(firstClient, nullptr); },
         [&] { service->answerClientRequests(nullptr, serviceUnavailable()); },
         [&] { service->answerClientRequests(secondClient, nullptr); }},
        [&](VRErrorReply reply) { reference->setupNewReferenceWithReply(std::move(reply)); },
        [&] {
            EXPECT_TRUE(isOneOfTheHandles(reference->credentialHandle()));
            const ObRef<ObString> creator = reference->creatorDisplayName();
            EXPECT_TRUE(creator == nullptr || creator->text() == "creator");
        });
    EXPECT_TRUE(isOneOfTheHandles(reference->credentialHandle()));
    EXPECT_EQ(service->clientRequests().size(), std::size_t{repliesToRace});
}

TEST_F(SharedStateStress, ResultsByTagReadWhilePolicyRepliesReplaceTheKeptResult) {
    ASSERT_TRUE(reference->setupNewReferenceWithError(nullptr));
    const ObRef<ObString> first = ObString::make("first"), second = ObString::make("second");
    const auto resultWith = [](const ObRef<ObString>& value) {
        return ObDictionary::make({{ObNumber::make(3), value}});
    };
    const ObRef<CapturingTraceSink> trace = ObMake<CapturingTraceSink>();
    const ObScopedTraceSink traceInstalled(trace);
    std::atomic<int> absentResults{0};
    raceRepliesWithReaders(
        *service,
        {[&] { service->answerEvaluations(resultWith(first), nullptr); },
         [&] { service->answerEvaluations(nullptr, serviceUnavailable()); },
         [&] { service->answerEvaluations(resultWith(second), nullptr); }},
        [&](VRErrorReply reply) {
            reference->evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, std::move(reply));
        },
        [&] {
            const ObRef<ObObject> value = reference->resultForTag(VRResultTagUsedPasscode);
            EXPECT_TRUE(value == nullptr || value == first || value == second);
            if (!value)
                ++absentResults;
            reference->resultForTag_reply(
                VRResultTagUsedPasscode, [&](ObRef<ObObject> found, ObRef<ObError> error) {
                    if (found) {
                        EXPECT_EQ(error, nullptr);
                        EXPECT_TRUE(found == first || found == second);
                    } else {
                        EXPECT_EQ(printed(error), "Error Domain=org.tessiva.VRErrorDomain "
                                                  "Code=-10 \"Result not available.\"");
                    }
                });
        });
    // One trace message for every absent result the synchronous form returned.
    EXPECT_EQ(trace->messages().size(), static_cast<std::size_t>(absentResults.load()));
}

constexpr int proxyThreadCount = 6;
constexpr int eventsPerThread = 150;

// Proxies, one shared and one per thread, receive events on several threads;
// half are answered from inside the event call, the rest later, from several
// other threads. Every event is answered exactly once, with its own answer.
TEST(ProxyStress, EventsAndAnswersOnSeveralThreads) {
    constexpr int eventCount = proxyThreadCount * eventsPerThread;
    std::vector<std::atomic<int>> answered(eventCount);
    std::atomic<int> availabilityReports{0};

    class Delegate final : public VRUIDelegate {
    public:
        explicit Delegate(std::atomic<int>& reports) : reports_(reports) {}
        void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                                VRUIReply reply) override {
            const ObRef<ObNumber> identity =
                ob_cast<ObNumber>(params->objectForKey(VREventRidgeScanParamIdentity));
            if (!identity) {
                EXPECT_TRUE(event->isEqual(VREventRidgeScan));
                ++reports_;
                return;
            }
            const ObRef<ObDictionary> answer =
                ObDictionary::make({{VREventConsentResponse, identity}});
            if (identity->integerValue() % 2 == 0) {
                reply(answer, nullptr);
                return;
            }
            std::lock_guard lock(mutex_);
            later_.push_back([reply = std::move(reply), answer] { reply(answer, nullptr); });
        }
        std::vector<std::function<void()>> takeLater() {
            std::lock_guard lock(mutex_);
            return std::exchange(later_, {});
        }

    private:
        std::atomic<int>& reports_;
        std::mutex mutex_;
        std::vector<std::function<void()>> later_;
    };

    const ObRef<Delegate> delegate = ObMake<Delegate>(availabilityReports);
    const ObRef<DelegateProxy> shared = KVLegacyHelper::uiDelegateFromVRUIDelegate(delegate);
    runTogether(proxyThreadCount, [&](int t) {
        const ObRef<DelegateProxy> own = KVLegacyHelper::uiDelegateFromVRUIDelegate(delegate);
        for (int i = 0; i < eventsPerThread; ++i) {
            const int id = t * eventsPerThread + i;
            const ObRef<DelegateProxy>& proxy = i % 2 == 0 ? shared : own;
            proxy->event_params_reply(
                1 + id % 4,
                ObDictionary::make({{ObNumber::make(2), ObNumber::make(id)},
                                    {ObNumber::make(0), ObNumber::makeBool(true)}}),
                [&answered, id](ObRef<ObDictionary> answer, ObRef<ObError> error) {
                    EXPECT_EQ(error, nullptr);
                    EXPECT_EQ(printed(answer), "{0 = " + std::to_string(id) + "}");
                    ++answered[static_cast<std::size_t>(id)];
                });
            proxy->event_params_reply(0,
                                      ObDictionary::make({{ObNumber::make(1), ObNumber::make(id)}}),
                                      [](ObRef<ObDictionary>, ObRef<ObError>) {
                                          ADD_FAILURE() << "an availability report was answered";
                                      });
        }
    });
    const std::vector<std::function<void()>> later = delegate->takeLater();
    runTogether(proxyThreadCount, [&](int t) {
        for (std::size_t i = static_cast<std::size_t>(t); i < later.size(); i += proxyThreadCount)
            later[i]();
    });
    for (int id = 0; id < eventCount; ++id)
        EXPECT_EQ(answered[static_cast<std::size_t>(id)].load(), 1) << "event " << id;
    EXPECT_EQ(availabilityReports.load(), eventCount);
}

constexpr int constantThreadCount = 8;
constexpr int constantRounds = 100;

// The exported vocabulary is immortal: retained and released from every thread
// at once, through copies, containers, errors and formatting, it stays intact.
TEST(ConstantStress, ConstantsRetainedAndReleasedFromManyThreads) {
    const std::vector<ObString*> constants = {
        VRErrorDomain,         KVErrorDomain,           ObLocalizedDescriptionKey,
        VRPolicyTirsa,         VRHintTimeout,           VRHintEventProcessing,
        VRHintEventFilter,     VREventPasscode,         VREventConsentResponse,
        VREventParamAvailable, VRResultTagUsedPasscode, VRClientRequestEnterPassword};
    std::vector<std::string> texts;
    for (ObString* constant : constants)
        texts.emplace_back(constant->text());
    const ObRef<ObNumber> yes = ObNumber::makeBool(true);

    runTogether(constantThreadCount, [&](int) {
        for (int round = 0; round < constantRounds; ++round) {
            std::vector<ObRef<ObObject>> held;
            for (ObString* constant : constants) {
                const ObRef<ObString> copy = constant;
                held.push_back(ObDictionary::make({{copy, yes}, {yes, copy}}));
                held.push_back(ObArray::make({copy, copy, ObNumber::makeBool(false)}));
                held.push_back(KVLegacyHelper::vrErrorWithCode_andMessage(-5, copy));
                held.push_back(ObFormat("%@/%@", copy, yes));
            }
            // Translations that keep constants in what they return.
            held.push_back(KVLegacyHelper::optionsFromVRHints(ObDictionary::make(
                {{VRHintEventFilter, ObArray::make({VREventPasscode, VREventConsent})}})));
        }
    });
    for (std::size_t i = 0; i < constants.size(); ++i) {
        EXPECT_TRUE(constants[i]->isImmortal()) << texts[i];
        EXPECT_EQ(constants[i]->text(), texts[i]);
    }
    EXPECT_TRUE(yes->isImmortal());
}

} // namespace
} // namespace tessiva::test
