// SPDX-License-Identifier: MIT
// The first use of every process-wide table, raced by several threads. Alone
// in its executable, so that no table is built before the threads start.
#include "credential/ReferenceTesting.h"
#include "support/RecordingUIDelegate.h"
#include "support/RunTogether.h"
#include "tessiva/DelegateProxy.h"
#include "translation/ExpectedTables.h"
#include "translation/TranslationTesting.h"

namespace tessiva::test {
namespace {

TEST(TablesFirstUse, ConcurrentFirstCallersAllSeeCompleteTables) {
    // One workload per table; each checks every answer it gets, so that a
    // caller that saw a half-built table fails. Making them builds no table.
    std::vector<std::function<void()>> workloads;
    for (const NameTableCase& table : expectedNameTables()) {
        workloads.emplace_back([table] {
            for (const NameRow& row : table.rows)
                EXPECT_EQ(table.translate(row.name, nullptr), row.number) << row.name->text();
        });
    }
    workloads.emplace_back([] {
        for (const CodeRow& row : expectedErrorCodes) {
            const ObRef<ObError> error = ObError::make(KVErrorDomain, row.serviceCode, nullptr);
            EXPECT_EQ(KVLegacyHelper::vrErrorFromKVError(error)->code(), row.vrCode);
        }
    });
    // The proxy's three tables, built together; proxies receive events and
    // answers on every thread at once.
    workloads.emplace_back([] {
        const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
        std::string answer;
        DelegateProxy::initWithVRUIDelegate(delegate)->event_params_reply(
            1, dict({{num(1), str("s")}, {num(2), str("i")}, {num(3), str("b")}}),
            [&](ObRef<ObDictionary> translated, ObRef<ObError>) { answer = printed(translated); });
        const RecordingUIDelegate::Event event = delegate->waitForEvent(0);
        EXPECT_EQ(printed(event.name) + " " + printed(event.params),
                  "EventRidgescan {Status = s; Identity = i; "
                  "EventParamRemoteViewControllerBundleID = b}");
        event.reply(dict({{VREventConsentResponse, str("yes")}}), nullptr);
        EXPECT_EQ(answer, "{0 = yes}");
    });
    // Each thread starts with a different table, so that every table has
    // racing first callers, then goes through them all a few times.
    runTogether(8, [&](int t) {
        for (std::size_t i = 0; i < 4 * workloads.size(); ++i)
            workloads[(static_cast<std::size_t>(t) + i) % workloads.size()]();
    });
}

} // namespace
} // namespace tessiva::test
