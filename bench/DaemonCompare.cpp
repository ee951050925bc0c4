// SPDX-License-Identifier: MIT
// tessiva_daemon_compare: one passcode evaluation through tessivad set beside
// one raw round trip on the same private bus (Ping to tessiva_bus_ping), in
// latency, CPU time per operation (client, bus and server together) and
// throughput with 1 to 8 client connections. Prints a table of the ratios,
// and what tessivad's resident memory grows by per idle connection and per
// idle context.
//
//   tessiva_daemon_compare [--log FILE]            # on a private dbus-daemon
//   tessiva_daemon_compare --broker [--log FILE]   # on dbus-broker (dbus-broker-launch)
//
// On a machine without a journal, --broker takes root (see BrokerBus.h). The
// processes' errors, tessivad's log line per authentication among them, go to
// FILE (/dev/null when none is named); so does dbus-broker's log where there
// is no journal to take it.
#include "DaemonClient.h"
#include "PingNames.h"
#include "bus/BrokerBus.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
#include <sstream>
#include <string_view>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {
using namespace tessiva::bench;
using tessiva::test::BrokerBus;
using Clock = std::chrono::steady_clock;
using Operation = std::function<bool()>;
// Makes one client connection's operation; each thread calls it once.
using Connect = std::function<Operation()>;

constexpr int warmUp = 200, iterations = 2000, rounds = 10;
constexpr auto throughputTime = std::chrono::seconds(1);

double tickCpu(const std::string& root);

// CPU seconds of a process and of the processes below it (dbus-broker-launch
// runs the broker as its child): from each thread's schedstat, in
// nanoseconds, where the kernel has it; else from stat, in clock ticks,
// which are too coarse for a few thousand operations of a few microseconds.
double processCpu(pid_t pid) {
    const std::string root = "/proc/" + std::to_string(pid);
    double seconds = 0;
    std::ifstream children(root + "/task/" + std::to_string(pid) + "/children");
    for (pid_t child = 0; children >> child;)
        seconds += processCpu(child);
    std::error_code error;
    bool scheduled = false;
    for (const auto& task : std::filesystem::directory_iterator(root + "/task", error)) {
        std::ifstream schedstat(task.path() / "schedstat");
        double nanoseconds = 0;
        if (schedstat >> nanoseconds) {
            seconds += nanoseconds / 1e9;
            scheduled = true;
        }
    }
    return scheduled ? seconds : seconds + tickCpu(root);
}

