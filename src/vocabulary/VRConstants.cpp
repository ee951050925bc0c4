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
constinit ObConstantString textErrorDomain{"org.tessiva.VRErrorDomain"};
constinit ObConstantString textSimpleStatus{"SimpleStatus"};
constinit ObConstantString textEventConsent{"EventConsent"};
constinit ObConstantString textConsentResponse{"ConsentResponse"};
constinit ObConstantString textEventPassphrase{"EventPassphrase"};
constinit ObConstantString textPassphraseFirst{"PassphraseFirst"};
constinit ObConstantString textPINTitle{"PINTitle"};
constinit ObConstantString textPINLength{"PINLength"};
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
