// The free policy functions: their one error, the -1002 filter, their log lines.
#include "standalone/CanEvaluatePolicyFilter.h"
#include "support/TestSupport.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRFunctions.h"
#include "tessiva/brindle/KVLogger.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct Case {
    const char* label;
    // Makes the call, handing what reaches the caller to `received`.
    std::function<void(const VRErrorReply& received)> call;
    std::size_t replies;
    std::vector<std::string> lines;
};

std::vector<Case> cases() {
    const ObRef<ObString> policy = ObString::make("Policy");
    const ObRef<ObDictionary> hints = ObDictionary::make({{VRHintTimeout, ObNumber::make(30)}});
    return {
        {"evaluate",
         [](const VRErrorReply& received) { VREvaluatePolicy(VRPolicyTirsa, nullptr, received); },
         1,
         {"VRTessiva: VREvaluatePolicy (, (null))"}},
        {"evaluate with hints",
         [=](const VRErrorReply& received) { VREvaluatePolicy(policy, hints, received); },
         1,
         {"VRTessiva: VREvaluatePolicy (Policy, {Timeout = 30})"}},
        {"can evaluate with reply",
         [=](const VRErrorReply& received) { VRCanEvaluatePolicyWithReply(policy, received); },
         1,
         {"VRTessiva: VRCanEvaluatePolicyWithReply Policy",
          "VRTessiva: VREvaluatePolicy (Policy, {NonInteractive = 1})",
          "VRTessiva: VRCanEvaluatePolicyWithReply (reply) -> "
          "Error Domain=org.tessiva.VRErrorDomain Code=-6 \"Simulator is not supported.\""}},
        {"can evaluate",
         [=](const VRErrorReply& received) {
             ObRef<ObError> error;
             EXPECT_FALSE(VRCanEvaluatePolicy(policy, &error));
             received(error);
         },
         1,
         {"VRTessiva: VRCanEvaluatePolicy Policy"}},
        {"can evaluate without an error slot",
         [](const VRErrorReply&) { EXPECT_FALSE(VRCanEvaluatePolicy(VRPolicyVelmora, nullptr)); },
         0,
         {"VRTessiva: VRCanEvaluatePolicy "}},
    };
}

class PolicyFunctions : public ::testing::Test {
protected:
    void TearDown() override { KVLogger::sharedInstance()->setLoggingEnabled(wasEnabled_); }

private:
    const bool wasEnabled_ = KVLogger::sharedInstance()->isLoggingEnabled();
};

TEST_F(PolicyFunctions, FailWithTheSimulatorErrorAndLogOnlyWhenEnabled) {
    for (const bool logging : {true, false}) {
        for (const Case& c : cases()) {
            SCOPED_TRACE(std::string(c.label) + (logging ? ", logging" : ", not logging"));
            KVLogger::sharedInstance()->setLoggingEnabled(logging);
            const tessiva::test::LogCapture capture;
            std::vector<ObRef<ObError>> errors;
            c.call([&](ObRef<ObError> error) { errors.push_back(std::move(error)); });
            // Replies have run, exactly once, by the time the call returns.
            EXPECT_EQ(errors.size(), c.replies);
            for (const ObRef<ObError>& error : errors) {
                ASSERT_TRUE(error);
                EXPECT_TRUE(error->domain()->isEqual(VRErrorDomain));
                EXPECT_EQ(error->code(), -6);
                EXPECT_EQ(error->localizedDescription()->text(), "Simulator is not supported.");
            }
            EXPECT_EQ(capture.lines(), logging ? c.lines : std::vector<std::string>{});
        }
    }
}

TEST(CanEvaluatePolicyFilter, OnlyCodeMinus1002CountsAsSuccess) {
    using tessiva::detail::canEvaluatePolicyError;
    const auto error = [](const ObRef<ObString>& domain, ObInteger code) {
        return ObError::make(domain, code, nullptr);
    };
    EXPECT_TRUE(canEvaluatePolicyError(nullptr) == nullptr);
    // Only the code is read, whatever the domain.
    EXPECT_TRUE(canEvaluatePolicyError(error(VRErrorDomain, -1002)) == nullptr);
    EXPECT_TRUE(canEvaluatePolicyError(error(ObString::make("org.example.Other"), -1002)) ==
                nullptr);
    for (const ObInteger code : {-6, -1000, -1001, -1003, -2, 0, 1002}) {
        SCOPED_TRACE(code);
        const ObRef<ObError> passed = error(VRErrorDomain, code);
        EXPECT_EQ(canEvaluatePolicyError(passed).get(), passed.get());
    }
}

} // namespace