double tickCpu(const std::string& root) {
    std::ifstream stat(root + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    // Fields 14 and 15, utime and stime, counted after the name's ")".
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string skip;
    for (int field = 3; field < 14; ++field)
        fields >> skip;
    double utime = 0, stime = 0;
    fields >> utime >> stime;
    return (utime + stime) / double(sysconf(_SC_CLK_TCK));
}

double ownCpu() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& time) { return double(time.tv_sec) + time.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Figures {
    double median = 0, p99 = 0; // microseconds of wall time per operation
    double cpu = 0;             // microseconds of CPU time per operation
    double cpuParts[3] = {};    // of it: the client, the bus, the server
    std::vector<double> perSecond;
    double loadedCpuParts[3] = {}; // CPU per operation with the most connections
};

// One way to the server: how to connect, and the process answering
// (besides the bus).
struct Path {
    Connect connect;
    pid_t server;
};

// CPU seconds so far of the client (this process), the bus and the server.
std::array<double, 3> cpuNow(pid_t bus, pid_t server) {
    return {ownCpu(), processCpu(bus), processCpu(server)};
}

// `count` operations over one connection: their latencies appended to
// `times`, their CPU time (client, bus, server) added to `cpuParts`.
void timeOperations(const Operation& operation, int count, pid_t bus, pid_t server,
                    std::vector<double>& times, double (&cpuParts)[3]) {
    const auto before = cpuNow(bus, server);
    for (int i = 0; i < count; ++i) {
        const auto start = Clock::now();
        if (!operation())
            throw std::runtime_error("an operation failed");
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    const auto after = cpuNow(bus, server);
    for (int part = 0; part < 3; ++part)
        cpuParts[part] += after[part] - before[part];
}

// Operations per second with `connections` connections at once; their CPU
// time per operation (client, bus, server) in `cpuParts`.
double throughput(const Connect& connect, int connections, pid_t bus, pid_t server,
                  double (&cpuParts)[3]) {
    std::atomic<bool> stop{false};
    std::atomic<long> done{0};
    std::latch ready(connections + 1);
    std::vector<std::jthread> threads;
    for (int i = 0; i < connections; ++i)
        threads.emplace_back([&] {
            const Operation own = connect();
            long count = 0;
            ready.arrive_and_wait();
            while (!stop.load(std::memory_order_relaxed) && own())
                ++count;
            done += count;
        });
    ready.arrive_and_wait();
    const auto before = cpuNow(bus, server);
    const auto start = Clock::now();
    std::this_thread::sleep_for(throughputTime);
    stop = true;
    threads.clear();
    const auto after = cpuNow(bus, server);
    for (int part = 0; part < 3; ++part)
        cpuParts[part] = (after[part] - before[part]) * 1e6 / double(done);
    return double(done) / std::chrono::duration<double>(Clock::now() - start).count();
}

// Both paths side by side, so that the machine's drift falls on both alike:
// latency and CPU time in rounds that alternate between them, then
// throughput with 1, 2, 4 and 8 connections, each count on one path and then
// the other.
std::vector<Figures> measure(const std::vector<Path>& paths, pid_t bus) {
    std::vector<Operation> operations;
    for (const Path& path : paths) {
        operations.push_back(path.connect());
        for (int i = 0; i < warmUp; ++i)
            if (!operations.back()())
                throw std::runtime_error("an operation failed");
    }
    std::vector<Figures> figures(paths.size());
    std::vector<std::vector<double>> times(paths.size());
    for (int round = 0; round < rounds; ++round)
        for (std::size_t i = 0; i < paths.size(); ++i)
            timeOperations(operations[i], iterations / rounds, bus, paths[i].server, times[i],
                           figures[i].cpuParts);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        for (double& part : figures[i].cpuParts) {
            part *= 1e6 / double(times[i].size());
            figures[i].cpu += part;
        }
        std::sort(times[i].begin(), times[i].end());
        figures[i].median = times[i][times[i].size() / 2];
        figures[i].p99 = times[i][times[i].size() * 99 / 100];
    }
    for (int connections : {1, 2, 4, 8})
        for (std::size_t i = 0; i < paths.size(); ++i)
            figures[i].perSecond.push_back(throughput(paths[i].connect, connections, bus,
                                                      paths[i].server, figures[i].loadedCpuParts));
    return figures;
}

Connect daemonPath(const std::string& address) {
    return [address] {
        ObRef<KVClient> client = connectToDaemon(address);
        if (!client)
            throw std::runtime_error("the daemon cannot be reached");
        return Operation([client] { return evaluate(client); });
    };
}

Connect rawPing(const std::string& address) {
    return [address] {
        auto bus = std::make_shared<tessiva::detail::bus::BusRef>();
        if (openBus(address.c_str(), *bus) < 0)
            throw std::runtime_error("the bus cannot be reached");
        return Operation([bus, value = std::int64_t(0)]() mutable {
            tessiva::detail::bus::BusError error;
            tessiva::detail::bus::MessageRef reply;
            std::int64_t echoed = -1;
            return sd_bus_call_method(bus->get(), pingName, pingPath, pingInterface, "Ping",
                                      error.get(), reply.put(), "x", ++value) >= 0 &&
                   sd_bus_message_read(reply.get(), "x", &echoed) >= 0 && echoed == value;
        });
    };
}

// The protocol's floor: Exchange, whose Asked signal the client answers from
// a filter, all on the calling thread as sd_bus_call would.
class RawExchange {
public:
    explicit RawExchange(const std::string& address) {
        if (openBus(address.c_str(), bus_) < 0 ||
            sd_bus_add_filter(bus_.get(), nullptr, &RawExchange::onAsked, this) < 0)
            throw std::runtime_error("the bus cannot be reached");
    }
    RawExchange(const RawExchange&) = delete;
    RawExchange& operator=(const RawExchange&) = delete;

    bool operator()() {
        using namespace tessiva::detail::bus;
        SlotRef call;
        echoed_ = -1;
        replied_ = false;
        if (sd_bus_call_method_async(bus_.get(), call.put(), pingName, pingPath, pingInterface,
                                     "Exchange", &RawExchange::onReply, this, "x", ++value_) < 0)
            return false;
        while (!replied_) {
            const int result = sd_bus_process(bus_.get(), nullptr);
            if (result < 0 || (result == 0 && sd_bus_wait(bus_.get(), UINT64_MAX) < 0))
                return false;
        }
        return echoed_ == value_;
    }

private:
    static int onAsked(sd_bus_message* signal, void* self, sd_bus_error*) {
        using namespace tessiva::detail::bus;
        std::int64_t value = 0;
        if (!sd_bus_message_is_signal(signal, pingInterface, "Asked") ||
            sd_bus_message_read(signal, "x", &value) < 0)
            return 0;
        MessageRef answer;
        sd_bus* bus = static_cast<RawExchange*>(self)->bus_.get();
        int result = sd_bus_message_new_method_call(bus, answer.put(), pingName, pingPath,
                                                    pingInterface, "Answer");
        if (result >= 0)
            result = sd_bus_message_set_expect_reply(answer.get(), 0);
        if (result >= 0)
            result = sd_bus_message_append(answer.get(), "x", value);
        if (result >= 0)
            result = sd_bus_send(bus, answer.get(), nullptr);
        return result < 0 ? result : 1;
    }
    static int onReply(sd_bus_message* reply, void* self, sd_bus_error*) {
        auto& exchange = *static_cast<RawExchange*>(self);
        exchange.replied_ = true;
        if (!sd_bus_message_is_method_error(reply, nullptr))
            sd_bus_message_read(reply, "x", &exchange.echoed_);
        return 1;
    }

    tessiva::detail::bus::BusRef bus_;
    std::int64_t value_ = 0, echoed_ = -1;
    bool replied_ = false;
};

Connect rawExchange(const std::string& address) {
    return [address] {
        auto exchange = std::make_shared<RawExchange>(address);
        return Operation([exchange] { return (*exchange)(); });
    };
}

// The bus's socket, removed when the run ends, however it ends.
struct SocketPath {
    std::string path;
    ~SocketPath() { unlink(path.c_str()); }
};

// A process's resident memory, in kB.
long residentKilobytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:"))
            return std::stol(line.substr(6));
    return 0;
}

