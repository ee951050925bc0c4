// Each single-name translation, against a lookup of the same text in a
// standard hash map of the same rows; and a constant's retain and release.
#include "AllocationCounter.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"

#include <benchmark/benchmark.h>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {
using namespace tessiva::bench;

using Rows = std::vector<std::pair<const char*, ObInteger>>;

// The distinct texts of each table, with their numbers.
const Rows policyRows = {{"", 1007},
                         {"DeviceOwnerAuthenticated", 1000},
                         {"DeviceOwnerAuthenticatedWithBiometrics", 1},
                         {"DeviceOwnerConsentRidgescanPreferred", 1002}};
const Rows optionRows = {{"AppAction", 2},
                         {"CallerPID", 1002},
                         {"EventProcessing", 1007},
                         {"MaxPasscodeFailures", 1004},
                         {"MaxRidgescanFailures", 1003},
                         {"NonInteractive", 1000},
                         {"Timeout", 1001},
                         {"Cancel2", 1},
                         {"PresentationStyle", 1005},
                         {"TransitionStyle", 1006},
                         {"LightPasscodeScreen", 1008},
                         {"PassphraseFirst", 1012},
                         {"PINTitle", 1013},
                         {"PINLength", 1014}};
const Rows eventRows = {
    {"EventRidgescan", 1}, {"EventPasscode", 2}, {"EventConsent", 3}, {"EventPassphrase", 4}};
const Rows resultRows = {{"UsedRidgescan", 1},
                         {"RidgescanIdentity", 2},
                         {"UsedPasscode", 3},
                         {"UsedYesNo", 4},
                         {"UsedPassphrase", 5}};

ObInteger policy(const ObRef<ObString>& name) {
    return KVLegacyHelper::policyFromVRPolicy(name);
}
ObInteger option(const ObRef<ObString>& name) {
    ObRef<ObError> error;
    return KVLegacyHelper::optionFromVRHint_error(name, &error);
}
ObInteger event(const ObRef<ObString>& name) {
    return KVLegacyHelper::eventFromVREvent(name);
}
ObInteger result(const ObRef<ObString>& name) {
    return KVLegacyHelper::resultFromVRResult(name);
}

// The caller's own string, equal in text to the table's key but another
// object, so that the lookup compares text and not identity.
void translate(benchmark::State& state, ObInteger (*translation)(const ObRef<ObString>&),
               const char* text, ObInteger expected) {
    const ObRef<ObString> name = ObString::make(text);
    if (translation(name) != expected) {
        state.SkipWithError("wrong number");
        return;
    }
    AllocationProbe allocations(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(name.get());
        ObInteger number = translation(name);
        benchmark::DoNotOptimize(number);
    }
    allocations.finish();
}

void lookUp(benchmark::State& state, const Rows& rows, const char* text, ObInteger expected) {
    std::unordered_map<std::string, ObInteger> map;
    for (const auto& [key, number] : rows)
        map.emplace(key, number);
    const std::string name = text;
    AllocationProbe allocations(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(name.data());
        const auto found = map.find(name);
        ObInteger number = found == map.end() ? 0 : found->second;
        benchmark::DoNotOptimize(number);
    }
    allocations.finish();
    if (map.at(name) != expected)
        state.SkipWithError("wrong number");
}

void ConstantRetainRelease(benchmark::State& state) {
    AllocationProbe allocations(state);
    for (auto _ : state) {
        ObRef<ObString> share(VRHintTimeout);
        benchmark::DoNotOptimize(share.get());
    }
    allocations.finish();
}

} // namespace

BENCHMARK_CAPTURE(translate, policy, policy, "DeviceOwnerAuthenticated", 1000)
    ->Name("PolicyName/ours");
BENCHMARK_CAPTURE(lookUp, policy, policyRows, "DeviceOwnerAuthenticated", 1000)
    ->Name("PolicyName/baseline");
BENCHMARK_CAPTURE(translate, option, option, "MaxPasscodeFailures", 1004)->Name("HintName/ours");
BENCHMARK_CAPTURE(lookUp, option, optionRows, "MaxPasscodeFailures", 1004)
    ->Name("HintName/baseline");
BENCHMARK_CAPTURE(translate, event, event, "EventPasscode", 2)->Name("EventName/ours");
BENCHMARK_CAPTURE(lookUp, event, eventRows, "EventPasscode", 2)->Name("EventName/baseline");
BENCHMARK_CAPTURE(translate, result, result, "UsedPasscode", 3)->Name("ResultName/ours");
BENCHMARK_CAPTURE(lookUp, result, resultRows, "UsedPasscode", 3)->Name("ResultName/baseline");
BENCHMARK(ConstantRetainRelease)->Name("ConstantRetainRelease");
