// SPDX-License-Identifier: MIT
// The exported VR vocabulary: every name of the VR interface as a constant
// string object. Callers pass these; the translation tables are keyed by the
// same texts, compared by value, so a caller's own equal string works too.
//
// Each constant points to an immortal, constant-initialised ObString that is
// usable from any static initialiser. The two names of an alias pair point to
// one object. Seven constants are declared `ObString* const`; the others are
// plain globals that the library never reassigns. That split is part of the
// interface and stays as it is.
#pragma once

#include "tessiva/TessivaExport.h"
#include "tessiva/object/ObString.h"

// Policies: every one holds "" in this build, and all eleven are one object.
extern TESSIVA_API ObString* VRPolicyDeviceOwnerAuthenticated;               // ""
extern TESSIVA_API ObString* VRPolicyDeviceOwnerAuthenticatedWithBiometrics; // ""
extern TESSIVA_API ObString* VRPolicyDeviceOwnerConsent;                     // ""
extern TESSIVA_API ObString* VRPolicyDeviceOwnerConsentRidgescanPreferred;   // ""
extern TESSIVA_API ObString* VRPolicyDeviceOwnerConsentRidgeScanPreferred;   // ""
extern TESSIVA_API ObString* VRPolicyHumanPresence;                          // ""
extern TESSIVA_API ObString* VRPolicyVelmora;                                // ""
extern TESSIVA_API ObString* VRPolicyTirsa;                                  // ""
extern TESSIVA_API ObString* VRPolicyTirsaWithPIN;                           // ""
extern TESSIVA_API ObString* VRPolicyRidgescanEnrollment;                    // ""
extern TESSIVA_API ObString* VRPolicyRidgeScanEnrollment;                    // ""

// Result tags: keys of the results of a policy evaluation.
extern TESSIVA_API ObString* VRResultTagUsedRidgescan;     // "UsedRidgescan"
extern TESSIVA_API ObString* VRResultTagUsedRidgeScan;     // "UsedRidgescan"
extern TESSIVA_API ObString* VRResultTagUsedPasscode;      // "UsedPasscode"
extern TESSIVA_API ObString* VRResultTagRidgescanIdentity; // "RidgescanIdentity"
extern TESSIVA_API ObString* VRResultTagRidgeScanIdentity; // "RidgescanIdentity"
extern TESSIVA_API ObString* VRResultTagUsedYesNo;         // "UsedYesNo"
extern TESSIVA_API ObString* VRResultTagUsedPassphrase;    // "UsedPassphrase"

// Hints: keys of a hints dictionary (the last three are not top-level hints:
// a processing parameter and two event parameters).
extern TESSIVA_API ObString* VRHintTagNotInteractive;    // "NonInteractive"
extern TESSIVA_API ObString* VRHintNotInteractive;       // "NonInteractive"
extern TESSIVA_API ObString* VRHintAppAction;            // "AppAction"
extern TESSIVA_API ObString* VRHintTimeout;              // "Timeout"
extern TESSIVA_API ObString* VRHintCallerPID;            // "CallerPID"
extern TESSIVA_API ObString* VRHintUserCancel2;          // "Cancel2"
extern TESSIVA_API ObString* VRHintUserFallback;         // "Cancel2"
extern TESSIVA_API ObString* VRHintMaxRidgescanFailures; // "MaxRidgescanFailures"
extern TESSIVA_API ObString* VRHintMaxRidgeScanFailures; // "MaxRidgescanFailures"
extern TESSIVA_API ObString* VRHintMaxPasscodeFailures;  // "MaxPasscodeFailures"
extern TESSIVA_API ObString* VRHintLightPasscodeScreen;  // "LightPasscodeScreen"
extern TESSIVA_API ObString* VRHintPresentationStyle;    // "PresentationStyle"
extern TESSIVA_API ObString* VRHintTransitionStyle;      // "TransitionStyle"
extern TESSIVA_API ObString*
    VRHintEventProcessingGetRemoteViewController; // "EventProcessingGetRemoteViewController"
extern TESSIVA_API ObString*
    VRHintEventParamRemoteViewControllerBundleID; // "EventParamRemoteViewControllerBundleID"
extern TESSIVA_API ObString*
    VRHintEventParamRemoteViewControllerName; // "EventParamRemoteViewControllerName"

// Events, event parameters and responses.
extern TESSIVA_API ObString* VREventRidgescan;              // "EventRidgescan"
extern TESSIVA_API ObString* VREventRidgeScan;              // "EventRidgescan"
extern TESSIVA_API ObString* VREventRidgescanParamStatus;   // "Status"
extern TESSIVA_API ObString* VREventRidgeScanParamStatus;   // "Status"
extern TESSIVA_API ObString* VREventRidgescanParamIdentity; // "Identity"
extern TESSIVA_API ObString* VREventRidgeScanParamIdentity; // "Identity"
extern TESSIVA_API ObString* VREventPasscode;               // "EventPasscode"
extern TESSIVA_API ObString* VRResponsePasscode;            // "Passcode"
extern TESSIVA_API ObString* VREventParamAvailable;         // "Available"
extern TESSIVA_API ObString* VREventParamActive;            // "Active"
extern TESSIVA_API ObString* VREventUserCancel2;            // "EventUserCancel2"

// The two structured hints.
extern TESSIVA_API ObString* VRHintEventFilter;     // "EventFilter"
extern TESSIVA_API ObString* VRHintEventProcessing; // "EventProcessing"

// Client requests and their parameters.
extern TESSIVA_API ObString* VRClientRequestStopEvents;     // "StopEvents"
extern TESSIVA_API ObString* VRClientRequestParamEvent;     // "Event"
extern TESSIVA_API ObString* VRClientRequestParamError;     // "Error"
extern TESSIVA_API ObString* VRClientRequestEnterPassword;  // "EnterPassword"
extern TESSIVA_API ObString* VRClientRequestParamPassword;  // "Password"
extern TESSIVA_API ObString* VRClientRequestErrorRetryTime; // "RetryTime"

// The domain of every error the library makes; stable, callers compare with it.
extern TESSIVA_API ObString* VRErrorDomain; // "org.tessiva.VRErrorDomain"

// Declared constant.
extern TESSIVA_API ObString* const VREventRidgeScanParamSimpleStatus; // "SimpleStatus"
extern TESSIVA_API ObString* const VREventConsent;                    // "EventConsent"
extern TESSIVA_API ObString* const VREventConsentResponse;            // "ConsentResponse"
extern TESSIVA_API ObString* const VREventPassphrase;                 // "EventPassphrase"
extern TESSIVA_API ObString* const VRHintPassphraseFirst;             // "PassphraseFirst"
extern TESSIVA_API ObString* const VRHintPINTitle;                    // "PINTitle"
extern TESSIVA_API ObString* const VRHintPINLength;                   // "PINLength"
