// The first use of every process-wide table, raced by several threads. Alone
// in its executable, so that no table is built before the threads start.
#include "support/RecordingUIDelegate.h"
#include "support/RunTogether.h"
#include "tessiva/DelegateProxy.h"
#include "translation/ExpectedTables.h"
#include "translation/TranslationTesting.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tessiva::test {
namespace {

constexpr int threadCount = 8;
constexpr int roundsPerTable = 4;

std::string printed(const ObRef<ObObject>& object) {
    return std::string(ObFormat("%@", object)->text());
}

// One workload per table; each checks every answer it gets, so a caller that
// saw a half-built table fails.
std::vector<std::function<void()>> tableWorkloads() {
    std::vector<std::function<void()>> workloads;
    for (const NameTableCase& table : expectedNameTables()) {
        workloads.emplace_back([table] {
            for (const NameRow& row : table.rows) {
                EXPECT_EQ(table.translate(row.name, nullptr), row.number)
                    << table.label << " " << row.name->text();
            }
        });
    }
    workloads.emplace_back([] {
        for (const CodeRow& row : expectedErrorCodes) {
            const ObRef<ObError> error = ObError::make(KVErrorDomain, row.serviceCode, nullptr);
            EXPECT_EQ(KVLegacyHelper::vrErrorFromKVError(error)->code(), row.vrCode);
        }
    });
    // Hints dictionaries reach the hint and event tables through their own path.
    workloads.emplace_back([] {
        const ObRef<ObDictionary> processing =
            dict({{VRHintTimeout, num(30)},
                  {VRHintEventProcessing,
                   dict({{VREventPasscode,
                          dict({{VRHintEventProcessingGetRemoteViewController, num(1)}})}})},
                  {VRHintUserCancel2, str("fallback")}});
        EXPECT_EQ(printed(KVLegacyHelper::optionsFromVRHints(processing)),
                  "{1001 = 30; 1007 = {2 = {0 = 1}}; 1 = fallback}");
        const ObRef<ObDictionary> filter = dict({{VRHintEventFilter, array({VREventConsent})}});
        EXPECT_EQ(printed(KVLegacyHelper::optionsFromVRHints(filter)),
                  "{1007 = {EventConsent = {}}}");
    });
    // The proxy's three tables, built together.
    workloads.emplace_back([] {
        const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
        const ObRef<DelegateProxy> proxy = DelegateProxy::initWithVRUIDelegate(delegate);
        std::vector<std::string> answers;
        proxy->event_params_reply(
            1, dict({{num(1), str("s")}, {num(2), str("i")}, {num(3), str("b")}}),
            [&](ObRef<ObDictionary> answer, ObRef<ObError>) {
                answers.push_back(printed(answer));
            });
        proxy->event_params_reply(0, dict({{num(4), num(1)}}), nullptr);
        const auto events = delegate->events();
        ASSERT_EQ(events.size(), 2u);
        EXPECT_EQ(printed(events[0].name), "EventRidgescan");
        EXPECT_EQ(printed(events[0].params),
                  "{Status = s; Identity = i; EventParamRemoteViewControllerBundleID = b}");
        EXPECT_EQ(printed(events[1].name), "EventPassphrase");
        EXPECT_EQ(printed(events[1].params), "{Available = 1}");
        events[0].reply(dict({{VREventConsentResponse, str("yes")}}), nullptr);
        EXPECT_EQ(answers, std::vector<std::string>{"{0 = yes}"});
    });
    return workloads;
}

TEST(TablesFirstUse, ConcurrentFirstCallersAllSeeCompleteTables) {
    // Making the workloads builds no table.
    const std::vector<std::function<void()>> workloads = tableWorkloads();
    const int tableCount = static_cast<int>(workloads.size());
    runTogether(threadCount, [&](int t) {
        // Each thread starts with a different table, so every table has
        // racing first callers.
        for (int i = 0; i < tableCount; ++i) {
            for (int round = 0; round < roundsPerTable; ++round)
                workloads[static_cast<std::size_t>((t + i) % tableCount)]();
        }
    });
}

} // namespace
} // namespace tessiva::test
