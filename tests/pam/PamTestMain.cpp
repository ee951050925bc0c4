// SPDX-License-Identifier: MIT
// The PAM suites' main: it writes a PAM service directory and password
// databases of its own, then runs the suites in a child process with
// pam_wrapper preloaded, so that PAM reads only those files; so does any
// daemon the suites start. The user running the tests, and the one of
// pamOtherUid, are known there too: the daemon authenticates its callers.
#include "PamTestEnvironment.h"
#include "PamWrapper.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pwd.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {
namespace fs = std::filesystem;
using namespace tessiva::test;

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream(path) << text;
}

// The name of a user of this machine, or none.
std::string userName(uid_t uid) {
    const passwd* entry = getpwuid(uid);
    return entry != nullptr ? entry->pw_name : "";
}

// One service per case the suites need: the plain one, one with a module
// that talks first (PAM_TEXT_INFO / PAM_ERROR_MSG), one that asks with echo on,
// one whose module would let an empty password in, and one whose account
// check finds the account expired.
void writeServices(const fs::path& directory) {
    const std::string module = TESSIVA_PAM_MATRIX_MODULE;
    const std::string chattyModule = TESSIVA_PAM_CHATTY_MODULE;
    writeFile(directory / pamNullTokenService,
              "auth required " + chattyModule + " nullok\naccount required " + module +
                  " passdb=" + (directory / (std::string(pamService) + ".passdb")).string() + "\n");
    writeFile(directory / pamExpiredService,
              "auth required " + module +
                  " passdb=" + (directory / (std::string(pamService) + ".passdb")).string() +
                  "\naccount required " + chattyModule + " expired\n");
    for (const char* service : {pamService, pamVerboseService, pamEchoService}) {
        const fs::path passdb = directory / (std::string(service) + ".passdb");
        writeFile(passdb, std::string(pamUser) + ":" + pamPassword + ":" + service + "\n" +
                              pamOtherUser + ":" + pamOtherPassword + ":" + service + "\n" +
                              pamForeignUser + ":" + pamPassword + ":elsewhere\n" +
                              userName(geteuid()) + ":" + pamCallerPassword + ":" + service + "\n" +
                              userName(pamOtherUid) + ":" + pamOtherUidPassword + ":" + service +
                              "\n");
        std::string options = " passdb=" + passdb.string();
        std::string chatter;
        if (service == std::string(pamVerboseService))
            chatter = "auth optional " + chattyModule + "\n";
        if (service == std::string(pamEchoService))
            options += " echo";
        writeFile(directory / service, chatter + "auth required " + module + options +
                                           "\naccount required " + module + options + "\n");
    }
}

int runWithPamWrapper(char** argv) {
    std::string pattern = (fs::temp_directory_path() / "tessiva-pam-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        return 1;
    const fs::path directory = pattern;
    writeServices(directory);
    for (const auto& [name, value] : pamWrapperVariables(directory))
        setenv(name.c_str(), value.c_str(), 1);
    // The process-wide backend, chosen by name, for the suite that needs no
    // backend installed.
    setenv("TESSIVA_SERVICE", "pam", 1);
    setenv("TESSIVA_PAM_SERVICE", pamService, 1);
    setenv("TESSIVA_PAM_USER", pamUser, 1);

    // The file /proc/self/exe names rather than the link itself, which under
    // valgrind is valgrind's own executable (only reading the link is
    // redirected to the program it runs).
    const std::string self = fs::read_symlink("/proc/self/exe").string();
    const pid_t child = fork();
    if (child == 0) {
        execv(self.c_str(), argv);
        _exit(127);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0) {
    }
    fs::remove_all(directory);
    return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
} // namespace

int main(int argc, char** argv) {
    const char* wrapped = std::getenv("PAM_WRAPPER");
    if (wrapped == nullptr || std::string(wrapped) != "1")
        return runWithPamWrapper(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
