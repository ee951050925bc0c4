// SPDX-License-Identifier: MIT
// Reading and checking the options of a policy evaluation.
#include "EvaluationOptions.h"

#include "ServiceErrors.h"
#include "ServiceVocabulary.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/ObNumber.h"

#include <algorithm>

namespace tessiva::detail {
namespace {
constexpr ObInteger fallbackOption = 1;
constexpr ObInteger nonInteractiveOption = 1000;
constexpr ObInteger timeoutOption = 1001;
constexpr ObInteger maxRidgescanFailuresOption = 1003;
constexpr ObInteger maxPasscodeFailuresOption = 1004;
constexpr ObInteger eventProcessingOption = 1007;
constexpr ObInteger passphraseFirstOption = 1012;
// Longer waits are as good as none, and keep the deadline from overflowing.
constexpr std::chrono::seconds longestTimeout = std::chrono::hours(24 * 366);

OB_CONSTANT_STRING(ridgescanEventName, "EventRidgescan");
OB_CONSTANT_STRING(passcodeEventName, "EventPasscode");
OB_CONSTANT_STRING(consentEventName, "EventConsent");
OB_CONSTANT_STRING(passphraseEventName, "EventPassphrase");
OB_CONSTANT_STRING(nonInteractiveMessage, "Option 1000 (non-interactive) must be a number.");
OB_CONSTANT_STRING(timeoutMessage, "Option 1001 (time-out) must be a positive number of seconds.");
OB_CONSTANT_STRING(maxFailuresMessage,
                   "Option 1004 (maximum passcode failures) must be a positive number.");
OB_CONSTANT_STRING(maxScanFailuresMessage,
                   "Option 1003 (maximum ridge-scan failures) must be a positive number.");
OB_CONSTANT_STRING(passphraseFirstMessage, "Option 1012 (passphrase first) must be a number.");
OB_CONSTANT_STRING(eventProcessingMessage, "Option 1007 (event processing) must be a dictionary.");

ObRef<ObObject> option(const ObRef<ObDictionary>& options, ObInteger key) {
    return options ? options->objectForKey(ObNumber::make(key)) : nullptr;
}

// Absent when the option is missing; fails when it is there but not a
// positive number.
bool readPositive(const ObRef<ObDictionary>& options, ObInteger key,
                  std::optional<ObInteger>& value) {
    ObRef<ObObject> object = option(options, key);
    if (!object)
        return true;
    ObRef<ObNumber> number = ob_cast<ObNumber>(object);
    if (!number || number->integerValue() < 1)
        return false;
    value = number->integerValue();
    return true;
}

void readEventProcessing(const ObDictionary& processing, EvaluationOptions& result) {
    ObConstantString* const names[] = {&ridgescanEventName, &passcodeEventName, &consentEventName,
                                       &passphraseEventName};
    result.raisedEvents = 0;
    for (ObInteger event = 1; event <= 4; ++event)
        if (processing.objectForKey(ObNumber::make(event)) ||
            processing.objectForKey(names[event - 1]))
            result.raisedEvents |= 1u << event;
    ObRef<ObObject> byNumber = processing.objectForKey(ObNumber::make(passcodeEvent));
    if (ObRef<ObDictionary> parameters = ob_cast<ObDictionary>(byNumber)) {
        ObRef<ObNumber> remoteView =
            ob_cast<ObNumber>(parameters->objectForKey(ObNumber::make(remoteViewProcessing)));
        result.showsRemoteView = remoteView && remoteView->boolValue();
    }
}

std::optional<EvaluationOptions> fail(ObConstantString& message, ObRef<ObError>* error) {
    if (error != nullptr)
        *error = kvError(KVErrorInvalidParameter, &message);
    return std::nullopt;
}
} // namespace

std::optional<EvaluationOptions> EvaluationOptions::read(const ObRef<ObDictionary>& options,
                                                         ObRef<ObError>* error) {
    EvaluationOptions result;
    result.maxPasscodeFailures = defaultMaxPasscodeFailures;

    if (ObRef<ObObject> object = option(options, nonInteractiveOption)) {
        ObRef<ObNumber> number = ob_cast<ObNumber>(object);
        if (!number)
            return fail(nonInteractiveMessage, error);
        result.interactive = !number->boolValue();
    }
    std::optional<ObInteger> timeoutSeconds;
    if (!readPositive(options, timeoutOption, timeoutSeconds))
        return fail(timeoutMessage, error);
    if (timeoutSeconds)
        result.timeout = std::min(longestTimeout, std::chrono::seconds(*timeoutSeconds));
    std::optional<ObInteger> failures;
    if (!readPositive(options, maxPasscodeFailuresOption, failures))
        return fail(maxFailuresMessage, error);
    result.maxPasscodeFailures = failures.value_or(result.maxPasscodeFailures);
    std::optional<ObInteger> scanFailures;
    if (!readPositive(options, maxRidgescanFailuresOption, scanFailures))
        return fail(maxScanFailuresMessage, error);
    result.maxRidgescanFailures = scanFailures.value_or(result.maxRidgescanFailures);
    if (ObRef<ObObject> object = option(options, passphraseFirstOption)) {
        ObRef<ObNumber> number = ob_cast<ObNumber>(object);
        if (!number)
            return fail(passphraseFirstMessage, error);
        result.passphraseFirst = number->boolValue();
    }
    // Whatever names the fallback (its button's title, usually) offers it.
    result.offersFallback = option(options, fallbackOption) != nullptr;
    if (ObRef<ObObject> object = option(options, eventProcessingOption)) {
        ObRef<ObDictionary> processing = ob_cast<ObDictionary>(object);
        if (!processing)
            return fail(eventProcessingMessage, error);
        readEventProcessing(*processing, result);
    }
    if (error != nullptr)
        *error = nullptr;
    return result;
}
} // namespace tessiva::detail
