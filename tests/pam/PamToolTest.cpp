// `tessiva authenticate` end to end, as a script or a user at the keyboard
// would run it, against the same pam_wrapper set-up as the library suites.
#include "PamTestEnvironment.h"
#include "bus/ChildProcess.h"

#include <gtest/gtest.h>

namespace tessiva::test {
namespace {

struct Finished {
    int exitCode = -1;
    std::string out, err;
};

ChildProcess tool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), TESSIVA_TOOL);
    return ChildProcess(arguments, {}, true);
}
ChildProcess authenticate(const char* user = pamUser) {
    return tool({"authenticate", "--service", pamService, "--user", user});
}

// Its output once it has ended; its input is closed first unless the tool
// is to end by itself.
Finished finish(ChildProcess& running, bool closingInput = true) {
    if (closingInput)
        running.closeInput();
    Finished finished{-1, running.readRest(), running.readErrors()};
    const int status = running.wait();
    finished.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return finished;
}

TEST(PamTool, TheRightPasswordOnStandardInputSucceedsAndPrintsTheResults) {
    ChildProcess running = authenticate();
    EXPECT_TRUE(running.write(std::string(pamPassword) + "\n"));
    const Finished finished = finish(running);
    EXPECT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_EQ(finished.out, "UsedPasscode: 1\nUsedRidgescan: 0\nUsedYesNo: 0\nUsedPassphrase: 0\n");
    EXPECT_NE(finished.err.find("Password for alice (3 attempts left): \n"), std::string::npos)
        << finished.err;
}

// One line per prompt: the third line answers the third prompt.
TEST(PamTool, WrongPasswordsFailWithStatusOneAndTheLibrarysError) {
    ChildProcess running = authenticate(pamOtherUser);
    EXPECT_TRUE(running.write("one\ntwo\nthree\n" + std::string(pamOtherPassword) + "\n"));
    const Finished finished = finish(running);
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_EQ(finished.out, "");
    EXPECT_NE(finished.err.find("Password for bob (1 attempt left): \nerror: Authentication "
                                "failed: too many wrong passcodes (3). (VR code -1)\n"),
              std::string::npos)
        << finished.err;
}

TEST(PamTool, CtrlCAtThePromptStopsTheEvaluationAndExits130) {
    ChildProcess running = authenticate();
    running.readErrors("Password for alice");
    running.signal(SIGINT);
    // The input stays open: only the interruption can end the prompt.
    const Finished finished = finish(running, false);
    EXPECT_EQ(finished.exitCode, 130) << finished.err;
    EXPECT_NE(finished.err.find("tessiva: interrupted\n"), std::string::npos) << finished.err;
}

TEST(PamTool, AnUnknownPolicyIsBadUsage) {
    ChildProcess running = tool({"authenticate", "--policy", "VRPolicyNone"});
    const Finished finished = finish(running);
    EXPECT_EQ(finished.exitCode, 2);
    EXPECT_NE(finished.err.find("tessiva: unknown policy 'VRPolicyNone'"), std::string::npos);
}

} // namespace
} // namespace tessiva::test
