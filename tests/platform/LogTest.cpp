// SPDX-License-Identifier: MIT
// The log and trace sinks and their environment switches. The other OS
// services are proved where the library uses them: one-time initialisation by
// the first-use stress suite, semaphores and atomic fields by the synchronous
// calls of the credential, fault and stress suites.
#include "support/TestSupport.h"

#include <cstdlib>
#include <gmock/gmock.h>

namespace {
using namespace tessiva::test;
using testing::ElementsAre;

TEST(Log, LinesAndTracesReachTheInnermostInstalledSink) {
    const LogCapture outer;
    ObLog("first %d %@", 1, ObString::make("x"));
    {
        const LogCapture inner;
        ObLog("second");
        EXPECT_THAT(inner.lines(), ElementsAre("second"));
    }
    ObLogWrite(ObLogPriority::Error, "third");
    // Without a trace sink, traces become debug lines of the log; an
    // installed trace sink is proved by the credential suites.
    ObTraceLogWrite("step %d", -2, [](ObTraceMessage& message) {
        message.setString("a", "1");
        message.setString("b", nullptr);
        message.setString("a", "3"); // keeps its place
        message.setString(nullptr, "n");
    });
    EXPECT_THAT(outer.lines(), ElementsAre("first 1 x", "third", "step -2 {a=3, b=, =n}"));
    EXPECT_THAT(outer.priorities(),
                ElementsAre(ObLogPriority::Notice, ObLogPriority::Error, ObLogPriority::Debug));
}

// Both switches are read once, on first use, so each value is tried in a
// fresh child process that inherits the environment set here.
TEST(LogDeathTest, EnvironmentSwitchesStandardErrorAndServiceLogging) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("TESSIVA_LOG_STDERR", "yes", 1);
    EXPECT_EXIT((ObLog("routed %d", 7), std::exit(0)), testing::ExitedWithCode(0),
                testing::HasSubstr("routed 7\n"));
    setenv("TESSIVA_LOG_STDERR", "off", 1);
    EXPECT_EXIT((ObLog("routed %d", 8), std::exit(0)), testing::ExitedWithCode(0),
                testing::Not(testing::HasSubstr("routed 8")));
    unsetenv("TESSIVA_LOG_STDERR");

    const std::pair<const char*, bool> cases[] = {{nullptr, false}, {"1", true},  {"true", true},
                                                  {"yes", true},    {"on", true}, {"0", false},
                                                  {"off", false},   {"", false}};
    for (const auto& [value, enabled] : cases) {
        SCOPED_TRACE(value == nullptr ? "(unset)" : value);
        value == nullptr ? unsetenv("TESSIVA_LOGGING") : setenv("TESSIVA_LOGGING", value, 1);
        EXPECT_EXIT(std::exit(KVLogger::sharedInstance()->isLoggingEnabled() ? 3 : 4),
                    testing::ExitedWithCode(enabled ? 3 : 4), "");
    }
    unsetenv("TESSIVA_LOGGING");
}

} // namespace
