// SPDX-License-Identifier: MIT
#include "BrokerBus.h"

#include "services/dbus/SdBus.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <endian.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <optional>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <string_view>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace tessiva::test {
namespace {
using detail::FileDescriptor;
constexpr char journalPath[] = "/run/systemd/journal/socket";
// How long the broker has to answer once started, and to end once told.
constexpr std::uint64_t answerMicroseconds = 20'000'000;
constexpr int endMilliseconds = 20'000;

sockaddr_un unixAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error("socket path too long: " + path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

// An unbound socket for the stand-in journal; none where the machine's
// journal takes messages.
int standInJournal() {
    FileDescriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = unixAddress(journalPath);
    if (probe.get() >= 0 &&
        connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return -1;
    const int journal = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (journal < 0)
        throw std::runtime_error("cannot make a socket for the stand-in journal");
    return journal;
}

// Where the errors go: the named file, or a copy of standard error.
int errorDescriptor(const std::string& errorFile) {
    const int fd = errorFile.empty()
                       ? fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)
                       : open(errorFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0)
        throw std::runtime_error("cannot open " + (errorFile.empty() ? "stderr" : errorFile));
    return fd;
}

// The launcher's scope follows the configuration's bus type.
std::string scopeOf(const std::string& config) {
    std::ifstream file(config);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    if (!file && !file.eof())
        throw std::runtime_error("cannot read " + config);
    return text.find("<type>system</type>") != std::string::npos ? "system" : "user";
}

// The listening socket at `path`, open to every user as dbus-daemon's are
// (the suites' second clients run under other uids).
int listeningSocket(const std::string& path) {
    const sockaddr_un address = unixAddress(path);
    unlink(path.c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        chmod(path.c_str(), 0666) == 0 && listen(fd, SOMAXCONN) == 0)
        return fd;
    const int error = errno;
    if (fd >= 0)
        close(fd);
    throw std::runtime_error("cannot listen on " + path + ": " + std::strerror(error));
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
    "cannot pass the listening socket",
    ("cannot run " TESSIVA_DBUS_BROKER_LAUNCH),
};

// What the child is handed, all made before the fork.
struct Exec {
    std::vector<char*> argv, envp;
    char* listenPid; // the digits of "LISTEN_PID=", filled in by the child
    int errors, journal, listening, report;
    sockaddr_un journalAddress;
};

// The child's part, between fork and exec: only async-signal-safe calls.
// Without a journal socket to bind, the machine's journal is used as it is.
// The tmpfs goes on /run rather than /run/systemd, which a machine without
// systemd running need not have; the launcher and the broker use nothing
// else there.
[[noreturn]] void execLauncher(const Exec& exec) {
    auto fail = [&exec](int step) {
        const Failure failure{step, errno};
        (void)!write(exec.report, &failure, sizeof failure);
        _exit(127);
    };
    if (exec.journal >= 0) {
        if (unshare(CLONE_NEWNS) != 0)
            fail(0);
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            fail(1);
        if (mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0755") != 0)
            fail(2);
        mkdir("/run/systemd", 0755);
        mkdir("/run/systemd/journal", 0755);
        if (bind(exec.journal, reinterpret_cast<const sockaddr*>(&exec.journalAddress),
                 sizeof exec.journalAddress) != 0)
            fail(3);
    }
    // The launcher stops when told, whatever its starter blocks.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(exec.errors, STDOUT_FILENO);
    dup2(exec.errors, STDERR_FILENO);
    // systemd's first passed descriptor is 3, open across the exec.
    constexpr int firstPassed = 3;
    if (exec.listening == firstPassed ? fcntl(firstPassed, F_SETFD, 0) != 0
                                      : dup2(exec.listening, firstPassed) != firstPassed)
        fail(4);
    char digits[20];
    int count = 0;
    for (pid_t pid = getpid(); pid > 0; pid /= 10)
        digits[count++] = char('0' + pid % 10);
    for (int i = 0; i < count; ++i)
        exec.listenPid[i] = digits[count - 1 - i];
    exec.listenPid[count] = '\0';
    execve(exec.argv[0], exec.argv.data(), exec.envp.data());
    fail(5);
    _exit(127);
}

// Whether the bus answers on `address`: then the launcher has started the
// broker.
bool answers(const std::string& address) {
    detail::bus::BusRef bus;
    return sd_bus_new(bus.put()) >= 0 && sd_bus_set_address(bus.get(), address.c_str()) >= 0 &&
           sd_bus_set_bus_client(bus.get(), 1) >= 0 &&
           sd_bus_set_method_call_timeout(bus.get(), answerMicroseconds) >= 0 &&
           sd_bus_start(bus.get()) >= 0 &&
           sd_bus_call_method(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus", "GetId", nullptr, nullptr, "") >= 0;
}

// The broker: the launcher's child. The bus names the launcher as its owner.
pid_t childOf(pid_t launcher) {
    std::ifstream children("/proc/" + std::to_string(launcher) + "/task/" +
                           std::to_string(launcher) + "/children");
    pid_t child = -1;
    children >> child;
    return child;
}
} // namespace

BrokerBus::Journal::~Journal() {
    if (drain.joinable())
        shutdown(socket.get(), SHUT_RDWR);
}

BrokerBus::Launcher::~Launcher() {
    if (pid > 0) {
        kill(pid, SIGTERM);
        while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    if (broker >= 0) {
        pollfd ended{broker, POLLIN, 0};
        while (poll(&ended, 1, endMilliseconds) < 0 && errno == EINTR) {
        }
        close(broker);
    }
    if (!socket.empty())
        unlink(socket.c_str());
}

BrokerBus::BrokerBus(const std::string& socket, const std::string& config,
                     const std::string& errorFile)
    : errors_(errorDescriptor(errorFile)), journal_(standInJournal()),
      address_("unix:path=" + socket) {
    const std::string scope = scopeOf(config);
    // Ours closes once the launcher has it, so that a launcher that fails
    // leaves no socket to wait on.
    std::optional<FileDescriptor> listening(std::in_place, listeningSocket(socket));
    launcher_.socket = socket;

    // The launcher takes its orders on the bus it runs, which the address
    // names; systemd's variables say which descriptor is the socket.
    std::vector<std::string> args{TESSIVA_DBUS_BROKER_LAUNCH, "--scope", scope, "--config-file",
                                  config};
    std::vector<std::string> env{"DBUS_SESSION_BUS_ADDRESS=" + address_,
                                 "DBUS_SYSTEM_BUS_ADDRESS=" + address_, "LISTEN_FDS=1",
                                 "LISTEN_PID=" + std::string(20, ' ')};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view name(*entry, std::strcspn(*entry, "="));
        if (name != "DBUS_SESSION_BUS_ADDRESS" && name != "DBUS_SYSTEM_BUS_ADDRESS" &&
            !name.starts_with("LISTEN_"))
            env.emplace_back(*entry);
    }
    Exec exec{};
    for (auto& arg : args)
        exec.argv.push_back(arg.data());
    exec.argv.push_back(nullptr);
    for (auto& entry : env)
        exec.envp.push_back(entry.data());
    exec.envp.push_back(nullptr);
    exec.listenPid = env[3].data() + std::strlen("LISTEN_PID=");
    exec.errors = errors_.get();
    exec.journal = journal_.socket.get();
    exec.listening = listening->get();
    exec.journalAddress = unixAddress(journalPath);

    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe");
    const FileDescriptor report(ends[0]);
    {
        const FileDescriptor reportEnd(ends[1]);
        exec.report = reportEnd.get();
        launcher_.pid = fork();
        if (launcher_.pid == 0)
            execLauncher(exec);
    }
    listening.reset();
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

    if (!answers(address_))
        throw std::runtime_error("dbus-broker did not answer on " + address_ +
                                 " (its log says why)");
    if (const pid_t broker = childOf(launcher_.pid); broker > 0)
        launcher_.broker = int(syscall(SYS_pidfd_open, broker, 0));
}
} // namespace tessiva::test
