// tessivad: the authentication daemon. It hosts a service and serves client
// processes on D-Bus under org.tessiva.Authentication1.
#include "Daemon.h"
#include "HostedService.h"
#include "services/dbus/BusConnect.h"
#include "services/dbus/BusInterface.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace {
constexpr char usage[] =
    "Usage: tessivad [OPTION]...\n"
    "Serves org.tessiva.Authentication1 on D-Bus with a hosted authentication service.\n"
    "\n"
    "  --session               the session bus (the default)\n"
    "  --system                the system bus, for deployment\n"
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
    "  --help                  this text\n"
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
    std::fprintf(stderr, "tessivad: %s\nTry 'tessivad --help' for more.\n", problem.c_str());
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

int fail(const char* what, int result) {
    std::fprintf(stderr, "tessivad: %s: %s\n", what, std::strerror(-result));
    return 1;
}
} // namespace

int main(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        const bool hasValue = i + 1 < argc;
        std::size_t value = 0;
        if (argument == "--help") {
            std::fputs(usage, stdout);
            return 0;
        } else if (argument == "--session") {
            options.bus.kind = tessiva::detail::bus::BusAddress::Kind::session;
        } else if (argument == "--system") {
            options.bus.kind = tessiva::detail::bus::BusAddress::Kind::system;
        } else if (argument == "--address" && hasValue) {
            options.bus.kind = tessiva::detail::bus::BusAddress::Kind::address;
            options.bus.address = argv[++i];
        } else if (argument == "--service" && hasValue) {
            options.service.name = argv[++i];
        } else if (argument == "--pam-service" && hasValue) {
            options.service.pam.service = argv[++i];
        } else if (argument == "--idle-seconds" && hasValue && number(argv[++i], value, 0)) {
            options.limits.idleTime = std::chrono::seconds(value);
        } else if (argument == "--max-contexts" && hasValue && number(argv[++i], value, 1)) {
            options.limits.contextsPerUser = value;
        } else if (argument == "--max-evaluations" && hasValue && number(argv[++i], value, 1)) {
            options.limits.evaluationsPerUser = value;
        } else if (argument == "--max-pending" && hasValue && number(argv[++i], value, 1)) {
            options.limits.pendingPerUser = value;
        } else if (argument == "--threads" && hasValue && number(argv[++i], value, 1)) {
            options.limits.threads = value;
        } else if (argument == "--answer-timeout" && hasValue && number(argv[++i], value, 1)) {
            options.limits.answerTimeout = std::chrono::seconds(value);
        } else if (argument == "--deny" && hasValue && number(argv[++i], value, 1)) {
            options.limits.attempts.deny = unsigned(value);
        } else if (argument == "--fail-interval" && hasValue && number(argv[++i], value, 1)) {
            options.limits.attempts.failInterval = std::chrono::seconds(value);
        } else if (argument == "--unlock-time" && hasValue && number(argv[++i], value, 0)) {
            options.limits.attempts.unlockTime = std::chrono::seconds(value);
        } else if (argument == "--fail-delay-ms" && hasValue && number(argv[++i], value, 0)) {
            options.limits.attempts.failDelay = std::chrono::milliseconds(value);
        } else {
            return badUsage("bad argument '" + std::string(argument) + "'");
        }
    }
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
        return fail("cannot connect to the bus", result);
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
    if ((result = sd_bus_request_name(bus.get(), tessiva::detail::bus::busName, 0)) < 0)
        return fail("cannot own org.tessiva.Authentication1", result);
    std::printf("tessivad: ready\n");
    std::fflush(stdout);
    result = loop.run();
    return result < 0 ? fail("the loop failed", result) : 0;
}
