// SPDX-License-Identifier: MIT
// The four single-name translations and their tables, rows in build order.
#include "translation/NameTranslation.h"

#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"
#include "translation/NameTable.h"

#include <vector>

using tessiva::detail::NameTable;

namespace {
OB_CONSTANT_STRING(deviceOwnerAuthenticated, "DeviceOwnerAuthenticated");
OB_CONSTANT_STRING(deviceOwnerAuthenticatedWithBiometrics,
                   "DeviceOwnerAuthenticatedWithBiometrics");
OB_CONSTANT_STRING(deviceOwnerConsentRidgescanPreferred, "DeviceOwnerConsentRidgescanPreferred");

std::vector<NameTable::Row> policyRows() {
    return {
        {VRPolicyDeviceOwnerAuthenticated, 1000},
        {VRPolicyDeviceOwnerAuthenticatedWithBiometrics, 1},
        {VRPolicyDeviceOwnerConsent, 1001},
        {VRPolicyDeviceOwnerConsentRidgeScanPreferred, 1002},
        {VRPolicyHumanPresence, 1003},
        {VRPolicyVelmora, 1004},
        {VRPolicyTirsa, 1005},
        {VRPolicyTirsaWithPIN, 1006},
        {VRPolicyRidgeScanEnrollment, 1007},
        {&deviceOwnerAuthenticated, 1000},
        {&deviceOwnerAuthenticatedWithBiometrics, 1},
        {&deviceOwnerConsentRidgescanPreferred, 1002},
    };
}
constinit NameTable policyMap{policyRows, "Unknown policy: '%@'"};

std::vector<NameTable::Row> optionRows() {
    return {
        {VRHintAppAction, 2},
        {VRHintCallerPID, 1002},
        {VRHintEventProcessing, 1007},
        {VRHintMaxPasscodeFailures, 1004},
        {VRHintMaxRidgeScanFailures, 1003},
        {VRHintNotInteractive, 1000},
        {VRHintTimeout, 1001},
        {VRHintUserFallback, 1},
        {VRHintPresentationStyle, 1005},
        {VRHintTransitionStyle, 1006},
        {VRHintLightPasscodeScreen, 1008},
        {VRHintPassphraseFirst, 1012},
        {VRHintPINTitle, 1013},
        {VRHintPINLength, 1014},
    };
}
constinit NameTable optionMap{optionRows, "Unknown hint: '%@'"};

std::vector<NameTable::Row> eventRows() {
    return {
        {VREventRidgeScan, 1},
        {VREventPasscode, 2},
        {VREventConsent, 3},
        {VREventPassphrase, 4},
    };
}
constinit NameTable eventMap{eventRows, "Unknown event: '%@'"};

std::vector<NameTable::Row> resultRows() {
    // clang-format off
    return {
        {VRResultTagUsedRidgeScan, 1},
        {VRResultTagRidgeScanIdentity, 2},
        {VRResultTagUsedPasscode, 3},
        {VRResultTagUsedYesNo, 4},
        {VRResultTagUsedPassphrase, 5},
    };
    // clang-format on
}
constinit NameTable resultMap{resultRows, "Unknown result: '%@'"};
} // namespace

ObInteger tessiva::detail::optionNumber(const ObString* hint) {
    return optionMap.number(hint);
}

ObInteger KVLegacyHelper::policyFromVRPolicy_error(const ObRef<ObString>& policy,
                                                   ObRef<ObError>* error) {
    return policyMap.translate(policy, error);
}

ObInteger KVLegacyHelper::policyFromVRPolicy(const ObRef<ObString>& policy) {
    return policyMap.translateOrRaise(policy);
}

ObInteger KVLegacyHelper::optionFromVRHint_error(const ObRef<ObString>& hint,
                                                 ObRef<ObError>* error) {
    return optionMap.translate(hint, error);
}

ObInteger KVLegacyHelper::eventFromVREvent_error(const ObRef<ObString>& event,
                                                 ObRef<ObError>* error) {
    return eventMap.translate(event, error);
}

ObInteger KVLegacyHelper::eventFromVREvent(const ObRef<ObString>& event) {
    return eventMap.translateOrRaise(event);
}

ObInteger KVLegacyHelper::resultFromVRResult_error(const ObRef<ObString>& result,
                                                   ObRef<ObError>* error) {
    return resultMap.translate(result, error);
}

ObInteger KVLegacyHelper::resultFromVRResult(const ObRef<ObString>& result) {
    return resultMap.translateOrRaise(result);
}
