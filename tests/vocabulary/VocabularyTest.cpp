// The exported constants and version symbols: values, shared objects, constness.
#include "tessiva/VRConstants.h"
#include "tessiva/VRVersion.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string_view>
#include <type_traits>

namespace {

// Every exported constant: symbol, whether it is declared `const`, its text.
#define VR_CONSTANTS(X)                                                                            \
    X(VRPolicyDeviceOwnerAuthenticated, false, "")                                                 \
    X(VRPolicyDeviceOwnerAuthenticatedWithBiometrics, false, "")                                   \
    X(VRPolicyDeviceOwnerConsent, false, "")                                                       \
    X(VRPolicyDeviceOwnerConsentRidgescanPreferred, false, "")                                     \
    X(VRPolicyDeviceOwnerConsentRidgeScanPreferred, false, "")                                     \
    X(VRPolicyHumanPresence, false, "")                                                            \
    X(VRPolicyVelmora, false, "")                                                                  \
    X(VRPolicyTirsa, false, "")                                                                    \
    X(VRPolicyTirsaWithPIN, false, "")                                                             \
    X(VRPolicyRidgescanEnrollment, false, "")                                                      \
    X(VRPolicyRidgeScanEnrollment, false, "")                                                      \
    X(VRResultTagUsedRidgescan, false, "UsedRidgescan")                                            \
    X(VRResultTagUsedRidgeScan, false, "UsedRidgescan")                                            \
    X(VRResultTagUsedPasscode, false, "UsedPasscode")                                              \
    X(VRResultTagRidgescanIdentity, false, "RidgescanIdentity")                                    \
    X(VRResultTagRidgeScanIdentity, false, "RidgescanIdentity")                                    \
    X(VRResultTagUsedYesNo, false, "UsedYesNo")                                                    \
    X(VRResultTagUsedPassphrase, false, "UsedPassphrase")                                          \
    X(VRHintTagNotInteractive, false, "NonInteractive")                                            \
    X(VRHintNotInteractive, false, "NonInteractive")                                               \
    X(VRHintAppAction, false, "AppAction")                                                         \
    X(VRHintTimeout, false, "Timeout")                                                             \
    X(VRHintCallerPID, false, "CallerPID")                                                         \
    X(VRHintUserCancel2, false, "Cancel2")                                                         \
    X(VRHintUserFallback, false, "Cancel2")                                                        \
    X(VRHintMaxRidgescanFailures, false, "MaxRidgescanFailures")                                   \
    X(VRHintMaxRidgeScanFailures, false, "MaxRidgescanFailures")                                   \
    X(VRHintMaxPasscodeFailures, false, "MaxPasscodeFailures")                                     \
    X(VRHintLightPasscodeScreen, false, "LightPasscodeScreen")                                     \
    X(VRHintPresentationStyle, false, "PresentationStyle")                                         \
    X(VRHintTransitionStyle, false, "TransitionStyle")                                             \
    X(VRHintEventProcessingGetRemoteViewController, false,                                         \
      "EventProcessingGetRemoteViewController")                                                    \
    X(VRHintEventParamRemoteViewControllerBundleID, false,                                         \
      "EventParamRemoteViewControllerBundleID")                                                    \
    X(VRHintEventParamRemoteViewControllerName, false, "EventParamRemoteViewControllerName")       \
    X(VREventRidgescan, false, "EventRidgescan")                                                   \
    X(VREventRidgeScan, false, "EventRidgescan")                                                   \
    X(VREventRidgescanParamStatus, false, "Status")                                                \
    X(VREventRidgeScanParamStatus, false, "Status")                                                \
    X(VREventRidgescanParamIdentity, false, "Identity")                                            \
    X(VREventRidgeScanParamIdentity, false, "Identity")                                            \
    X(VREventPasscode, false, "EventPasscode")                                                     \
    X(VRResponsePasscode, false, "Passcode")                                                       \
    X(VREventParamAvailable, false, "Available")                                                   \
    X(VREventParamActive, false, "Active")                                                         \
    X(VREventUserCancel2, false, "EventUserCancel2")                                               \
    X(VRHintEventFilter, false, "EventFilter")                                                     \
    X(VRHintEventProcessing, false, "EventProcessing")                                             \
    X(VRClientRequestStopEvents, false, "StopEvents")                                              \
    X(VRClientRequestParamEvent, false, "Event")                                                   \
    X(VRClientRequestParamError, false, "Error")                                                   \
    X(VRClientRequestEnterPassword, false, "EnterPassword")                                        \
    X(VRClientRequestParamPassword, false, "Password")                                             \
    X(VRClientRequestErrorRetryTime, false, "RetryTime")                                           \
    X(VRErrorDomain, false, "org.tessiva.VRErrorDomain")                                           \
    X(VREventRidgeScanParamSimpleStatus, true, "SimpleStatus")                                     \
    X(VREventConsent, true, "EventConsent")                                                        \
    X(VREventConsentResponse, true, "ConsentResponse")                                             \
    X(VREventPassphrase, true, "EventPassphrase")                                                  \
    X(VRHintPassphraseFirst, true, "PassphraseFirst")                                              \
    X(VRHintPINTitle, true, "PINTitle")                                                            \
    X(VRHintPINLength, true, "PINLength")

// Declared constness is part of the interface: seven `ObString* const`, the
// rest reassignable `ObString*`.
#define CHECK_DECLARATION(symbol, declaredConst, text)                                             \
    static_assert(std::is_const_v<decltype(symbol)> == (declaredConst), #symbol);                  \
    static_assert(std::is_same_v<std::remove_const_t<decltype(symbol)>, ObString*>, #symbol);
VR_CONSTANTS(CHECK_DECLARATION)

struct Constant {
    std::string_view symbol;
    ObString* value;
    std::string_view text;
};
#define CONSTANT_ROW(symbol, declaredConst, text) Constant{#symbol, symbol, text},
const Constant constants[] = {VR_CONSTANTS(CONSTANT_ROW)};

TEST(Vocabulary, EveryConstantHoldsItsText) {
    for (const Constant& constant : constants) {
        SCOPED_TRACE(constant.symbol);
        ASSERT_NE(constant.value, nullptr);
        EXPECT_EQ(constant.value->text(), constant.text);
        EXPECT_EQ(constant.value->length(), constant.text.size());
    }
}

TEST(Vocabulary, AliasPairsAreOneObject) {
    const std::pair<ObString*, ObString*> pairs[] = {
        {VRPolicyDeviceOwnerConsentRidgescanPreferred,
         VRPolicyDeviceOwnerConsentRidgeScanPreferred},
        {VRPolicyRidgescanEnrollment, VRPolicyRidgeScanEnrollment},
        {VRResultTagUsedRidgescan, VRResultTagUsedRidgeScan},
        {VRResultTagRidgescanIdentity, VRResultTagRidgeScanIdentity},
        {VRHintTagNotInteractive, VRHintNotInteractive},
        {VRHintUserCancel2, VRHintUserFallback},
        {VRHintMaxRidgescanFailures, VRHintMaxRidgeScanFailures},
        {VREventRidgescan, VREventRidgeScan},
        {VREventRidgescanParamStatus, VREventRidgeScanParamStatus},
        {VREventRidgescanParamIdentity, VREventRidgeScanParamIdentity},
    };
    for (const auto& [first, second] : pairs) {
        SCOPED_TRACE(first->text());
        EXPECT_EQ(first, second);
    }
}

TEST(Vocabulary, AllElevenPoliciesAreOneEmptyObject) {
    int policies = 0;
    for (const Constant& constant : constants) {
        if (!constant.symbol.starts_with("VRPolicy"))
            continue;
        SCOPED_TRACE(constant.symbol);
        ++policies;
        EXPECT_EQ(constant.value, VRPolicyDeviceOwnerAuthenticated);
    }
    EXPECT_EQ(policies, 11);
    EXPECT_EQ(VRPolicyDeviceOwnerAuthenticated->length(), 0u);
}

TEST(Vocabulary, VersionSymbols) {
    static constexpr char expected[] = "@(#)PROGRAM:Tessiva  PROJECT:Tessiva-1.30.1.30\n";
    // sizeof includes the terminating NUL, which the symbol must carry too.
    EXPECT_EQ(std::memcmp(TessivaVersionString, expected, sizeof expected), 0)
        << reinterpret_cast<const char*>(TessivaVersionString);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(TessivaVersionNumber), 0x3FF4CCCCCCCCCCCDull);
}

} // namespace
