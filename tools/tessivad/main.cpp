// SPDX-License-Identifier: MIT
// tessivad: the authentication daemon. It hosts a service and serves client
// processes on D-Bus under org.tessiva.Authentication1.
#include "Daemon.h"
#include "HostedService.h"
#include "services/dbus/BusConnect.h"
#include "services/dbus/BusInterface.h"
#include "services/dbus/SdBus.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace {
constexpr char usage[] =
    "Usage: tessivad [OPTION]...\n"
    "Serves org.tessiva.Authentication1 on D-Bus with a hosted authentication service.\n"
    "\n"
    "  --system                the system bus, for deployment (the default for root)\n"
    "  --session               the session bus (the default for other users)\n"
    "  --address ADDRESS       the bus at ADDRESS (as in DBUS_SESSION_BUS_ADDRESS)\n"
    "  --service NAME          the hosted service: system, or pam (PAM and the\n"
    "                          fingerprint reader; the default on the system bus),\n"
    "                          or simulated (the default elsewhere; refused on the\n"
    "                          system bus, where its one passcode would let anyone in)\n"
    "  --pam-service NAME      the PAM service that judges passcodes (tessiva)\n"
    "  --idle-seconds N        how long a context outlives its last client (300; 0: not at all)\n"
    "  --max-contexts N        contexts per user (64)\n"
    "  --max-evaluations N     evaluations in flight per user (8)\n"
    "  --max-pending N         calls awaiting a reply per user (64)\n"
    "  --threads N             service threads; one user gets half at most (16)\n"
    "  --answer-timeout N      seconds a user has to answer an evaluation (300)\n"
    "  --deny N                failed attempts of a user before a lockout (3)\n"
    "  --fail-interval N       seconds in which those failures count (900)\n"
    "  --unlock-time N         seconds a lockout lasts (600)\n"
    "  --fail-delay-ms N       milliseconds before a user's next attempt after a\n"
    "                          failure (2000)\n"
    "  -h, --help              this text\n"
    "      --version           the version\n"
    "\n"
    "With pam, each caller authenticates as the user the bus reports for it.\n"
    "Each authentication is logged to standard error (the journal under systemd).\n"
    "\n"
    "Prints \"tessivad: ready\" on standard output once it owns its name; ends on\n"
    "SIGTERM or SIGINT, or when the bus goes. Exit status: 0 ended, 1 failed, 2 bad usage.\n";

struct Options {
    tessiva::detail::bus::BusAddress bus;
    tessiva::daemon::HostedServiceOptions service;
    tessiva::daemon::DaemonLimits limits;
};

int badUsage(const std::string& problem) {
    std::fprintf(stderr, "tessivad: %s\nTry 'tessivad --help' for more information.\n",
                 problem.c_str());
    return 2;
}

bool number(const char* text, std::size_t& value, std::size_t least) {
    char* end = nullptr;
    const unsigned long long parsed = std::strtoull(text, &end, 10);
    if (*text < '0' || *text > '9' || *end != '\0' || parsed < least || parsed > 100000000ull)
        return false;
    value = std::size_t(parsed);
    return true;
}

// Help and version end the program here, so that a full disk is an error
// rather than a silent success.
int closeStdout() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || std::fclose(stdout) != 0) {
        const int error = errno;
        std::fprintf(stderr, "tessivad: write error%s%s\n", error ? ": " : "",
                     error ? std::strerror(error) : "");
        return 1;
    }
    return 0;
}

int fail(const char* what, int result) {
    std::fprintf(stderr, "tessivad: %s: %s\n", what, std::strerror(-result));
    return 1;
}

// Another process owns the name: says so, with its pid where the bus tells.
int alreadyOwned(sd_bus* bus) {
    tessiva::detail::bus::CredsRef creds;
    pid_t pid = 0;
    if (sd_bus_get_name_creds(bus, tessiva::detail::bus::busName, SD_BUS_CREDS_PID, creds.put()) >=
            0 &&
        sd_bus_creds_get_pid(creds.get(), &pid) >= 0 && pid > 0)
        std::fprintf(stderr,
                     "tessivad: %s is already owned on this bus by pid %d (another tessivad is "
                     "running?)\n",
                     tessiva::detail::bus::busName, int(pid));
    else
        std::fprintf(stderr,
                     "tessivad: %s is already owned on this bus (another tessivad is running?)\n",
                     tessiva::detail::bus::busName);
    return 1;
}

// The long options; each value is the short code getopt_long returns.
enum Option : int {
    optSystem = 256,
    optSession,
    optAddress,
    optService,
    optPamService,
    optIdleSeconds,
    optMaxContexts,
    optMaxEvaluations,
    optMaxPending,
    optThreads,
    optAnswerTimeout,
    optDeny,
    optFailInterval,
    optUnlockTime,
    optFailDelayMs,
    optVersion,
};
constexpr option longOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, optVersion},
    {"system", no_argument, nullptr, optSystem},
    {"session", no_argument, nullptr, optSession},
    {"address", required_argument, nullptr, optAddress},
    {"service", required_argument, nullptr, optService},
    {"pam-service", required_argument, nullptr, optPamService},
    {"idle-seconds", required_argument, nullptr, optIdleSeconds},
    {"max-contexts", required_argument, nullptr, optMaxContexts},
    {"max-evaluations", required_argument, nullptr, optMaxEvaluations},
    {"max-pending", required_argument, nullptr, optMaxPending},
    {"threads", required_argument, nullptr, optThreads},
    {"answer-timeout", required_argument, nullptr, optAnswerTimeout},
    {"deny", required_argument, nullptr, optDeny},
    {"fail-interval", required_argument, nullptr, optFailInterval},
    {"unlock-time", required_argument, nullptr, optUnlockTime},
    {"fail-delay-ms", required_argument, nullptr, optFailDelayMs},
    {nullptr, 0, nullptr, 0},
};

