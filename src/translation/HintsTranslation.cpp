// SPDX-License-Identifier: MIT
// Hints dictionaries: VR hint names and values turned into the service's
// options dictionary, keyed by option number.
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObNumber.h"
#include "translation/ErrorSlot.h"
#include "translation/NameTranslation.h"
#include "translation/OptionKeys.h"

#include <string_view>

using tessiva::detail::parameterError;
using tessiva::detail::resultThroughSlot;

namespace {

// Both structured hints land here: the service's event-processing option.
constexpr ObInteger eventProcessingOption = 1007;
// The filter hint has no row in the option table and is recognised by its text.
constexpr std::string_view eventFilterHint = "EventFilter";

// A converted value for the structured hints; the others pass the caller's
// value on as it is, without a share of their own.
struct Option {
    ObInteger number = 0;
    ObRef<ObObject> converted;
};

// The option for one hint. The slot is shared with the conversions it calls,
// so that each can leave, or clear, its error there; the entry failed when
// the slot holds an error afterwards.
Option optionForHint(const ObDictionary::Entry& hint, ObRef<ObError>& slot) {
    const ObString* name = ob_cast_raw<ObString>(hint.first);
    if (name == nullptr) {
        slot = parameterError("Hint dictionary keys must be of class ObString.");
        return {};
    }
    // The plain lookup: a hint the table lacks may still be the filter, and
    // an unknown-hint error made before knowing would be thrown away.
    const ObInteger number = tessiva::detail::optionNumber(name);
    if (number == eventProcessingOption)
        return {number,
                KVLegacyHelper::_eventProcessingFromVREventProcessing_error(hint.second, &slot)};
    if (number != 0)
        return {number, nullptr};
    // Only after the table lookup failed.
    if (name->text() == eventFilterHint)
        return {eventProcessingOption,
                KVLegacyHelper::_eventProcessingFromVREventFilter_error(hint.second, &slot)};
    slot = KVErrorHelper::parameterErrorWithMessage(
        ObFormat("Unknown hint: '%@'", ObRef<ObString>(const_cast<ObString*>(name))));
    return {};
}

} // namespace

ObRef<ObMutableDictionary>
KVLegacyHelper::optionsFromVRHints_error(const ObRef<ObDictionary>& hints, ObRef<ObError>* error) {
    ObRef<ObMutableDictionary> options = ObMutableDictionary::make();
    ObRef<ObError> slot;
    if (hints) {
        for (const ObDictionary::Entry& hint : *hints) {
            const Option option = optionForHint(hint, slot);
            if (slot)
                break;
            // Both structured hints share one option: the later one visited wins.
            options->setObject_forKey(option.number == eventProcessingOption ? option.converted
                                                                             : hint.second,
                                      tessiva::detail::optionKey(option.number));
        }
    }
    return resultThroughSlot(std::move(options), std::move(slot), error);
}

ObRef<ObMutableDictionary> KVLegacyHelper::optionsFromVRHints(const ObRef<ObDictionary>& hints) {
    ObRef<ObError> error;
    ObRef<ObMutableDictionary> options = KVLegacyHelper::optionsFromVRHints_error(hints, &error);
    if (!options)
        KVErrorHelper::raiseException(error);
    return options;
}
