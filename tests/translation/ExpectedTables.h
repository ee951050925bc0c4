// SPDX-License-Identifier: MIT
// What the name tables and the error table must give, shared by the suites
// that check them in a warm and in a fresh process.
#pragma once

#include "tessiva/KVLegacyHelper.h"
#include "tessiva/VRConstants.h"

#include <vector>

namespace tessiva::test {

struct NameRow {
    ObRef<ObString> name;
    ObInteger number;
};

struct NameTableCase {
    const char* label;
    ObInteger (*translate)(const ObRef<ObString>&, ObRef<ObError>*);
    ObInteger (*raising)(const ObRef<ObString>&); // nullptr: hints have no raising form
    std::vector<NameRow> rows;
};

// Every key each table knows; the alias pairs are one object each (checked
// with the vocabulary), so one name of a pair stands for both. The policy
// constants are all "", which keeps the last value inserted, 1007; the other
// policies are known only by their names' texts.
inline std::vector<NameTableCase> expectedNameTables() {
    return {
        {"policy",
         &KVLegacyHelper::policyFromVRPolicy_error,
         &KVLegacyHelper::policyFromVRPolicy,
         {{VRPolicyTirsa, 1007},
          {ObString::make("DeviceOwnerAuthenticated"), 1000},
          {ObString::make("DeviceOwnerAuthenticatedWithBiometrics"), 1},
          {ObString::make("DeviceOwnerConsentRidgescanPreferred"), 1002}}},
        {"hint",
         &KVLegacyHelper::optionFromVRHint_error,
         nullptr,
         {{VRHintUserFallback, 1},
          {VRHintAppAction, 2},
          {VRHintNotInteractive, 1000},
          {VRHintTimeout, 1001},
          {VRHintCallerPID, 1002},
          {VRHintMaxRidgescanFailures, 1003},
          {VRHintMaxPasscodeFailures, 1004},
          {VRHintPresentationStyle, 1005},
          {VRHintTransitionStyle, 1006},
          {VRHintEventProcessing, 1007},
          {VRHintLightPasscodeScreen, 1008},
          {VRHintPassphraseFirst, 1012},
          {VRHintPINTitle, 1013},
          {VRHintPINLength, 1014}}},
        {"event",
         &KVLegacyHelper::eventFromVREvent_error,
         &KVLegacyHelper::eventFromVREvent,
         {{VREventRidgescan, 1},
          {VREventPasscode, 2},
          {VREventConsent, 3},
          {VREventPassphrase, 4}}},
        {"result",
         &KVLegacyHelper::resultFromVRResult_error,
         &KVLegacyHelper::resultFromVRResult,
         {{VRResultTagUsedRidgescan, 1},
          {VRResultTagRidgescanIdentity, 2},
          {VRResultTagUsedPasscode, 3},
          {VRResultTagUsedYesNo, 4},
          {VRResultTagUsedPassphrase, 5}}},
    };
}

struct CodeRow {
    ObInteger serviceCode;
    ObInteger vrCode;
};

// The service's error codes and the VR codes they become, irregularities and all.
inline constexpr CodeRow expectedErrorCodes[] = {
    {-1002, -1000}, {-1, -1},       {-1007, -1006}, {-1005, -1003}, {-1004, -1002}, {-5, -7},
    {-4, -3},       {-1003, -1001}, {-6, -8},       {-7, -9},       {-2, -2},       {-3, -1007},
    {-1009, -1010}, {-1008, -1005}, {-1001, -6},    {-1000, -6},
};

} // namespace tessiva::test
