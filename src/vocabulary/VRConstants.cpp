// SPDX-License-Identifier: MIT
// Definitions of the exported VR vocabulary.
#include "tessiva/VRConstants.h"

namespace {
// One object per distinct text: alias pairs and the policies share theirs.
OB_CONSTANT_STRING(textEmpty, "");
OB_CONSTANT_STRING(textUsedRidgescan, "UsedRidgescan");
OB_CONSTANT_STRING(textUsedPasscode, "UsedPasscode");
OB_CONSTANT_STRING(textRidgescanIdentity, "RidgescanIdentity");
OB_CONSTANT_STRING(textUsedYesNo, "UsedYesNo");
OB_CONSTANT_STRING(textUsedPassphrase, "UsedPassphrase");
OB_CONSTANT_STRING(textNonInteractive, "NonInteractive");
OB_CONSTANT_STRING(textAppAction, "AppAction");
OB_CONSTANT_STRING(textTimeout, "Timeout");
OB_CONSTANT_STRING(textCallerPID, "CallerPID");
OB_CONSTANT_STRING(textCancel2, "Cancel2");
OB_CONSTANT_STRING(textMaxRidgescanFailures, "MaxRidgescanFailures");
OB_CONSTANT_STRING(textMaxPasscodeFailures, "MaxPasscodeFailures");
OB_CONSTANT_STRING(textLightPasscodeScreen, "LightPasscodeScreen");
OB_CONSTANT_STRING(textPresentationStyle, "PresentationStyle");
OB_CONSTANT_STRING(textTransitionStyle, "TransitionStyle");
OB_CONSTANT_STRING(textEventProcessingGetRemoteViewController,
                   "EventProcessingGetRemoteViewController");
OB_CONSTANT_STRING(textEventParamRemoteViewControllerBundleID,
                   "EventParamRemoteViewControllerBundleID");
OB_CONSTANT_STRING(textEventParamRemoteViewControllerName, "EventParamRemoteViewControllerName");
OB_CONSTANT_STRING(textEventRidgescan, "EventRidgescan");
OB_CONSTANT_STRING(textStatus, "Status");
OB_CONSTANT_STRING(textIdentity, "Identity");
OB_CONSTANT_STRING(textEventPasscode, "EventPasscode");
OB_CONSTANT_STRING(textPasscode, "Passcode");
OB_CONSTANT_STRING(textAvailable, "Available");
OB_CONSTANT_STRING(textActive, "Active");
OB_CONSTANT_STRING(textEventUserCancel2, "EventUserCancel2");
OB_CONSTANT_STRING(textEventFilter, "EventFilter");
OB_CONSTANT_STRING(textEventProcessing, "EventProcessing");
OB_CONSTANT_STRING(textStopEvents, "StopEvents");
OB_CONSTANT_STRING(textEvent, "Event");
OB_CONSTANT_STRING(textError, "Error");
OB_CONSTANT_STRING(textEnterPassword, "EnterPassword");
OB_CONSTANT_STRING(textPassword, "Password");
OB_CONSTANT_STRING(textRetryTime, "RetryTime");
OB_CONSTANT_STRING(textErrorDomain, "org.tessiva.VRErrorDomain");
OB_CONSTANT_STRING(textSimpleStatus, "SimpleStatus");
OB_CONSTANT_STRING(textEventConsent, "EventConsent");
OB_CONSTANT_STRING(textConsentResponse, "ConsentResponse");
OB_CONSTANT_STRING(textEventPassphrase, "EventPassphrase");
OB_CONSTANT_STRING(textPassphraseFirst, "PassphraseFirst");
OB_CONSTANT_STRING(textPINTitle, "PINTitle");
OB_CONSTANT_STRING(textPINLength, "PINLength");
} // namespace

