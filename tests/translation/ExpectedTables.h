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

// The rows that follow no pattern: numbers outside the run of 1000s,
// aliases, and the policies. The policy
// constants are all "", which keeps the last value inserted, 1007; the other
// policies are known only by their names' texts.
inline std::vector<NameTableCase> expectedNameTables() {
    return {
        {"policy",
         &KVLegacyHelper::policyFromVRPolicy_error,
         &KVLegacyHelper::policyFromVRPolicy,
         {{VRPolicyTirsa, 1007},
          {ObString::make("DeviceOwnerAuthenticatedWithBiometrics"), 1},
          {ObString::make("DeviceOwnerConsentRidgescanPreferred"), 1002}}},
        {"hint",
         &KVLegacyHelper::optionFromVRHint_error,
         nullptr,
         {{VRHintUserFallback, 1}, {VRHintAppAction, 2}, {VRHintPINLength, 1014}}},
        {"event",
         &KVLegacyHelper::eventFromVREvent_error,
         &KVLegacyHelper::eventFromVREvent,
         {{VREventRidgescan, 1}, {VREventPassphrase, 4}}},
        {"result",
         &KVLegacyHelper::resultFromVRResult_error,
         &KVLegacyHelper::resultFromVRResult,
         {{VRResultTagUsedRidgescan, 1}, {VRResultTagRidgescanIdentity, 2}}},
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
