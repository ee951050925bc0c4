// The PAM suites' main: it writes a PAM service directory and password
// databases of its own, then runs the suites in a child process with
// pam_wrapper preloaded, so that PAM reads only those files.
#include "PamTestEnvironment.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {
namespace fs = std::filesystem;
using namespace tessiva::test;

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream(path) << text;
}

// One service per case the suites need: the plain one, one with a module
// that talks first (PAM_TEXT_INFO / PAM_ERROR_MSG), one that asks with echo on.
void writeServices(const fs::path& directory) {
    const std::string module = TESSIVA_PAM_MATRIX_MODULE;
    const std::string chattyModule = TESSIVA_PAM_CHATTY_MODULE;
    for (const char* service : {pamService, pamVerboseService, pamEchoService}) {
        const fs::path passdb = directory / (std::string(service) + ".passdb");
        writeFile(passdb, std::string(pamUser) + ":" + pamPassword + ":" + service + "\n" +
                              pamOtherUser + ":" + pamOtherPassword + ":" + service + "\n" +
                              pamForeignUser + ":" + pamPassword + ":elsewhere\n");
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
    setenv("PAM_WRAPPER", "1", 1);
    setenv("PAM_WRAPPER_SERVICE_DIR", directory.c_str(), 1);
    setenv("LD_PRELOAD", TESSIVA_PAM_WRAPPER_LIBRARY, 1);
    // Sanitizer runtimes object to a library preloaded before them, and to
    // pam_wrapper's deep binding of modules.
    setenv("PAM_WRAPPER_DISABLE_DEEPBIND", "1", 1);
    // What pam_wrapper 1.1.4 (Debian 12) reads instead.
    setenv("UID_WRAPPER_DISABLE_DEEPBIND", "1", 1);
    const char* asan = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS",
           (std::string(asan != nullptr ? asan : "") +
            ":verify_asan_link_order=0:fast_unwind_on_malloc=0")
               .c_str(),
           1);
    // libpam loses some memory when pam_start fails (no such service); that
    // leak is PAM's, not Tessiva's. libpam has no frame pointers, so only a
    // slow unwind (above) finds pam_start in the leak's stack.
    writeFile(directory / "lsan.supp", "leak:pam_start\n");
    const char* lsan = std::getenv("LSAN_OPTIONS");
    setenv("LSAN_OPTIONS",
           (std::string(lsan != nullptr ? lsan : "") +
            ":suppressions=" + (directory / "lsan.supp").string())
               .c_str(),
           1);
    // The process-wide backend, chosen by name, for the suite that needs no
    // backend installed.
    setenv("TESSIVA_SERVICE", "pam", 1);
    setenv("TESSIVA_PAM_SERVICE", pamService, 1);
    setenv("TESSIVA_PAM_USER", pamUser, 1);

    const pid_t child = fork();
    if (child == 0) {
        execv("/proc/self/exe", argv);
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