constinit ObString* VRPolicyDeviceOwnerAuthenticated = &textEmpty;
constinit ObString* VRPolicyDeviceOwnerAuthenticatedWithBiometrics = &textEmpty;
constinit ObString* VRPolicyDeviceOwnerConsent = &textEmpty;
constinit ObString* VRPolicyDeviceOwnerConsentRidgescanPreferred = &textEmpty;
constinit ObString* VRPolicyDeviceOwnerConsentRidgeScanPreferred = &textEmpty;
constinit ObString* VRPolicyHumanPresence = &textEmpty;
constinit ObString* VRPolicyVelmora = &textEmpty;
constinit ObString* VRPolicyTirsa = &textEmpty;
constinit ObString* VRPolicyTirsaWithPIN = &textEmpty;
constinit ObString* VRPolicyRidgescanEnrollment = &textEmpty;
constinit ObString* VRPolicyRidgeScanEnrollment = &textEmpty;
constinit ObString* VRResultTagUsedRidgescan = &textUsedRidgescan;
constinit ObString* VRResultTagUsedRidgeScan = &textUsedRidgescan;
constinit ObString* VRResultTagUsedPasscode = &textUsedPasscode;
constinit ObString* VRResultTagRidgescanIdentity = &textRidgescanIdentity;
constinit ObString* VRResultTagRidgeScanIdentity = &textRidgescanIdentity;
constinit ObString* VRResultTagUsedYesNo = &textUsedYesNo;
constinit ObString* VRResultTagUsedPassphrase = &textUsedPassphrase;
constinit ObString* VRHintTagNotInteractive = &textNonInteractive;
constinit ObString* VRHintNotInteractive = &textNonInteractive;
constinit ObString* VRHintAppAction = &textAppAction;
constinit ObString* VRHintTimeout = &textTimeout;
constinit ObString* VRHintCallerPID = &textCallerPID;
constinit ObString* VRHintUserCancel2 = &textCancel2;
constinit ObString* VRHintUserFallback = &textCancel2;
constinit ObString* VRHintMaxRidgescanFailures = &textMaxRidgescanFailures;
constinit ObString* VRHintMaxRidgeScanFailures = &textMaxRidgescanFailures;
constinit ObString* VRHintMaxPasscodeFailures = &textMaxPasscodeFailures;
constinit ObString* VRHintLightPasscodeScreen = &textLightPasscodeScreen;
constinit ObString* VRHintPresentationStyle = &textPresentationStyle;
constinit ObString* VRHintTransitionStyle = &textTransitionStyle;
constinit ObString* VRHintEventProcessingGetRemoteViewController =
    &textEventProcessingGetRemoteViewController;
constinit ObString* VRHintEventParamRemoteViewControllerBundleID =
    &textEventParamRemoteViewControllerBundleID;
constinit ObString* VRHintEventParamRemoteViewControllerName =
    &textEventParamRemoteViewControllerName;
constinit ObString* VREventRidgescan = &textEventRidgescan;
constinit ObString* VREventRidgeScan = &textEventRidgescan;
constinit ObString* VREventRidgescanParamStatus = &textStatus;
constinit ObString* VREventRidgeScanParamStatus = &textStatus;
constinit ObString* VREventRidgescanParamIdentity = &textIdentity;
constinit ObString* VREventRidgeScanParamIdentity = &textIdentity;
constinit ObString* VREventPasscode = &textEventPasscode;
constinit ObString* VRResponsePasscode = &textPasscode;
constinit ObString* VREventParamAvailable = &textAvailable;
constinit ObString* VREventParamActive = &textActive;
constinit ObString* VREventUserCancel2 = &textEventUserCancel2;
constinit ObString* VRHintEventFilter = &textEventFilter;
constinit ObString* VRHintEventProcessing = &textEventProcessing;
constinit ObString* VRClientRequestStopEvents = &textStopEvents;
constinit ObString* VRClientRequestParamEvent = &textEvent;
constinit ObString* VRClientRequestParamError = &textError;
constinit ObString* VRClientRequestEnterPassword = &textEnterPassword;
constinit ObString* VRClientRequestParamPassword = &textPassword;
constinit ObString* VRClientRequestErrorRetryTime = &textRetryTime;
constinit ObString* VRErrorDomain = &textErrorDomain;

constinit ObString* const VREventRidgeScanParamSimpleStatus = &textSimpleStatus;
constinit ObString* const VREventConsent = &textEventConsent;
constinit ObString* const VREventConsentResponse = &textConsentResponse;
constinit ObString* const VREventPassphrase = &textEventPassphrase;
constinit ObString* const VRHintPassphraseFirst = &textPassphraseFirst;
constinit ObString* const VRHintPINTitle = &textPINTitle;
constinit ObString* const VRHintPINLength = &textPINLength;