struct IdleMemory {
    double perConnection = 0; // bytes, a connection with one client on its own context
    double perContext = 0;    // bytes, one more client on a context of its own
};

// What the daemon holds for idle clients: `count` connections with one
// client each, then `count` more clients on one connection, each on a
// context of its own.
IdleMemory idleMemory(const std::string& address, pid_t daemon) {
    constexpr int count = 200;
    IdleMemory memory;
    const long before = residentKilobytes(daemon);
    std::vector<ObRef<KVClient>> connections;
    for (int i = 0; i < count; ++i)
        if (!connections.emplace_back(connectToDaemon(address)))
            throw std::runtime_error("a connection was refused");
    const long connected = residentKilobytes(daemon);
    memory.perConnection = double(connected - before) * 1024 / count;
    const ObRef<KVBusService> one = KVBusService::make(ObString::make(address));
    std::vector<ObRef<KVClient>> contexts;
    for (int i = 0; i < count; ++i)
        if (!contexts.emplace_back(connectClient(one)))
            throw std::runtime_error("a context was refused");
    memory.perContext = double(residentKilobytes(daemon) - connected) * 1024 / count;
    for (auto* clients : {&connections, &contexts})
        for (const ObRef<KVClient>& client : *clients)
            client->invalidate();
    return memory;
}

// One measure: the daemon, the raw call and the raw exchange, with the
// ratio against the target and the two that say how much of it is the
// protocol's shape and how much the daemon's own.
void row(const char* what, const double (&value)[3], const char* unit, const char* target) {
    std::printf("| %-26s | %9.1f | %9.1f | %9.1f | %-4s | %5.2f | %-7s | %5.2f | %5.2f |\n", what,
                value[0], value[1], value[2], unit, value[0] / value[1], target,
                value[2] / value[1], value[0] / value[2]);
}
} // namespace

