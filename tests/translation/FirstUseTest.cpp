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
    const std::size_t tableCount = nameTables.size() + 1; // the last is the error table
    const auto translateAll = [&](std::size_t table) {
        if (table == nameTables.size()) {
            for (const auto& row : tessiva::test::expectedErrorCodes) {
                const auto error = ObError::make(KVErrorDomain, row.serviceCode, nullptr);
                EXPECT_EQ(KVLegacyHelper::vrErrorFromKVError(error)->code(), row.vrCode);
            }
            return;
        }
        for (const auto& row : nameTables[table].rows)
            EXPECT_EQ(nameTables[table].translate(row.name, nullptr), row.number)
                << nameTables[table].label << " " << row.name->text();
    };

    constexpr std::size_t threadCount = 8;
    std::latch start(threadCount);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            // Each thread begins with a different table, so every table has
            // racing first callers.
            for (std::size_t i = 0; i < tableCount; ++i)
                translateAll((t + i) % tableCount);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
