// SPDX-License-Identifier: MIT
// Every measured pair: the four name translations given the library's
// constant, a caller's string and a caller's own constant, against a
// string_view map of the same rows; an evaluation whose client replies at
// once, against the direct call; the hints translation and the delegate
// proxy, against doing the same by hand.
#include "InstructionCases.h"

#include "DelegateCase.h"
#include "EvaluationCase.h"
#include "Measure.h"
#include "NameRows.h"
#include "TypicalHints.h"
#include "WorkerService.h"
#include "tessiva/DelegateProxy.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "tessiva/object/ObMake.h"

#include <benchmark/benchmark.h>
#include <string_view>
#include <unordered_map>

namespace tessiva::bench {
namespace {

// A caller's own constants, defined outside the library.
OB_CONSTANT_STRING(ownPolicy, "DeviceOwnerAuthenticated");
OB_CONSTANT_STRING(ownHint, "MaxPasscodeFailures");
OB_CONSTANT_STRING(ownEvent, "EventPasscode");
OB_CONSTANT_STRING(ownResult, "UsedPasscode");

using Translation = ObInteger (*)(const ObRef<ObString>&);

ObInteger option(const ObRef<ObString>& name) {
    ObRef<ObError> error;
    return KVLegacyHelper::optionFromVRHint_error(name, &error);
}

// A direct call, as the map's lookup is.
template <Translation translation>
std::optional<std::uint64_t> translate(const ObRef<ObString>& name, ObInteger expected,
                                       long operations) {
    if (translation(name) != expected)
        return std::nullopt;
    return measure(
        [&] {
            benchmark::DoNotOptimize(name.get());
            ObInteger number = translation(name);
            benchmark::DoNotOptimize(number);
        },
        operations);
}

std::optional<std::uint64_t> lookUp(const NameRows& rows, std::string_view text, ObInteger expected,
                                    long operations) {
    std::unordered_map<std::string_view, long> map;
    for (const auto& [key, number] : rows)
        map.emplace(key, number);
    if (map.at(text) != expected)
        return std::nullopt;
    return measure(
        [&] {
            benchmark::DoNotOptimize(text.data());
            const auto found = map.find(text);
            long number = found == map.end() ? 0 : found->second;
            benchmark::DoNotOptimize(number);
        },
        operations);
}

// One translation's three pairs: the library's constant, a caller's string
// of the own constant's text, and the own constant.
template <Translation translation>
void addTranslation(InstructionCases& cases, const std::string& pair, const NameRows& rows,
                    ObString* constant, ObInteger constantNumber, ObString* own,
                    ObInteger ownNumber) {
    const auto add = [&](const std::string& kind, ObString* name, bool copy, ObInteger number) {
        cases[pair + ", " + kind + "/ours"] = [=](long operations) {
            const ObRef<ObString> given = copy ? ObString::make(name->text()) : ObRef(name);
            return translate<translation>(given, number, operations);
        };
        cases[pair + ", " + kind + "/baseline"] = [=, &rows](long operations) {
            return lookUp(rows, name->text(), number, operations);
        };
    };
    add("constant", constant, false, constantNumber);
    add("caller's string", own, true, ownNumber);
    add("caller's constant", own, false, ownNumber);
}

std::optional<std::uint64_t> evaluation(bool ours, long operations) {
    const ObRef<WorkerClient> client = ObMake<WorkerClient>(nullptr, successResult());
    const KVScopedClientBackend installed(ObMake<WorkerBackend>(client));
    const ObRef<VRCredentialReference> reference = setUpReference();
    const HintValues values = HintValues::make();
    const ObRef<ObDictionary> hints = typicalHints(values);
    if (!sendsTheSameRequest(*client, *reference, hints, values))
        return std::nullopt;
    if (!ours)
        return measure([&] { evaluateDirectly(*client, values); }, operations);
    return measure(
        [&] {
            ObRef<ObError> error;
            reference->evaluatePolicy_hints_error(VRPolicyDeviceOwnerAuthenticated, hints, &error);
        },
        operations);
}

std::optional<std::uint64_t> hints(bool ours, long operations) {
    const HintValues values = HintValues::make();
    const ObRef<ObDictionary> hints = typicalHints(values);
    if (!KVLegacyHelper::optionsFromVRHints(hints)->isEqual(handBuiltOptions(values).get()))
        return std::nullopt;
    if (!ours)
        return measure(
            [&] {
                ObRef<ObMutableDictionary> options = handBuiltOptions(values);
                benchmark::DoNotOptimize(options.get());
            },
            operations);
    return measure(
        [&] {
            ObRef<ObMutableDictionary> options = KVLegacyHelper::optionsFromVRHints(hints);
            benchmark::DoNotOptimize(options.get());
        },
        operations);
}

std::optional<std::uint64_t> delegateEvent(bool ours, long operations) {
    const ObRef<ConsentingDelegate> delegate = ObMake<ConsentingDelegate>();
    const EventValues values = EventValues::make();
    const KVUIReply reply = serviceReply();
    if (!ours)
        return measure([&] { deliverByHand(*delegate, values, reply); }, operations);
    const ObRef<DelegateProxy> proxy = KVLegacyHelper::uiDelegateFromVRUIDelegate(delegate);
    const ObRef<ObDictionary> params = values.serviceParams();
    return measure([&] { proxy->event_params_reply(1, params, reply); }, operations);
}

InstructionCases makeCases() {
    InstructionCases cases;
    addTranslation<KVLegacyHelper::policyFromVRPolicy>(cases, "policyFromVRPolicy", policyRows,
                                                       VRPolicyDeviceOwnerAuthenticated, 1007,
                                                       &ownPolicy, 1000);
    addTranslation<KVLegacyHelper::eventFromVREvent>(cases, "eventFromVREvent", eventRows,
                                                     VREventPasscode, 2, &ownEvent, 2);
    addTranslation<KVLegacyHelper::resultFromVRResult>(cases, "resultFromVRResult", resultRows,
                                                       VRResultTagUsedPasscode, 3, &ownResult, 3);
    addTranslation<option>(cases, "optionFromVRHint_error", optionRows, VRHintMaxPasscodeFailures,
                           1004, &ownHint, 1004);
    const auto addPair = [&](const std::string& pair,
                             std::optional<std::uint64_t> (*run)(bool, long)) {
        cases[pair + "/ours"] = [run](long operations) { return run(true, operations); };
        cases[pair + "/baseline"] = [run](long operations) { return run(false, operations); };
    };
    addPair("evaluatePolicy_hints_error", evaluation);
    addPair("optionsFromVRHints", hints);
    addPair("delegate proxy event", delegateEvent);
#ifdef TESSIVA_BENCH_CODEC
    addCodecCases(cases);
#endif
    return cases;
}

} // namespace

const InstructionCases& instructionCases() {
    static const InstructionCases cases = makeCases();
    return cases;
}

} // namespace tessiva::bench
