// Definitions of the exported VR vocabulary.
#include "tessiva/VRConstants.h"

namespace {
// One object per distinct text: alias pairs and the policies share theirs.
constinit ObConstantString textEmpty{""};
constinit ObConstantString textUsedRidgescan{"UsedRidgescan"};
constinit ObConstantString textUsedPasscode{"UsedPasscode"};
constinit ObConstantString textRidgescanIdentity{"RidgescanIdentity"};
constinit ObConstantString textUsedYesNo{"UsedYesNo"};
constinit ObConstantString textUsedPassphrase{"UsedPassphrase"};
constinit ObConstantString textNonInteractive{"NonInteractive"};
constinit ObConstantString textAppAction{"AppAction"};
constinit ObConstantString textTimeout{"Timeout"};
constinit ObConstantString textCallerPID{"CallerPID"};
constinit ObConstantString textCancel2{"Cancel2"};
constinit ObConstantString textMaxRidgescanFailures{"MaxRidgescanFailures"};
constinit ObConstantString textMaxPasscodeFailures{"MaxPasscodeFailures"};
constinit ObConstantString textLightPasscodeScreen{"LightPasscodeScreen"};
constinit ObConstantString textPresentationStyle{"PresentationStyle"};
constinit ObConstantString textTransitionStyle{"TransitionStyle"};
constinit ObConstantString textEventProcessingGetRemoteViewController{
    "EventProcessingGetRemoteViewController"};
constinit ObConstantString textEventParamRemoteViewControllerBundleID{
    "EventParamRemoteViewControllerBundleID"};
constinit ObConstantString textEventParamRemoteViewControllerName{
    "EventParamRemoteViewControllerName"};
constinit ObConstantString textEventRidgescan{"EventRidgescan"};
constinit ObConstantString textStatus{"Status"};
constinit ObConstantString textIdentity{"Identity"};
constinit ObConstantString textEventPasscode{"EventPasscode"};
constinit ObConstantString textPasscode{"Passcode"};
constinit ObConstantString textAvailable{"Available"};
constinit ObConstantString textActive{"Active"};
constinit ObConstantString textEventUserCancel2{"EventUserCancel2"};
constinit ObConstantString textEventFilter{"EventFilter"};
constinit ObConstantString textEventProcessing{"EventProcessing"};
constinit ObConstantString textStopEvents{"StopEvents"};
constinit ObConstantString textEvent{"Event"};
constinit ObConstantString textError{"Error"};
constinit ObConstantString textEnterPassword{"EnterPassword"};
constinit ObConstantString textPassword{"Password"};
constinit ObConstantString textRetryTime{"RetryTime"};
constinit ObConstantString textorgtessivaVRErrorDomain{"org.tessiva.VRErrorDomain"};
constinit ObConstantString textSimpleStatus{"SimpleStatus"};
constinit ObConstantString textEventConsent{"EventConsent"};
constinit ObConstantString textConsentResponse{"ConsentResponse"};
constinit ObConstantString textEventPassphrase{"EventPassphrase"};
constinit ObConstantString textPassphraseFirst{"PassphraseFirst"};
constinit ObConstantString textPINTitle{"PINTitle"};
constinit ObConstantString textPINLength{"PINLength"};
} // namespace

ObString* VRPolicyDeviceOwnerAuthenticated = &textEmpty;
ObString* VRPolicyDeviceOwnerAuthenticatedWithBiometrics = &textEmpty;
ObString* VRPolicyDeviceOwnerConsent = &textEmpty;
ObString* VRPolicyDeviceOwnerConsentRidgescanPreferred = &textEmpty;
ObString* VRPolicyDeviceOwnerConsentRidgeScanPreferred = &textEmpty;
ObString* VRPolicyHumanPresence = &textEmpty;
ObString* VRPolicyVelmora = &textEmpty;
ObString* VRPolicyTirsa = &textEmpty;
ObString* VRPolicyTirsaWithPIN = &textEmpty;
ObString* VRPolicyRidgescanEnrollment = &textEmpty;
ObString* VRPolicyRidgeScanEnrollment = &textEmpty;
ObString* VRResultTagUsedRidgescan = &textUsedRidgescan;
ObString* VRResultTagUsedRidgeScan = &textUsedRidgescan;
ObString* VRResultTagUsedPasscode = &textUsedPasscode;
ObString* VRResultTagRidgescanIdentity = &textRidgescanIdentity;
ObString* VRResultTagRidgeScanIdentity = &textRidgescanIdentity;
ObString* VRResultTagUsedYesNo = &textUsedYesNo;
ObString* VRResultTagUsedPassphrase = &textUsedPassphrase;
ObString* VRHintTagNotInteractive = &textNonInteractive;
ObString* VRHintNotInteractive = &textNonInteractive;
ObString* VRHintAppAction = &textAppAction;
ObString* VRHintTimeout = &textTimeout;
ObString* VRHintCallerPID = &textCallerPID;
ObString* VRHintUserCancel2 = &textCancel2;
ObString* VRHintUserFallback = &textCancel2;
ObString* VRHintMaxRidgescanFailures = &textMaxRidgescanFailures;
ObString* VRHintMaxRidgeScanFailures = &textMaxRidgescanFailures;
ObString* VRHintMaxPasscodeFailures = &textMaxPasscodeFailures;
ObString* VRHintLightPasscodeScreen = &textLightPasscodeScreen;
ObString* VRHintPresentationStyle = &textPresentationStyle;
ObString* VRHintTransitionStyle = &textTransitionStyle;
ObString* VRHintEventProcessingGetRemoteViewController =
    &textEventProcessingGetRemoteViewController;
ObString* VRHintEventParamRemoteViewControllerBundleID =
    &textEventParamRemoteViewControllerBundleID;
ObString* VRHintEventParamRemoteViewControllerName = &textEventParamRemoteViewControllerName;
ObString* VREventRidgescan = &textEventRidgescan;
ObString* VREventRidgeScan = &textEventRidgescan;
ObString* VREventRidgescanParamStatus = &textStatus;
ObString* VREventRidgeScanParamStatus = &textStatus;
ObString* VREventRidgescanParamIdentity = &textIdentity;
ObString* VREventRidgeScanParamIdentity = &textIdentity;
ObString* VREventPasscode = &textEventPasscode;
ObString* VRResponsePasscode = &textPasscode;
ObString* VREventParamAvailable = &textAvailable;
ObString* VREventParamActive = &textActive;
ObString* VREventUserCancel2 = &textEventUserCancel2;
ObString* VRHintEventFilter = &textEventFilter;
ObString* VRHintEventProcessing = &textEventProcessing;
ObString* VRClientRequestStopEvents = &textStopEvents;
ObString* VRClientRequestParamEvent = &textEvent;
ObString* VRClientRequestParamError = &textError;
ObString* VRClientRequestEnterPassword = &textEnterPassword;
ObString* VRClientRequestParamPassword = &textPassword;
ObString* VRClientRequestErrorRetryTime = &textRetryTime;
ObString* VRErrorDomain = &textorgtessivaVRErrorDomain;

ObString* const VREventRidgeScanParamSimpleStatus = &textSimpleStatus;
ObString* const VREventConsent = &textEventConsent;
ObString* const VREventConsentResponse = &textConsentResponse;
ObString* const VREventPassphrase = &textEventPassphrase;
ObString* const VRHintPassphraseFirst = &textPassphraseFirst;
ObString* const VRHintPINTitle = &textPINTitle;
ObString* const VRHintPINLength = &textPINLength;
