// SPDX-License-Identifier: MIT
// Building a six-entry dictionary and reading every entry back: the object
// library against a widely used JSON library's object type. Each side uses
// its own idiom for literal keys: constant strings here, string literals there.
// And a dictionary of number keys aimed at one probe run, as a peer sending
// them could aim them were a slot a fixed function of the hash, against as
// many consecutive numbers.
#include "AllocationCounter.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObString.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>
#include <vector>

namespace {
using namespace tessiva::bench;

OB_CONSTANT_STRING(timeoutKey, "Timeout");
OB_CONSTANT_STRING(nonInteractiveKey, "NonInteractive");
OB_CONSTANT_STRING(fallbackKey, "Cancel2");
OB_CONSTANT_STRING(maxFailuresKey, "MaxPasscodeFailures");
OB_CONSTANT_STRING(callerPIDKey, "CallerPID");
OB_CONSTANT_STRING(appActionKey, "AppAction");
OB_CONSTANT_STRING(fallbackTitle, "Use Passcode");
OB_CONSTANT_STRING(appAction, "Unlock");

// Readers check the kind, as the JSON library's typed reads do.
ObInteger integerAt(const ObDictionary& dictionary, const ObObject* key) {
    const ObRef<ObNumber> number = ob_cast<ObNumber>(dictionary.objectForKey(key));
    return number ? number->integerValue() : -1;
}
ObInteger lengthAt(const ObDictionary& dictionary, const ObObject* key) {
    const ObRef<ObString> string = ob_cast<ObString>(dictionary.objectForKey(key));
    return string ? static_cast<ObInteger>(string->length()) : -1;
}

// Numbers vary with the iteration, as values computed at run time do.
ObInteger readOurs(ObInteger seed) {
    const ObRef<ObDictionary> dictionary = ObDictionary::make({
        {&timeoutKey, ObNumber::make(seed)},
        {&nonInteractiveKey, ObNumber::makeBool(false)},
        {&fallbackKey, &fallbackTitle},
        {&maxFailuresKey, ObNumber::make(3)},
        {&callerPIDKey, ObNumber::make(seed + 1)},
        {&appActionKey, &appAction},
    });
    return integerAt(*dictionary, &timeoutKey) + integerAt(*dictionary, &nonInteractiveKey) +
           lengthAt(*dictionary, &fallbackKey) + integerAt(*dictionary, &maxFailuresKey) +
           integerAt(*dictionary, &callerPIDKey) + lengthAt(*dictionary, &appActionKey);
}

ObInteger readJSON(ObInteger seed) {
    nlohmann::json dictionary;
    dictionary["Timeout"] = seed;
    dictionary["NonInteractive"] = false;
    dictionary["Cancel2"] = "Use Passcode";
    dictionary["MaxPasscodeFailures"] = 3;
    dictionary["CallerPID"] = seed + 1;
    dictionary["AppAction"] = "Unlock";
    ObInteger sum = 0;
    sum += dictionary.at("Timeout").get<ObInteger>();
    sum += dictionary.at("NonInteractive").get<bool>() ? 1 : 0;
    sum += static_cast<ObInteger>(dictionary.at("Cancel2").get_ref<const std::string&>().size());
    sum += dictionary.at("MaxPasscodeFailures").get<ObInteger>();
    sum += dictionary.at("CallerPID").get<ObInteger>();
    sum += static_cast<ObInteger>(dictionary.at("AppAction").get_ref<const std::string&>().size());
    return sum;
}

template <ObInteger (*Read)(ObInteger)> void buildAndRead(benchmark::State& state) {
    if (Read(30) != readJSON(30)) {
        state.SkipWithError("the two sides read different values");
        return;
    }
    ObInteger seed = 0;
    AllocationProbe allocations(state);
    for (auto _ : state) {
        ObInteger sum = Read(++seed);
        benchmark::DoNotOptimize(sum);
    }
    allocations.finish();
}

// As many keys as a message of some 64 KiB holds.
constexpr ObUInteger numberKeyCount = 4096;

// The inverse of an odd number modulo the word (each step doubles the bits
// that are right).
constexpr ObUInteger inverse(ObUInteger odd) {
    ObUInteger result = odd;
    for (int step = 0; step < 6; ++step)
        result *= 2 - odd * result;
    return result;
}

// A number's hash is (v ^ v >> half) * numberGolden, and a fixed placement
// would take the top bits of hash * slotGolden. Keys whose product is 1, 2,
// 3... share their top bits, and so one home slot, at every table size.
constexpr ObUInteger numberGolden = static_cast<ObUInteger>(0x9E3779B97F4A7C15ULL);
constexpr ObUInteger slotGolden = sizeof(ObUInteger) == 8
                                      ? static_cast<ObUInteger>(0x9E3779B97F4A7C15ULL)
                                      : static_cast<ObUInteger>(0x9E3779B9UL);
constexpr int halfWord = sizeof(ObUInteger) * 4;

std::vector<ObDictionary::Entry> aimedKeys() {
    std::vector<ObDictionary::Entry> entries;
    for (ObUInteger product = 1; product <= numberKeyCount; ++product) {
        const ObUInteger folded = product * inverse(slotGolden) * inverse(numberGolden);
        const auto value = static_cast<ObInteger>(folded ^ folded >> halfWord);
        entries.emplace_back(ObNumber::make(value), ObNumber::makeBool(true));
    }
    return entries;
}

std::vector<ObDictionary::Entry> consecutiveKeys() {
    std::vector<ObDictionary::Entry> entries;
    for (ObUInteger value = 1; value <= numberKeyCount; ++value)
        entries.emplace_back(ObNumber::make(static_cast<ObInteger>(value)),
                             ObNumber::makeBool(true));
    return entries;
}

template <std::vector<ObDictionary::Entry> (*Keys)()>
void buildFromNumbers(benchmark::State& state) {
    const std::vector<ObDictionary::Entry> entries = Keys();
    const std::vector<ObDictionary::Entry> aimed = aimedKeys();
    for (ObUInteger index = 0; index < numberKeyCount; ++index) {
        if (aimed[index].first->hash() * slotGolden != index + 1) {
            state.SkipWithError("the keys are not aimed at one slot");
            return;
        }
    }
    AllocationProbe allocations(state);
    for (auto _ : state) {
        const ObRef<ObDictionary> dictionary = ObDictionary::make(entries);
        benchmark::DoNotOptimize(dictionary.get());
    }
    allocations.finish();
}

} // namespace

BENCHMARK(buildAndRead<readOurs>)->Name("SixEntryDictionary/ours");
BENCHMARK(buildAndRead<readJSON>)->Name("SixEntryDictionary/baseline");
BENCHMARK(buildFromNumbers<aimedKeys>)->Name("AimedNumberKeys/ours");
BENCHMARK(buildFromNumbers<consecutiveKeys>)->Name("AimedNumberKeys/baseline");
