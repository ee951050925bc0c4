// SPDX-License-Identifier: MIT
// KVLegacyHelper: the translations between the VR vocabulary and the
// service's numbers, and the VR error model. Class operations only.
//
// Operations ending in `_error` take an optional out-parameter (nullptr for
// none). When given, it is always written: the error on failure, absent on
// success. Their raising partners raise a KVException (through
// KVErrorHelper::raiseException) carrying the same error.
//
// Every table is built once, on first use, under its own one-time guard, and
// only read afterwards, so every operation is safe from any thread.
#pragma once

#include "tessiva/TessivaExport.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObError.h"
#include "tessiva/object/ObString.h"

class DelegateProxy;
class VRUIDelegate;

class TESSIVA_API KVLegacyHelper final : public ObObject {
public:
    KVLegacyHelper() = delete;

    // --- Errors -----------------------------------------------------------

    // A VRErrorDomain error with the code as given and user info holding only
    // the message (or "" when absent) under ObLocalizedDescriptionKey.
    static ObRef<ObError> vrErrorWithCode_andMessage(ObInteger code,
                                                     const ObRef<ObString>& message);
    // Absent stays absent; an error of any domain but KVErrorDomain comes back
    // as the same object; a KVErrorDomain error becomes a VRErrorDomain error
    // with the code from the error table (0 for a code the table lacks) and
    // the very same user-info dictionary.
    static ObRef<ObError> vrErrorFromKVError(const ObRef<ObError>& error);

    // --- Names ------------------------------------------------------------
    // Each returns the service's number for a VR name, or 0 when the name (or
    // an absent one) is unknown, with the error "Unknown policy: '<name>'"
    // (likewise hint, event, result).
    //
    // The policy table's nine constant keys are all "" in this build; the
    // empty key keeps the last value inserted for it, 1007.

    static ObInteger policyFromVRPolicy_error(const ObRef<ObString>& policy, ObRef<ObError>* error);
    static ObInteger policyFromVRPolicy(const ObRef<ObString>& policy);
    static ObInteger optionFromVRHint_error(const ObRef<ObString>& hint, ObRef<ObError>* error);
    static ObInteger eventFromVREvent_error(const ObRef<ObString>& event, ObRef<ObError>* error);
    static ObInteger eventFromVREvent(const ObRef<ObString>& event);
    static ObInteger resultFromVRResult_error(const ObRef<ObString>& result, ObRef<ObError>* error);
    static ObInteger resultFromVRResult(const ObRef<ObString>& result);

    // --- Hints dictionaries -----------------------------------------------

    // The options dictionary for a hints dictionary (absent reads as empty),
    // or absent with the error of the first entry that fails.
    static ObRef<ObMutableDictionary> optionsFromVRHints_error(const ObRef<ObDictionary>& hints,
                                                               ObRef<ObError>* error);
    static ObRef<ObMutableDictionary> optionsFromVRHints(const ObRef<ObDictionary>& hints);

    // The event-processing dictionary for the value of the "EventProcessing"
    // hint (keyed by event numbers) or of the "EventFilter" hint (keyed by
    // the caller's own strings); absent with an error when malformed.
    static ObRef<ObMutableDictionary>
    _eventProcessingFromVREventProcessing_error(const ObRef<ObObject>& value,
                                                ObRef<ObError>* error);
    static ObRef<ObMutableDictionary>
    _eventProcessingFromVREventFilter_error(const ObRef<ObObject>& value, ObRef<ObError>* error);

    // --- User-interface delegates -----------------------------------------

    // A new proxy for the delegate on every call; absent for absent.
    static ObRef<DelegateProxy> uiDelegateFromVRUIDelegate(const ObRef<VRUIDelegate>& delegate);

    const char* className() const noexcept override;
};
