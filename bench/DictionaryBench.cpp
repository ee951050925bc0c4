// Building a six-entry dictionary and reading every entry back: the object
// library against a widely used JSON library's object type. Each side uses
// its own idiom for literal keys: constant strings here, string literals there.
#include "AllocationCounter.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObString.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

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

} // namespace

BENCHMARK(buildAndRead<readOurs>)->Name("SixEntryDictionary/ours");
BENCHMARK(buildAndRead<readJSON>)->Name("SixEntryDictionary/baseline");
