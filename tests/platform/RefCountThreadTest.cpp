// Reference counts shared between threads: ordinary objects and constants.
#include "platform/PlatformTestSupport.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/Ob.h"

#include <gtest/gtest.h>

namespace {
using namespace tessiva::test;

constexpr int threadCount = 8;
constexpr int rounds = 20000;
OB_CONSTANT_STRING(local, "local");

TEST(RefCountThreads, ConcurrentCopiesEndInOneDestruction) {
    LifetimeCounters counters;
    ObRef<CountedObject> shared = ObMake<CountedObject>(counters, 7);
    std::vector<ObRef<CountedObject>> shares(threadCount, shared);
    shared = nullptr; // the last share now drops on whichever thread ends last
    runTogether(threadCount, [&](int t) {
        const ObRef<CountedObject> mine = std::move(shares[t]);
        int sum = 0;
        for (int i = 0; i < rounds; ++i) {
            ObRef<ObObject> copy = mine;
            sum += ob_cast<CountedObject>(copy)->value();
        }
        EXPECT_EQ(sum, 7 * rounds);
    });
    EXPECT_EQ(counters.constructed, 1);
    EXPECT_EQ(counters.destroyed, 1);
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
    EXPECT_FALSE(ObString::make("made")->isImmortal());
}
} // namespace
