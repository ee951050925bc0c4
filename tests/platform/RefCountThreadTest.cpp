// SPDX-License-Identifier: MIT
// Reference counts shared between threads: ordinary objects and constants.
#include "platform/PlatformTestSupport.h"
#include "support/RunTogether.h"
#include "tessiva/brindle/KVErrorHelper.h"

#include <atomic>
#include <gtest/gtest.h>

namespace {
using namespace tessiva::test;

constexpr int threadCount = 8;
constexpr int rounds = 20000;
OB_CONSTANT_STRING(local, "local");

std::atomic<int> destructions{0};
class Counted final : public ObObject {
public:
    ~Counted() override { ++destructions; }
};

// Copies made and dropped on every thread at once; the last share, dropped on
// whichever thread ends last, destroys the object exactly once.
TEST(RefCountThreads, SharedObjectsEndInOneDestruction) {
    ObRef<Counted> shared = ObMake<Counted>();
    std::vector<ObRef<ObObject>> shares(threadCount, shared);
    shared = nullptr;
    runTogether(threadCount, [&](int t) {
        const ObRef<ObObject> mine = std::move(shares[static_cast<std::size_t>(t)]);
        for (int i = 0; i < rounds; ++i)
            ASSERT_TRUE(ob_cast<Counted>(ObRef<ObObject>(mine)));
    });
    EXPECT_EQ(destructions.load(), 1);
}

// Constants ignore the count, so releases beyond the retains never free them.
TEST(RefCountThreads, ConstantsSurviveAnyRetainsAndReleases) {
    ObObject* const constants[] = {&local, ObNumber::makeBool(true).get(),
                                   ObNumber::makeBool(false).get(), ObLocalizedDescriptionKey,
                                   KVErrorDomain};
    runTogether(threadCount, [&](int) {
        for (ObObject* constant : constants) {
            for (int i = 0; i < rounds; ++i)
                constant->retain();
            for (int i = 0; i < 3 * rounds; ++i)
                constant->release();
        }
    });
    for (ObObject* constant : constants)
        EXPECT_TRUE(constant->isImmortal());
    EXPECT_EQ(local.text(), "local");
    EXPECT_EQ(KVErrorDomain->text(), "org.kavelin.KVErrorDomain");
    EXPECT_TRUE(ObNumber::makeBool(true)->boolValue());
}

} // namespace
