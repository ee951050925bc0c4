// The tables' first use, raced by several threads. This executable holds this
// one test so that it runs in a process where no table has been built yet.
#include "tessiva/brindle/KVErrorHelper.h"
#include "translation/ExpectedTables.h"

#include <gtest/gtest.h>
#include <latch>
#include <thread>
#include <vector>

namespace {

TEST(TablesFirstUse, ConcurrentFirstCallersAllSeeCompleteTables) {
    // Making the expected rows builds no table.
    const auto nameTables = tessiva::test::expectedNameTables();
    const std::size_t tableCount = nameTables.size() + 1; // and the error table
    constexpr std::size_t threadCount = 8;

    // results[thread][table][row]
    std::vector<std::vector<std::vector<ObInteger>>> results(
        threadCount, std::vector<std::vector<ObInteger>>(tableCount));
    const auto translateAll = [&](std::size_t table, std::vector<ObInteger>& out) {
        if (table == nameTables.size()) {
            for (const auto& row : tessiva::test::expectedErrorCodes) {
                const auto error = ObError::make(KVErrorDomain, row.serviceCode, nullptr);
                out.push_back(KVLegacyHelper::vrErrorFromKVError(error)->code());
            }
            return;
        }
        for (const auto& row : nameTables[table].rows)
            out.push_back(nameTables[table].translate(row.name, nullptr));
    };

    std::latch start(threadCount);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            // Each thread begins with a different table, so every table has
            // racing first callers.
            for (std::size_t i = 0; i < tableCount; ++i)
                translateAll((t + i) % tableCount, results[t][(t + i) % tableCount]);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    for (std::size_t t = 0; t < threadCount; ++t) {
        SCOPED_TRACE(t);
        for (std::size_t table = 0; table < nameTables.size(); ++table) {
            const auto& rows = nameTables[table].rows;
            ASSERT_EQ(results[t][table].size(), rows.size());
            for (std::size_t r = 0; r < rows.size(); ++r)
                EXPECT_EQ(results[t][table][r], rows[r].number) << nameTables[table].label << r;
        }
        const auto& codes = results[t][nameTables.size()];
        ASSERT_EQ(codes.size(), std::size(tessiva::test::expectedErrorCodes));
        for (std::size_t r = 0; r < codes.size(); ++r)
            EXPECT_EQ(codes[r], tessiva::test::expectedErrorCodes[r].vrCode) << "error row " << r;
    }
}

} // namespace
