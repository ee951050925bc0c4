// SPDX-License-Identifier: MIT
// The free policy functions: their one error, the -1002 filter, their log lines.
#include "standalone/CanEvaluatePolicyFilter.h"
#include "support/TestSupport.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRFunctions.h"
#include "tessiva/object/ObMake.h"

#include <gtest/gtest.h>

namespace {
using namespace tessiva::test;

TEST(PolicyFunctions, FailWithTheSimulatorErrorAndLogOnlyWhenEnabled) {
    const ObRef<ObString> policy = ObString::make("Policy");
    const std::string error =
        "Error Domain=org.tessiva.VRErrorDomain Code=-6 \"Simulator is not supported.\"";
    for (const bool logging : {true, false}) {
        SCOPED_TRACE(logging ? "logging" : "not logging");
        KVLogger::sharedInstance()->setLoggingEnabled(logging);
        const LogCapture capture;
        std::vector<std::string> replies;
        // With how many log lines were written before it ran.
        const auto reply = [&](ObRef<ObError> e) {
            replies.push_back(std::string(ObFormat("%@", e)->text()) + " after " +
                              std::to_string(capture.lines().size()));
        };
        VREvaluatePolicy(VRPolicyTirsa, nullptr, reply);
        VRCanEvaluatePolicyWithReply(policy, reply);
        ObRef<ObError> written;
        EXPECT_FALSE(VRCanEvaluatePolicy(policy, &written));
        reply(written);
        EXPECT_FALSE(VRCanEvaluatePolicy(VRPolicyVelmora, nullptr));
        // Every reply has run, once, by the time its call returns, and after
        // its own reply line.
        const auto after = [&](int lines) { return error + " after " + std::to_string(lines); };
        const std::vector<std::string> expectedReplies =
            logging ? std::vector{after(1), after(4), after(5)}
                    : std::vector{after(0), after(0), after(0)};
        EXPECT_EQ(replies, expectedReplies);
        const std::vector<std::string> lines = {
            "VRTessiva: VREvaluatePolicy (, (null))",
            "VRTessiva: VRCanEvaluatePolicyWithReply Policy",
            "VRTessiva: VREvaluatePolicy (Policy, {NonInteractive = 1})",
            "VRTessiva: VRCanEvaluatePolicyWithReply (reply) -> " + error,
            "VRTessiva: VRCanEvaluatePolicy Policy",
            "VRTessiva: VRCanEvaluatePolicy "};
        EXPECT_EQ(capture.lines(), logging ? lines : std::vector<std::string>{});
    }
}

// A caller's value whose description itself calls a function that logs.
class LoggingDescription final : public ObObject {
public:
    ObRef<ObString> description() const override {
        VRCanEvaluatePolicy(ObString::make("Inner"), nullptr);
        return ObString::make("described");
    }
};

// The argument text being formatted survives the lines its arguments write:
// they come first, whole, and the outer line after them.
TEST(PolicyFunctions, ArgumentTextSurvivesLinesLoggedWhileFormattingIt) {
    KVLogger::sharedInstance()->setLoggingEnabled(true);
    const LogCapture capture;
    const ObRef<ObDictionary> hints =
        ObDictionary::make({{VRHintTimeout, ObMake<LoggingDescription>()}});
    VREvaluatePolicy(VRPolicyTirsa, hints, [](ObRef<ObError>) {});
    KVLogger::sharedInstance()->setLoggingEnabled(false);
    const std::vector<std::string> lines = {
        "VRTessiva: VRCanEvaluatePolicy Inner",
        "VRTessiva: VREvaluatePolicy (, {Timeout = described})"};
    EXPECT_EQ(capture.lines(), lines);
}

// Only the code is read, whatever the domain; an absent error stays absent.
TEST(CanEvaluatePolicyFilter, OnlyCodeMinus1002CountsAsSuccess) {
    using tessiva::detail::canEvaluatePolicyError;
    EXPECT_TRUE(canEvaluatePolicyError(nullptr) == nullptr);
    for (const ObInteger code : {-1002, -6, -1000, -1001, -1003, -2, 0, 1002}) {
        const ObRef<ObError> passed = ObError::make(ObString::make("X"), code, nullptr);
        EXPECT_EQ(canEvaluatePolicyError(passed).get(), code == -1002 ? nullptr : passed.get())
            << code;
    }
}

} // namespace