// The smallest value each numeric option takes.
std::size_t leastValue(int code) {
    switch (code) {
    case optIdleSeconds:
    case optUnlockTime:
    case optFailDelayMs:
        return 0;
    default:
        return 1;
    }
}
} // namespace

int main(int argc, char** argv) {
    Options options;
    bool busChosen = false;
    opterr = 0; // the messages below say it in tessivad's own words
    for (;;) {
        int longIndex = -1;
        const int code = getopt_long(argc, argv, ":h", longOptions, &longIndex);
        if (code == -1)
            break;
        const char* value = optarg;
        std::size_t count = 0;
        if (code >= optIdleSeconds && code <= optFailDelayMs &&
            !number(value, count, leastValue(code)))
            return badUsage("invalid value '" + std::string(value) + "' for '--" +
                            longOptions[longIndex].name + "'");
        switch (code) {
        case 'h':
            std::fputs(usage, stdout);
            return closeStdout();
        case optVersion:
            std::printf("tessivad %s\n", TESSIVA_VERSION);
            return closeStdout();
        case optSession:
            options.bus.kind = tessiva::detail::bus::BusAddress::Kind::session;
            busChosen = true;
            break;
        case optSystem:
            options.bus.kind = tessiva::detail::bus::BusAddress::Kind::system;
            busChosen = true;
            break;
        case optAddress:
            options.bus.kind = tessiva::detail::bus::BusAddress::Kind::address;
            options.bus.address = value;
            busChosen = true;
            break;
        case optService:
            options.service.name = value;
            break;
        case optPamService:
            options.service.pam.service = value;
            break;
        case optIdleSeconds:
            options.limits.idleTime = std::chrono::seconds(count);
            break;
        case optMaxContexts:
            options.limits.contextsPerUser = count;
            break;
        case optMaxEvaluations:
            options.limits.evaluationsPerUser = count;
            break;
        case optMaxPending:
            options.limits.pendingPerUser = count;
            break;
        case optThreads:
            options.limits.threads = count;
            break;
        case optAnswerTimeout:
            options.limits.answerTimeout = std::chrono::seconds(count);
            break;
        case optDeny:
            options.limits.attempts.deny = unsigned(count);
            break;
        case optFailInterval:
            options.limits.attempts.failInterval = std::chrono::seconds(count);
            break;
        case optUnlockTime:
            options.limits.attempts.unlockTime = std::chrono::seconds(count);
            break;
        case optFailDelayMs:
            options.limits.attempts.failDelay = std::chrono::milliseconds(count);
            break;
        case ':':
            return badUsage("option '" + std::string(argv[optind - 1]) + "' requires an argument");
        default:
            if (optopt != 0)
                return badUsage(std::string("invalid option -- '") + char(optopt) + "'");
            return badUsage("unrecognized option '" + std::string(argv[optind - 1]) + "'");
        }
    }
    if (optind < argc)
        return badUsage("unexpected argument '" + std::string(argv[optind]) + "'");
    // Root serves the system bus unless told otherwise: that is where a root
    // daemon is deployed, and root has no session bus.
    if (!busChosen && geteuid() == 0)
        options.bus.kind = tessiva::detail::bus::BusAddress::Kind::system;
    // Chosen before connecting when --system says where the daemon serves,
    // so that a refusal needs no bus; otherwise once the bus can be asked.
    using Kind = tessiva::detail::bus::BusAddress::Kind;
    std::string problem;
    std::unique_ptr<tessiva::daemon::HostedServices> services;
    if (options.bus.kind == Kind::system &&
        !(services = tessiva::daemon::hostedServicesNamed(options.service, true, problem)))
        return badUsage(problem);

    // Blocked before any thread starts, so that only the loop takes them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    // Shared with replies the service may give after the daemon has gone.
    const auto shared = std::make_shared<tessiva::detail::bus::EventLoop>();
    tessiva::detail::bus::EventLoop& loop = *shared;
    tessiva::detail::bus::BusRef bus;
    if (int result = tessiva::detail::bus::connectToBus(options.bus, &loop, bus); result < 0)
        return fail(options.bus.kind == Kind::system    ? "cannot connect to the system bus"
                    : options.bus.kind == Kind::session ? "cannot connect to the session bus"
                                                        : "cannot connect to the bus at --address",
                    result);
    if (!services &&
        !(services = tessiva::daemon::hostedServicesNamed(
              options.service, tessiva::detail::bus::reachesSystemBus(bus.get()), problem)))
        return badUsage(problem);
    // The daemon goes before the connection it serves on.
    tessiva::daemon::Daemon daemon(shared, bus.get(), std::move(services), options.limits);
    int result = 0;
    if ((result = daemon.start()) < 0 ||
        (result = sd_bus_set_exit_on_disconnect(bus.get(), 1)) < 0 ||
        (result = sd_event_add_signal(loop.event(), nullptr, SIGTERM, nullptr, nullptr)) < 0 ||
        (result = sd_event_add_signal(loop.event(), nullptr, SIGINT, nullptr, nullptr)) < 0)
        return fail("cannot serve", result);
    if ((result = sd_bus_request_name(bus.get(), tessiva::detail::bus::busName, 0)) == -EEXIST)
        return alreadyOwned(bus.get());
    if (result < 0)
        return fail("cannot own org.tessiva.Authentication1", result);
    std::printf("tessivad: ready\n");
    std::fflush(stdout);
    result = loop.run();
    return result < 0 ? fail("the loop failed", result) : 0;
}
