// SPDX-License-Identifier: MIT
// The exported constants and version symbols: texts, shared objects, constness.
#include "tessiva/VRConstants.h"
#include "tessiva/VRVersion.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>
#include <vector>

namespace {

// The constants, given by address: the seven declared `ObString* const`, as
// the interface has them, must come last, after the reassignable `ObString*`.
template <class... Constant> std::vector<ObString*> declared(Constant*... addresses) {
    constexpr bool isConst[] = {std::is_const_v<Constant>...};
    static_assert(std::ranges::count(isConst, true) == 7 && std::ranges::is_sorted(isConst));
    return {*addresses...};
}

// Every exported constant, in the order of declaration.
const std::vector<ObString*> constants = declared(
    &VRPolicyDeviceOwnerAuthenticated, &VRPolicyDeviceOwnerAuthenticatedWithBiometrics,
    &VRPolicyDeviceOwnerConsent, &VRPolicyDeviceOwnerConsentRidgescanPreferred,
    &VRPolicyDeviceOwnerConsentRidgeScanPreferred, &VRPolicyHumanPresence, &VRPolicyVelmora,
    &VRPolicyTirsa, &VRPolicyTirsaWithPIN, &VRPolicyRidgescanEnrollment,
    &VRPolicyRidgeScanEnrollment, &VRResultTagUsedRidgescan, &VRResultTagUsedRidgeScan,
    &VRResultTagUsedPasscode, &VRResultTagRidgescanIdentity, &VRResultTagRidgeScanIdentity,
    &VRResultTagUsedYesNo, &VRResultTagUsedPassphrase, &VRHintTagNotInteractive,
    &VRHintNotInteractive, &VRHintAppAction, &VRHintTimeout, &VRHintCallerPID, &VRHintUserCancel2,
    &VRHintUserFallback, &VRHintMaxRidgescanFailures, &VRHintMaxRidgeScanFailures,
    &VRHintMaxPasscodeFailures, &VRHintLightPasscodeScreen, &VRHintPresentationStyle,
    &VRHintTransitionStyle, &VRHintEventProcessingGetRemoteViewController,
    &VRHintEventParamRemoteViewControllerBundleID, &VRHintEventParamRemoteViewControllerName,
    &VREventRidgescan, &VREventRidgeScan, &VREventRidgescanParamStatus,
    &VREventRidgeScanParamStatus, &VREventRidgescanParamIdentity, &VREventRidgeScanParamIdentity,
    &VREventPasscode, &VRResponsePasscode, &VREventParamAvailable, &VREventParamActive,
    &VREventUserCancel2, &VRHintEventFilter, &VRHintEventProcessing, &VRClientRequestStopEvents,
    &VRClientRequestParamEvent, &VRClientRequestParamError, &VRClientRequestEnterPassword,
    &VRClientRequestParamPassword, &VRClientRequestErrorRetryTime, &VRErrorDomain,
    &VREventRidgeScanParamSimpleStatus, &VREventConsent, &VREventConsentResponse,
    &VREventPassphrase, &VRHintPassphraseFirst, &VRHintPINTitle, &VRHintPINLength);

// The two spellings of a name are one object, and so are all eleven policies.
TEST(Vocabulary, EveryConstantHoldsItsTextAndEqualTextsAreOneObject) {
    std::string texts;
    for (ObString* constant : constants) {
        texts += std::string(constant->text()) + "|";
        for (ObString* other : constants)
            EXPECT_EQ(constant == other, constant->text() == other->text())
                << "'" << constant->text() << "' and '" << other->text() << "'";
    }
    EXPECT_EQ(texts,
              "|||||||||||UsedRidgescan|UsedRidgescan|UsedPasscode|RidgescanIdentity|"
              "RidgescanIdentity|UsedYesNo|UsedPassphrase|NonInteractive|NonInteractive|"
              "AppAction|Timeout|CallerPID|Cancel2|Cancel2|MaxRidgescanFailures|"
              "MaxRidgescanFailures|MaxPasscodeFailures|LightPasscodeScreen|PresentationStyle|"
              "TransitionStyle|EventProcessingGetRemoteViewController|"
              "EventParamRemoteViewControllerBundleID|EventParamRemoteViewControllerName|"
              "EventRidgescan|EventRidgescan|Status|Status|Identity|Identity|EventPasscode|"
              "Passcode|Available|Active|EventUserCancel2|EventFilter|EventProcessing|"
              "StopEvents|Event|Error|EnterPassword|Password|RetryTime|"
              "org.tessiva.VRErrorDomain|SimpleStatus|EventConsent|ConsentResponse|"
              "EventPassphrase|PassphraseFirst|PINTitle|PINLength|");
}

TEST(Vocabulary, VersionSymbols) {
    static constexpr char expected[] = "@(#)PROGRAM:Tessiva  PROJECT:Tessiva-1.30.1.30\n";
    // sizeof includes the terminating NUL, which the symbol must carry too.
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(TessivaVersionString), sizeof expected),
              std::string(expected, sizeof expected));
    EXPECT_EQ(TessivaVersionNumber, 1.3); // the nearest double, bit for bit
}

} // namespace
