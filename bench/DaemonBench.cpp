// One policy evaluation through tessivad against the same evaluation of the
// simulated service in process, and the daemon's throughput with several
// client connections at once (one per thread, each its own KVBusService: to
// the daemon, as many client processes). The daemon runs on a private
// dbus-daemon that the benchmark starts.
#include "tessiva/kavelin/KVBusService.h"
#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/object/Ob.h"

#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdio>
#include <future>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {
// Answers each active passcode event with the right passcode at once.
class AnsweringDelegate final : public KVUIDelegate {
public:
    void event_params_reply(ObInteger, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override {
        auto active = ob_cast<ObNumber>(params->objectForKey(ObNumber::make(0)));
        if (active && active->boolValue())
            reply(ObDictionary::make({{ObNumber::make(0), ObString::make("1234")}}), nullptr);
    }
};

// A process whose first line of output the benchmark reads.
struct Spawned {
    pid_t pid = -1;
    std::string firstLine;
    Spawned(std::vector<std::string> argv) {
        int out[2];
        if (pipe(out) != 0)
            throw std::runtime_error("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        std::vector<char*> args;
        for (auto& arg : argv)
            args.push_back(arg.data());
        args.push_back(nullptr);
        if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) != 0)
            throw std::runtime_error("cannot start " + argv[0]);
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        char c = 0;
        while (read(out[0], &c, 1) == 1 && c != '\n')
            firstLine.push_back(c);
        close(out[0]);
    }
    ~Spawned() {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
};

// The private bus and the daemon, for the whole run.
struct Daemon {
    Spawned bus{{TESSIVA_DBUS_DAEMON, "--config-file=" TESSIVA_BUS_CONFIG, "--nofork",
                 "--print-address=1"}};
    Spawned daemon{{TESSIVA_DAEMON, "--address", bus.firstLine}};
    static Daemon& shared() {
        static Daemon running;
        return running;
    }
};

ObRef<KVClient> connect(const ObRef<KVClientBackend>& backend) {
    ObRef<KVClient> client;
    backend->clientWithExternalizedContext_uiDelegate_reply(
        nullptr, ObMake<AnsweringDelegate>(),
        [&](ObRef<KVClient> made, ObRef<ObError>) { client = made; });
    return client;
}

void evaluate(const ObRef<KVClient>& client, benchmark::State& state) {
    std::promise<bool> done;
    client->evaluatePolicy_options_reply(
        1000, nullptr, [&](auto, ObRef<ObError> error) { done.set_value(!error); });
    if (!done.get_future().get())
        state.SkipWithError("the evaluation failed");
}

ObRef<KVClientBackend> busBackend() {
    return KVBusService::make(ObString::make(Daemon::shared().bus.firstLine));
}

void BM_Evaluation_InProcess(benchmark::State& state) {
    const ObRef<KVClient> client = connect(KVSimulatedService::make());
    for (auto _ : state)
        evaluate(client, state);
}
BENCHMARK(BM_Evaluation_InProcess)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Evaluations through the daemon, on a connection and context of this
// thread's own.
void evaluateThroughDaemon(benchmark::State& state) {
    const ObRef<KVClient> client = connect(busBackend());
    if (!client) {
        state.SkipWithError("the daemon cannot be reached");
        return;
    }
    for (auto _ : state)
        evaluate(client, state);
    client->invalidate();
}

void BM_Evaluation_ThroughDaemon(benchmark::State& state) {
    evaluateThroughDaemon(state);
}
BENCHMARK(BM_Evaluation_ThroughDaemon)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Each thread is one client connection with a context of its own; the
// items per second are the daemon's evaluations per second.
void BM_DaemonThroughput(benchmark::State& state) {
    evaluateThroughDaemon(state);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DaemonThroughput)->ThreadRange(1, 8)->UseRealTime()->Unit(benchmark::kMicrosecond);
} // namespace
