// SPDX-License-Identifier: MIT
// One policy evaluation through tessivad against the same evaluation of the
// simulated service in process, and the daemon's throughput with several
// client connections at once (one per thread, each its own KVBusService: to
// the daemon, as many client processes). The daemon runs on a private
// dbus-daemon that the benchmark starts.
#include "DaemonClient.h"
#include "tessiva/kavelin/KVSimulatedService.h"

#include <benchmark/benchmark.h>

namespace {
using tessiva::bench::connectClient;
using tessiva::bench::Spawned;

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

void evaluate(const ObRef<KVClient>& client, benchmark::State& state) {
    if (!tessiva::bench::evaluate(client))
        state.SkipWithError("the evaluation failed");
}

void BM_Evaluation_InProcess(benchmark::State& state) {
    const ObRef<KVClient> client = connectClient(KVSimulatedService::make());
    for (auto _ : state)
        evaluate(client, state);
}
BENCHMARK(BM_Evaluation_InProcess)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Evaluations through the daemon, on a connection and context of this
// thread's own.
void evaluateThroughDaemon(benchmark::State& state) {
    const ObRef<KVClient> client = tessiva::bench::connectToDaemon(Daemon::shared().bus.firstLine);
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
