// SPDX-License-Identifier: MIT
#include "BrokerBus.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <endian.h>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <stdexcept>
#include <string_view>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tessiva::bench {
namespace {
constexpr char journalPath[] = "/run/systemd/journal/socket";

sockaddr_un unixAddress(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    return address;
}

// An unbound socket for the stand-in journal; none where the machine's
// journal takes messages.
int standInJournal() {
    Descriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = unixAddress(journalPath);
    if (probe.get() >= 0 &&
        connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return -1;
    const int journal = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (journal < 0)
        throw std::runtime_error("cannot make a socket for the stand-in journal");
    return journal;
}

// A field of a message in the journal's native protocol: NAME=value lines,
// or, for a value that holds newlines, NAME, a newline, the value's 64-bit
// little-endian length and the value.
std::string_view journalField(std::string_view message, std::string_view name) {
    while (!message.empty()) {
        const std::size_t end = message.find_first_of("=\n");
        if (end == std::string_view::npos)
            break;
        const std::string_view field = message.substr(0, end);
        std::string_view value;
        if (message[end] == '=') {
            const std::size_t newline = message.find('\n', end);
            value = message.substr(end + 1, newline - end - 1);
            message.remove_prefix(std::min(message.size(), newline + 1));
        } else {
            std::uint64_t length = 0;
            if (message.size() - end - 1 < sizeof length)
                break;
            std::memcpy(&length, message.data() + end + 1, sizeof length);
            length = le64toh(length);
            message.remove_prefix(end + 1 + sizeof length);
            if (length > message.size())
                break;
            value = message.substr(0, length);
            message.remove_prefix(std::min<std::uint64_t>(message.size(), length + 1));
        }
        if (field == name)
            return value;
    }
    return {};
}

// Copies the stand-in journal's messages to the error file, a line each,
// until the socket is shut down.
void copyJournal(int journal, int errors) {
    std::vector<char> buffer(std::size_t(1) << 16);
    for (;;) {
        const ssize_t size = recv(journal, buffer.data(), buffer.size(), 0);
        if (size < 0 && errno == EINTR)
            continue;
        if (size <= 0)
            return;
        const std::string_view message(buffer.data(), std::size_t(size));
        const std::string line = std::string(journalField(message, "SYSLOG_IDENTIFIER")) + ": " +
                                 std::string(journalField(message, "MESSAGE")) + "\n";
        (void)!write(errors, line.data(), line.size());
    }
}

// Where the child stopped, sent to the parent in place of the exec.
struct Failure {
    int step;
    int error;
};
constexpr const char* steps[] = {
    "cannot make a mount namespace for dbus-broker (it takes root)",
    "cannot make the mounts private",
    "cannot mount a tmpfs on /run",
    "cannot bind the stand-in journal socket",
    ("cannot run " TESSIVA_SOCKET_ACTIVATE),
};

// The child's part, between fork and exec: only async-signal-safe calls.
// Without a journal socket to bind, the machine's journal is used as it is.
// The tmpfs goes on /run rather than /run/systemd, which a machine without
// systemd running need not have; the launcher and the broker use nothing
// else there.
[[noreturn]] void execLauncher(char* const* argv, int errors, int journal,
                               const sockaddr_un& journalAddress, int report) {
    auto fail = [report](int step) {
        const Failure failure{step, errno};
        (void)!write(report, &failure, sizeof failure);
        _exit(127);
    };
    if (journal >= 0) {
        if (unshare(CLONE_NEWNS) != 0)
            fail(0);
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            fail(1);
        if (mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0755") != 0)
            fail(2);
        mkdir("/run/systemd", 0755);
        mkdir("/run/systemd/journal", 0755);
        if (bind(journal, reinterpret_cast<const sockaddr*>(&journalAddress),
                 sizeof journalAddress) != 0)
            fail(3);
    }
    dup2(errors, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    execv(argv[0], argv);
    fail(4);
    _exit(127);
}
} // namespace

Descriptor::~Descriptor() {
    if (fd_ >= 0)
        close(fd_);
}

BrokerBus::Journal::~Journal() {
    if (drain.joinable())
        shutdown(socket.get(), SHUT_RDWR);
}

BrokerBus::Child::~Child() {
    if (pid <= 0)
        return;
    // The launcher ends without waiting for the broker, which ends when it
    // sees it gone; as its subreaper we wait for it too.
    std::ifstream childList("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) +
                            "/children");
    std::vector<pid_t> children;
    for (pid_t child = 0; childList >> child;)
        children.push_back(child);
    kill(pid, SIGTERM);
    children.insert(children.begin(), pid);
    for (pid_t child : children)
        while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
        }
}

BrokerBus::BrokerBus(const std::string& socket, const std::string& errorFile)
    : errors_(open(errorFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)),
      journal_(standInJournal()) {
    if (errors_.get() < 0)
        throw std::runtime_error("cannot open " + errorFile);
    // The broker outlives the launcher briefly; it comes back to us.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    // The launcher takes its orders on the user bus, which in a session is
    // the broker itself; with no session here, the address says so.
    // systemd-socket-activate passes on no environment but what it is told.
    std::vector<std::string> args{TESSIVA_SOCKET_ACTIVATE,
                                  "-l",
                                  socket,
                                  "-E",
                                  "DBUS_SESSION_BUS_ADDRESS=unix:path=" + socket,
                                  "dbus-broker-launch",
                                  "--scope",
                                  "user",
                                  "--config-file",
                                  TESSIVA_BUS_CONFIG};
    std::vector<char*> argv;
    for (auto& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    const sockaddr_un journalAddress = unixAddress(journalPath);

    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe");
    const Descriptor report(ends[0]);
    {
        const Descriptor reportEnd(ends[1]);
        launcher_.pid = fork();
        if (launcher_.pid == 0)
            execLauncher(argv.data(), errors_.get(), journal_.socket.get(), journalAddress,
                         reportEnd.get());
    }
    if (launcher_.pid < 0)
        throw std::runtime_error("cannot fork");
    // Nothing to read but a failure: the pipe closes with the exec.
    Failure failure{};
    ssize_t size = 0;
    while ((size = read(report.get(), &failure, sizeof failure)) < 0 && errno == EINTR) {
    }
    if (size == sizeof failure)
        throw std::runtime_error(std::string(steps[failure.step]) + ": " +
                                 std::strerror(failure.error));
    if (journal_.socket.get() >= 0)
        journal_.drain = std::jthread(copyJournal, journal_.socket.get(), errors_.get());

    for (int tries = 0; access(socket.c_str(), F_OK) != 0; ++tries) {
        if (waitpid(launcher_.pid, nullptr, WNOHANG) == launcher_.pid) {
            launcher_.pid = -1;
            throw std::runtime_error("dbus-broker did not start (see the --log file)");
        }
        if (tries == 500)
            throw std::runtime_error("dbus-broker did not make " + socket);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}
} // namespace tessiva::bench
