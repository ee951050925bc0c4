// The OS services: log and trace sinks, the class registry, semaphores,
// one-time initialisation and atomic object fields.
#include "platform/PlatformTestSupport.h"
#include "support/TestSupport.h"
#include "tessiva/os/ObOnce.h"
#include "tessiva/os/ObSemaphore.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {
using namespace tessiva::test;
using testing::ElementsAre;

TEST(Log, WritesFormattedLinesToTheInstalledSink) {
    auto outer = ObMake<CapturingLogSink>(), inner = ObMake<CapturingLogSink>();
    {
        ObScopedLogSink outerScope(outer);
        ObLog("first %d %@", 1, ObString::make("x"));
        {
            ObScopedLogSink innerScope(inner);
            ObLog("second");
        }
        ObLogWrite(ObLogPriority::Error, "third");
    }
    EXPECT_THAT(outer->lines(), ElementsAre("first 1 x", "third"));
    EXPECT_THAT(outer->priorities(), ElementsAre(ObLogPriority::Notice, ObLogPriority::Error));
    EXPECT_THAT(inner->lines(), ElementsAre("second"));
}

// The route is chosen when the default sink is first used, so each case runs
// in a fresh child process that inherits the environment set here.
TEST(LogDeathTest, StandardErrorRoutingFollowsTheEnvironment) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("TESSIVA_LOG_STDERR", "1", 1);
    EXPECT_EXIT((ObLog("routed %d", 7), std::exit(0)), testing::ExitedWithCode(0),
                testing::HasSubstr("routed 7\n"));
    setenv("TESSIVA_LOG_STDERR", "0", 1);
    EXPECT_EXIT((ObLog("routed %d", 8), std::exit(0)), testing::ExitedWithCode(0),
                testing::Not(testing::HasSubstr("routed 8")));
    unsetenv("TESSIVA_LOG_STDERR");
}

TEST(TraceLog, InstalledSinkReceivesFormatArgumentAndPayload) {
    auto sink = ObMake<CapturingTraceSink>();
    ObScopedTraceSink installed(sink);
    ObTraceLogWrite("step %d", 4, [](ObTraceMessage& message) { message.setString("k", "v"); });
    const auto messages = sink->messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].format, "step %d");
    EXPECT_EQ(messages[0].argument, 4);
    ObTraceMessage payload;
    messages[0].payload(payload);
    EXPECT_THAT(payload.entries(), ElementsAre(std::pair<std::string, std::string>("k", "v")));
}

TEST(TraceLog, DefaultSinkWritesDebugLinesToTheLog) {
    auto sink = ObMake<CapturingLogSink>();
    ObScopedLogSink installed(sink);
    ObTraceLogWrite("step %d", -2, [](ObTraceMessage& message) {
        message.setString("a", "1");
        message.setString("b", nullptr);
        message.setString("a", "3"); // keeps its place
        message.setString(nullptr, "n");
    });
    ObTraceLogWrite("plain %d", 5, nullptr);
    EXPECT_THAT(sink->lines(), ElementsAre("step -2 {a=3, b=, =n}", "plain 5"));
    EXPECT_THAT(sink->priorities(), ElementsAre(ObLogPriority::Debug, ObLogPriority::Debug));
}

class RecordingRegistry final : public ObClassRegistry {
public:
    ObRef<ObClass> classNamed(std::string_view name) override {
        asked.emplace_back(name);
        return answer;
    }
    std::vector<std::string> asked;
    ObRef<ObClass> answer = ObMake<ObClass>(ObString::make("Replacement"));
};

TEST(ClassRegistry, FindsRegisteredClassesAndCanBeReplaced) {
    const ObRef<ObClass> widget = ObRegisterClass("TessivaTestWidget");
    const ObRef<ObString> name = ObString::make("TessivaTestWidget");
    EXPECT_EQ(ObRegisterClass("TessivaTestWidget"), widget);
    EXPECT_EQ(ObClassFromString(name), widget);
    EXPECT_EQ(ObClassFromString(ObString::make("TessivaNoSuchClass")), nullptr);
    EXPECT_EQ(ObClassFromString(nullptr), nullptr);

    auto registry = ObMake<RecordingRegistry>();
    {
        ObScopedInstall<ObClassRegistry, &ObSetClassRegistry> installed(registry);
        EXPECT_EQ(ObClassFromString(name), registry->answer);
        EXPECT_EQ(ObClassFromString(nullptr), nullptr);
    }
    EXPECT_THAT(registry->asked, ElementsAre("TessivaTestWidget"));
    EXPECT_EQ(ObClassFromString(name), widget);
}

TEST(Semaphore, BanksSignalsAndWaitsForAnotherThread) {
    ObSemaphore banked;
    banked.signal();
    banked.signal();
    banked.wait();
    banked.wait();

    ObSemaphore ready;
    int written = 0;
    std::jthread writer([&] {
        written = 42;
        ready.signal();
    });
    ready.wait();
    EXPECT_EQ(written, 42); // what was written before the signal is seen after the wait
}

TEST(Once, RunsExactlyOnceAcrossThreads) {
    ObOnceToken token;
    std::latch arrived(8);
    std::atomic<int> runs{0};
    std::vector<int> seen(8, 0);
    runTogether(8, [&](int t) {
        arrived.count_down();
        // The run waits for every thread to arrive, so all of them call while it is under way.
        ObDispatchOnce(token, [&] {
            arrived.wait();
            ++runs;
        });
        seen[t] = runs; // latecomers return only after the one run finished
    });
    EXPECT_EQ(seen, std::vector<int>(8, 1));
}

TEST(AtomicRef, LoadStoreExchangeFromManyThreads) {
    constexpr int threadCount = 4, rounds = 500;
    LifetimeCounters counters;
    {
        ObAtomicRef<CountedObject> field;
        EXPECT_EQ(field.load(), nullptr);
        field.store(ObMake<CountedObject>(counters, 0));
        runTogether(threadCount, [&](int t) {
            for (int i = 0; i < rounds; ++i) {
                const auto previous = field.exchange(ObMake<CountedObject>(counters, t));
                ASSERT_TRUE(previous && field.load());
                EXPECT_LT(previous->value(), threadCount);
                field.store(ObMake<CountedObject>(counters, t));
            }
        });
        EXPECT_EQ(counters.destroyed, counters.constructed - 1);
    }
    EXPECT_EQ(counters.constructed, 1 + 2 * threadCount * rounds);
    EXPECT_EQ(counters.destroyed, counters.constructed);
}
} // namespace
