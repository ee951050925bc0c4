// SPDX-License-Identifier: MIT
// The two structured event hints, turned into the service's event-processing
// dictionary: per-event parameters keyed by event number, or a filter keyed by
// the caller's own event names.
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "tessiva/object/ObArray.h"
#include "tessiva/object/ObNumber.h"
#include "translation/ErrorSlot.h"
#include "translation/OptionKeys.h"

using tessiva::detail::parameterError;
using tessiva::detail::resultThroughSlot;

namespace {

// The service's key for the "get remote view controller" processing parameter.
constexpr ObInteger remoteViewControllerParameter = 0;

// The service parameters for one event's VR parameters: empty, or the caller's
// number under the one parameter that is read. Absent, with the slot written,
// when that parameter is not a number.
ObRef<ObDictionary> processingParameters(const ObDictionary& settings, ObRef<ObError>& slot) {
    const ObRef<ObObject> flag =
        settings.objectForKey(VRHintEventProcessingGetRemoteViewController);
    if (!flag)
        return ObDictionary::make();
    const ObRef<ObNumber> number = ob_cast<ObNumber>(flag);
    if (!number) {
        slot = parameterError(
            "VRHintEventProcessingGetRemoteViewController value must be of type ObNumber.");
        return nullptr;
    }
    return ObDictionary::make(
        {{tessiva::detail::optionKey(remoteViewControllerParameter), number}});
}

// Stores one processing entry under its event number. The checks run in a
// fixed order (key type, event name, value type, parameter type) because the
// first that fails names the error; false, with the slot written, on failure.
bool addProcessingEntry(ObMutableDictionary& result, const ObDictionary::Entry& entry,
                        ObRef<ObError>& slot) {
    const ObRef<ObString> name = ob_cast<ObString>(entry.first);
    if (!name) {
        slot = parameterError("VREventProcessing dictionary keys must be ObString");
        return false;
    }
    // An unknown name leaves its own error in the slot.
    const ObInteger event = KVLegacyHelper::eventFromVREvent_error(name, &slot);
    if (event == 0)
        return false;
    const ObDictionary* settings = ob_cast_raw<ObDictionary>(entry.second);
    if (settings == nullptr) {
        // Speaks of keys although it is the value that is wrong; callers match this text.
        slot = parameterError("VREventProcessing dictionary keys must be ObDictionary");
        return false;
    }
    const ObRef<ObDictionary> parameters = processingParameters(*settings, slot);
    if (!parameters)
        return false;
    result.setObject_forKey(parameters, tessiva::detail::optionKey(event));
    return true;
}

} // namespace

ObRef<ObMutableDictionary>
KVLegacyHelper::_eventProcessingFromVREventProcessing_error(const ObRef<ObObject>& value,
                                                            ObRef<ObError>* error) {
    ObRef<ObMutableDictionary> result = ObMutableDictionary::make();
    ObRef<ObError> slot;
    if (const ObDictionary* processing = ob_cast_raw<ObDictionary>(value)) {
        for (const ObDictionary::Entry& entry : *processing) {
            if (!addProcessingEntry(*result, entry, slot))
                break;
        }
    } else {
        slot = parameterError("VRHintEventProcessing value must be of type ObDictionary.");
    }
    return resultThroughSlot(std::move(result), std::move(slot), error);
}

ObRef<ObMutableDictionary>
KVLegacyHelper::_eventProcessingFromVREventFilter_error(const ObRef<ObObject>& value,
                                                        ObRef<ObError>* error) {
    ObRef<ObMutableDictionary> result = ObMutableDictionary::make();
    ObRef<ObError> slot;
    if (const ObArray* filter = ob_cast_raw<ObArray>(value)) {
        // A filter is passed on by name: its items are neither translated nor checked
        // against the event table, so the result is keyed by the caller's strings.
        for (const ObRef<ObObject>& item : *filter) {
            if (ob_cast_raw<ObString>(item) == nullptr) {
                slot = parameterError("VRHintEventFilter array must contain ObString items.");
                break;
            }
            result->setObject_forKey(ObDictionary::make(), item);
        }
    } else {
        slot = parameterError("VRHintEventFilter value must be of type ObArray.");
    }
    return resultThroughSlot(std::move(result), std::move(slot), error);
}