int main(int argc, char** argv) {
    bool broker = false;
    std::string log = "/dev/null";
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--broker") {
            broker = true;
        } else if (std::string_view(argv[i]) == "--log" && i + 1 < argc) {
            log = argv[++i];
        } else {
            std::fputs("Usage: tessiva_daemon_compare [--broker] [--log FILE]\n", stderr);
            return 2;
        }
    }
    try {
        // The bus on a socket of the run's own.
        const SocketPath socket{"/tmp/tessiva-bench-" + std::to_string(getpid())};
        std::string address = "unix:path=" + socket.path;
        std::optional<BrokerBus> brokerBus;
        std::optional<Spawned> daemonBus;
        pid_t bus = -1;
        if (broker) {
            bus = brokerBus.emplace(socket.path, TESSIVA_BUS_CONFIG, log).pid();
        } else {
            daemonBus.emplace(
                std::vector<std::string>{TESSIVA_DBUS_DAEMON, "--config-file=" TESSIVA_BUS_CONFIG,
                                         "--nofork", "--print-address=1", "--address=" + address},
                true, log);
            bus = daemonBus->pid;
            address = daemonBus->firstLine;
        }
        // Guessing limits would slow or refuse the evaluations; the benchmark
        // makes millions.
        Spawned daemon({TESSIVA_DAEMON, "--address", address, "--service", "simulated", "--deny",
                        "100000000", "--fail-delay-ms", "0", "--max-contexts", "1000"},
                       true, log);
        Spawned ping({TESSIVA_BUS_PING, address}, true, log);
        if (daemon.firstLine != "tessivad: ready" || ping.firstLine != "ready")
            throw std::runtime_error("tessivad or the ping server did not start on " + address);

        const IdleMemory memory = idleMemory(address, daemon.pid);
        const std::vector<Figures> measured = measure({{daemonPath(address), daemon.pid},
                                                       {rawPing(address), ping.pid},
                                                       {rawExchange(address), ping.pid}},
                                                      bus);
        const char* names[] = {"daemon", "raw call", "raw exchange"};

        std::printf("%s, %d operations after %d of warm-up, in %d rounds that alternate "
                    "the three paths; throughput %lld s per row\n\n",
                    broker ? "dbus-broker" : "dbus-daemon", iterations, warmUp, rounds,
                    static_cast<long long>(throughputTime.count()));
        std::printf("| %-26s | %9s | %9s | %9s | %-4s | %5s | %-7s | %5s | %5s |\n", "measure",
                    "daemon", "call", "exchange", "unit", "d/c", "target", "e/c", "d/e");
        std::printf("| %.26s | %.9s | %.9s | %.9s | %.4s | %.5s | %.7s | %.5s | %.5s |\n",
                    "----------------------------", "----------", "----------", "----------",
                    "-----", "------", "--------", "------", "------");
        const auto show = [&](const char* what, auto figure, const char* unit, const char* target) {
            const double values[3] = {figure(measured[0]), figure(measured[1]),
                                      figure(measured[2])};
            row(what, values, unit, target);
        };
        show(
            "latency, median", [](const Figures& f) { return f.median; }, "us", "<= 2.5");
        show(
            "latency, 99th percentile", [](const Figures& f) { return f.p99; }, "us", "");
        show(
            "CPU per operation", [](const Figures& f) { return f.cpu; }, "us", "<= 3");
        const int connections[] = {1, 2, 4, 8};
        for (std::size_t i = 0; i < std::size(connections); ++i) {
            const std::string what = "throughput, " + std::to_string(connections[i]) +
                                     (connections[i] == 1 ? " connection" : " connections");
            show(
                what.c_str(), [i](const Figures& f) { return f.perSecond[i]; }, "op/s",
                connections[i] == 8 ? ">= 0.40" : "");
        }
        std::printf("\nd/c: daemon against the raw call, the targets' ratio. e/c: the raw "
                    "exchange (four messages, two round trips, plain sd-bus on one thread\n"
                    "each side) against the raw call, the protocol's floor. d/e: the daemon "
                    "against that floor, what tessivad and its client add.\n");
        for (std::size_t i = 0; i < measured.size(); ++i)
            std::printf("\nCPU per operation, %s: client %.1f us, bus %.1f us, server %.1f us",
                        names[i], measured[i].cpuParts[0], measured[i].cpuParts[1],
                        measured[i].cpuParts[2]);
        for (std::size_t i = 0; i < measured.size(); ++i)
            std::printf("\nCPU per operation with 8 connections, %s: client %.1f us, bus %.1f us, "
                        "server %.1f us",
                        names[i], measured[i].loadedCpuParts[0], measured[i].loadedCpuParts[1],
                        measured[i].loadedCpuParts[2]);
        std::printf("\ntessivad's memory (resident), idle: %.0f bytes per connection with a "
                    "client and its context, %.0f bytes per further client and context\n",
                    memory.perConnection, memory.perContext);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tessiva_daemon_compare: %s\n", error.what());
        return 1;
    }
}
