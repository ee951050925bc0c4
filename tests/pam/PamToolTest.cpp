// SPDX-License-Identifier: MIT
// `tessiva authenticate` end to end, as a script or a user at the keyboard
// would run it, against the same pam_wrapper set-up as the library suites.
#include "PamTestEnvironment.h"
#include "bus/ChildProcess.h"

#include <gmock/gmock.h>

namespace tessiva::test {
namespace {
using ::testing::HasSubstr;

ChildProcess tool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), TESSIVA_TOOL);
    return ChildProcess(arguments, {}, true);
}
ChildProcess authenticate(const char* user = pamUser) {
    return tool({"authenticate", "--service", pamService, "--user", user});
}

int exitCode(ChildProcess& ended) {
    const int status = ended.wait();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(PamTool, TheRightPasswordOnStandardInputSucceedsAndPrintsTheResults) {
    ChildProcess running = authenticate();
    EXPECT_TRUE(running.write(std::string(pamPassword) + "\n"));
    running.closeInput();
    EXPECT_EQ(running.readRest(),
              "UsedPasscode: 1\nUsedRidgescan: 0\nUsedYesNo: 0\nUsedPassphrase: 0\n");
    EXPECT_THAT(running.readErrors(), HasSubstr("Password for alice (3 attempts left): \n"));
    EXPECT_EQ(exitCode(running), 0);
}

// One line per prompt: the third line answers the third prompt.
TEST(PamTool, WrongPasswordsFailWithStatusOneAndTheLibrarysError) {
    ChildProcess running = authenticate(pamOtherUser);
    EXPECT_TRUE(running.write("one\ntwo\nthree\n" + std::string(pamOtherPassword) + "\n"));
    running.closeInput();
    EXPECT_EQ(running.readRest(), "");
    EXPECT_THAT(running.readErrors(), HasSubstr("Password for bob (1 attempt left): \nerror: "
                                                "Authentication failed: too many wrong passcodes "
                                                "(3). (VR code -1)\n"));
    EXPECT_EQ(exitCode(running), 1);
}

TEST(PamTool, CtrlCAtThePromptStopsTheEvaluationAndExits130) {
    ChildProcess running = authenticate();
    running.readErrors("Password for alice");
    running.signal(SIGINT);
    // The input stays open: only the interruption can end the prompt.
    EXPECT_THAT(running.readErrors(), HasSubstr("tessiva: interrupted\n"));
    EXPECT_EQ(exitCode(running), 130);
}

// TESSIVA_SERVICE naming another backend (bus: the deployed daemon) is
// honoured: here the simulated one, whose passcode PAM would refuse.
TEST(PamTool, TheBackendTessivaServiceNamesAnswersInsteadOfPam) {
    ChildProcess running({TESSIVA_TOOL, "authenticate", "--user", pamUser},
                         {"TESSIVA_SERVICE=simulated", "TESSIVA_PASSCODE=97531"}, true);
    EXPECT_TRUE(running.write("97531\n"));
    running.closeInput();
    EXPECT_THAT(running.readRest(), HasSubstr("UsedPasscode: 1\n"));
    EXPECT_EQ(exitCode(running), 0);
}

TEST(PamTool, AnUnknownPolicyIsBadUsage) {
    ChildProcess running = tool({"authenticate", "--policy", "VRPolicyNone"});
    EXPECT_THAT(running.readErrors(), HasSubstr("tessiva: unknown policy 'VRPolicyNone'"));
    EXPECT_EQ(exitCode(running), 2);
}

} // namespace
} // namespace tessiva::test
