// SPDX-License-Identifier: MIT
#include "NameRows.h"

namespace tessiva::bench {

const NameRows policyRows = {{"", 1007},
                             {"DeviceOwnerAuthenticated", 1000},
                             {"DeviceOwnerAuthenticatedWithBiometrics", 1},
                             {"DeviceOwnerConsentRidgescanPreferred", 1002}};
const NameRows optionRows = {{"AppAction", 2},
                             {"CallerPID", 1002},
                             {"EventProcessing", 1007},
                             {"MaxPasscodeFailures", 1004},
                             {"MaxRidgescanFailures", 1003},
                             {"NonInteractive", 1000},
                             {"Timeout", 1001},
                             {"Cancel2", 1},
                             {"PresentationStyle", 1005},
                             {"TransitionStyle", 1006},
                             {"LightPasscodeScreen", 1008},
                             {"PassphraseFirst", 1012},
                             {"PINTitle", 1013},
                             {"PINLength", 1014}};
const NameRows eventRows = {
    {"EventRidgescan", 1}, {"EventPasscode", 2}, {"EventConsent", 3}, {"EventPassphrase", 4}};
const NameRows resultRows = {{"UsedRidgescan", 1},
                             {"RidgescanIdentity", 2},
                             {"UsedPasscode", 3},
                             {"UsedYesNo", 4},
                             {"UsedPassphrase", 5}};

} // namespace tessiva::bench
