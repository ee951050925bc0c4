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
constexpr ObInteger nonInteractiveOption = 1000;
constexpr ObInteger timeoutOption = 1001;
constexpr ObInteger maxPasscodeFailuresOption = 1004;
constexpr ObInteger eventProcessingOption = 1007;
// Longer waits are as good as none, and keep the deadline from overflowing.
constexpr std::chrono::seconds longestTimeout = std::chrono::hours(24 * 366);

OB_CONSTANT_STRING(passcodeEventName, "EventPasscode");
OB_CONSTANT_STRING(nonInteractiveMessage, "Option 1000 (non-interactive) must be a number.");
OB_CONSTANT_STRING(timeoutMessage, "Option 1001 (time-out) must be a positive number of seconds.");
OB_CONSTANT_STRING(maxFailuresMessage,
                   "Option 1004 (maximum passcode failures) must be a positive number.");
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
    ObRef<ObObject> byNumber = processing.objectForKey(ObNumber::make(passcodeEvent));
    result.raisesPasscodeEvent = byNumber || processing.objectForKey(&passcodeEventName);
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
