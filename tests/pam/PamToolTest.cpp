// `tessiva authenticate` end to end, as a script or a user at the keyboard
// would run it, against the same pam_wrapper set-up as the library suites.
#include "PamTestEnvironment.h"
#include "support/Deadline.h"

#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tessiva::test {
namespace {

struct Finished {
    int status = -1;
    std::string out;
    std::string err;
};

// The tool with pipes for its standard streams; inherits the environment.
class RunningTool {
public:
    explicit RunningTool(std::vector<std::string> arguments) {
        int in[2], out[2], err[2];
        if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0)
            throw std::runtime_error("pipe");
        pid_ = fork();
        if (pid_ == 0) {
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            dup2(err[1], STDERR_FILENO);
            for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]})
                close(fd);
            std::vector<char*> argv{const_cast<char*>(TESSIVA_TOOL)};
            for (std::string& argument : arguments)
                argv.push_back(argument.data());
            argv.push_back(nullptr);
            execv(TESSIVA_TOOL, argv.data());
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        close(err[1]);
        in_ = in[1];
        out_ = out[0];
        err_ = err[0];
    }
    ~RunningTool() {
        if (in_ >= 0)
            close(in_);
        close(out_);
        close(err_);
    }

    void write(const std::string& text) {
        ASSERT_EQ(::write(in_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void closeInput() {
        close(in_);
        in_ = -1;
    }
    // Reads standard error until it holds `text`; what was read is kept.
    void waitForError(const std::string& text) {
        while (errText_.find(text) == std::string::npos && readSome(err_, errText_)) {
        }
    }
    void signal(int number) { kill(pid_, number); }
    // Closes the input first unless the tool is to end by itself.
    Finished finish(bool closingInput = true) {
        if (closingInput && in_ >= 0)
            closeInput();
        Finished finished;
        while (readSome(out_, finished.out)) {
        }
        while (readSome(err_, errText_)) {
        }
        waitUntil([&] { return waitpid(pid_, &finished.status, WNOHANG) != 0; }, "the tool to end");
        finished.err = errText_;
        return finished;
    }

private:
    static bool readSome(int fd, std::string& into) {
        pollfd ready{fd, POLLIN, 0};
        if (poll(&ready, 1, int(std::chrono::milliseconds(testDeadline).count())) == 0)
            throw WaitTimedOut("output from the tool");
        char buffer[512];
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got <= 0)
            return false;
        into.append(buffer, static_cast<std::size_t>(got));
        return true;
    }

    pid_t pid_ = -1;
    int in_ = -1, out_ = -1, err_ = -1;
    std::string errText_;
};

int exitCode(const Finished& finished) {
    return WIFEXITED(finished.status) ? WEXITSTATUS(finished.status) : -1;
}

std::vector<std::string> authenticate(const char* user = pamUser) {
    return {"authenticate", "--service", pamService, "--user", user};
}

TEST(PamTool, TheRightPasswordOnStandardInputSucceedsAndPrintsTheResults) {
    RunningTool tool(authenticate());
    tool.write(std::string(pamPassword) + "\n");
    const Finished finished = tool.finish();
    EXPECT_EQ(exitCode(finished), 0) << finished.err;
    EXPECT_EQ(finished.out, "UsedPasscode: 1\nUsedRidgescan: 0\nUsedYesNo: 0\nUsedPassphrase: 0\n");
    EXPECT_NE(finished.err.find("Password for alice (3 attempts left): \n"), std::string::npos)
        << finished.err;
}

// One line per prompt: the third line answers the third prompt.
TEST(PamTool, WrongPasswordsFailWithStatusOneAndTheLibrarysError) {
    RunningTool tool(authenticate(pamOtherUser));
    tool.write("one\ntwo\nthree\n" + std::string(pamOtherPassword) + "\n");
    const Finished finished = tool.finish();
    EXPECT_EQ(exitCode(finished), 1);
    EXPECT_EQ(finished.out, "");
    EXPECT_NE(finished.err.find("Password for bob (1 attempt left): \nerror: Authentication "
                                "failed: too many wrong passcodes (3). (VR code -1)\n"),
              std::string::npos)
        << finished.err;
}

TEST(PamTool, CtrlCAtThePromptStopsTheEvaluationAndExits130) {
    RunningTool tool(authenticate());
    tool.waitForError("Password for alice");
    tool.signal(SIGINT);
    // The input stays open: only the interruption can end the prompt.
    const Finished finished = tool.finish(false);
    EXPECT_EQ(exitCode(finished), 130) << finished.err;
    EXPECT_NE(finished.err.find("tessiva: interrupted\n"), std::string::npos) << finished.err;
}

TEST(PamTool, AnUnknownPolicyIsBadUsage) {
    RunningTool tool({"authenticate", "--policy", "VRPolicyNone"});
    const Finished finished = tool.finish();
    EXPECT_EQ(exitCode(finished), 2);
    EXPECT_NE(finished.err.find("tessiva: unknown policy 'VRPolicyNone'"), std::string::npos);
}

} // namespace
} // namespace tessiva::test
