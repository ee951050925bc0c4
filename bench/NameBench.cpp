// SPDX-License-Identifier: MIT
// Each single-name translation, against a lookup of the same text in a
// standard hash map of the same rows; and a constant's retain and release.
#include "AllocationCounter.h"
#include "NameRows.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"

#include <benchmark/benchmark.h>
#include <string>
#include <unordered_map>

namespace {
using namespace tessiva::bench;

using Rows = NameRows;

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

// Either the exported constant, which the table holds itself, or the
// caller's own string of the same text, another object, so that the lookup
// must compare text and not identity.
enum class Name { Constant, OwnString };

// The translation is a template argument, so that it is called directly, as
// the map's lookup is.
template <ObInteger (*translation)(const ObRef<ObString>&)>
void translate(benchmark::State& state, ObString* constant, Name kind, ObInteger expected) {
    const ObRef<ObString> name =
        kind == Name::Constant ? ObRef<ObString>(constant) : ObString::make(constant->text());
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

// The rows come by address: they are read when the benchmark runs, after
// every file's static initialisers, not when it is registered in one of them.
void lookUp(benchmark::State& state, const Rows* rows, const ObString* text, ObInteger expected) {
    std::unordered_map<std::string, ObInteger> map;
    for (const auto& [key, number] : *rows)
        map.emplace(key, number);
    const std::string name(text->text());
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

// This build's policy constants all hold "", which the table keeps as 1007;
// a caller's own policy name is a text such as "DeviceOwnerAuthenticated".
OB_CONSTANT_STRING(deviceOwnerAuthenticated, "DeviceOwnerAuthenticated");

// One pair: the translation of a name, and the map lookup of its text.
template <ObInteger (*translation)(const ObRef<ObString>&)>
void registerPair(const std::string& pair, const Rows& rows, ObString* name, Name kind,
                  ObInteger expected) {
    benchmark::RegisterBenchmark((pair + "/ours").c_str(), translate<translation>, name, kind,
                                 expected);
    benchmark::RegisterBenchmark((pair + "/baseline").c_str(), lookUp, &rows, name, expected);
}

const bool registered = [] {
    registerPair<policy>("PolicyName", policyRows, &deviceOwnerAuthenticated, Name::OwnString,
                         1000);
    registerPair<option>("HintName", optionRows, VRHintMaxPasscodeFailures, Name::OwnString, 1004);
    registerPair<event>("EventName", eventRows, VREventPasscode, Name::OwnString, 2);
    registerPair<result>("ResultName", resultRows, VRResultTagUsedPasscode, Name::OwnString, 3);
    registerPair<policy>("PolicyConstant", policyRows, VRPolicyDeviceOwnerAuthenticated,
                         Name::Constant, 1007);
    registerPair<option>("HintConstant", optionRows, VRHintMaxPasscodeFailures, Name::Constant,
                         1004);
    registerPair<event>("EventConstant", eventRows, VREventPasscode, Name::Constant, 2);
    registerPair<result>("ResultConstant", resultRows, VRResultTagUsedPasscode, Name::Constant, 3);
    return true;
}();

} // namespace

BENCHMARK(ConstantRetainRelease)->Name("ConstantRetainRelease");
