// SPDX-License-Identifier: MIT
// tessiva vocabulary: every exported constant, its value and its alias.
#include "Command.h"
#include "tessiva/VRConstants.h"

#include <algorithm>
#include <iomanip>
#include <iostream>

namespace tessiva::tool {
namespace {

// The constants are read when printed, through their addresses, so the list
// shows what the library holds now.
struct Constant {
    std::string_view name;
    ObString* const* value;
    // The second name of an alias pair follows the first.
    bool aliasOfPrevious = false;
};
#define NAMED(symbol)                                                                              \
    Constant {                                                                                     \
#symbol, &symbol                                                                           \
    }
#define ALIAS(symbol)                                                                              \
    Constant {                                                                                     \
#symbol, &symbol, true                                                                     \
    }

// Every constant, in declaration order.
constexpr Constant constants[] = {
    NAMED(VRPolicyDeviceOwnerAuthenticated),
    NAMED(VRPolicyDeviceOwnerAuthenticatedWithBiometrics),
    NAMED(VRPolicyDeviceOwnerConsent),
    NAMED(VRPolicyDeviceOwnerConsentRidgescanPreferred),
    ALIAS(VRPolicyDeviceOwnerConsentRidgeScanPreferred),
    NAMED(VRPolicyHumanPresence),
    NAMED(VRPolicyVelmora),
    NAMED(VRPolicyTirsa),
    NAMED(VRPolicyTirsaWithPIN),
    NAMED(VRPolicyRidgescanEnrollment),
    ALIAS(VRPolicyRidgeScanEnrollment),
    NAMED(VRResultTagUsedRidgescan),
    ALIAS(VRResultTagUsedRidgeScan),
    NAMED(VRResultTagUsedPasscode),
    NAMED(VRResultTagRidgescanIdentity),
    ALIAS(VRResultTagRidgeScanIdentity),
    NAMED(VRResultTagUsedYesNo),
    NAMED(VRResultTagUsedPassphrase),
    NAMED(VRHintTagNotInteractive),
    ALIAS(VRHintNotInteractive),
    NAMED(VRHintAppAction),
    NAMED(VRHintTimeout),
    NAMED(VRHintCallerPID),
    NAMED(VRHintUserCancel2),
    ALIAS(VRHintUserFallback),
    NAMED(VRHintMaxRidgescanFailures),
    ALIAS(VRHintMaxRidgeScanFailures),
    NAMED(VRHintMaxPasscodeFailures),
    NAMED(VRHintLightPasscodeScreen),
    NAMED(VRHintPresentationStyle),
    NAMED(VRHintTransitionStyle),
    NAMED(VRHintEventProcessingGetRemoteViewController),
    NAMED(VRHintEventParamRemoteViewControllerBundleID),
    NAMED(VRHintEventParamRemoteViewControllerName),
    NAMED(VREventRidgescan),
    ALIAS(VREventRidgeScan),
    NAMED(VREventRidgescanParamStatus),
    ALIAS(VREventRidgeScanParamStatus),
    NAMED(VREventRidgescanParamIdentity),
    ALIAS(VREventRidgeScanParamIdentity),
    NAMED(VREventPasscode),
    NAMED(VRResponsePasscode),
    NAMED(VREventParamAvailable),
    NAMED(VREventParamActive),
    NAMED(VREventUserCancel2),
    NAMED(VRHintEventFilter),
    NAMED(VRHintEventProcessing),
    NAMED(VRClientRequestStopEvents),
    NAMED(VRClientRequestParamEvent),
    NAMED(VRClientRequestParamError),
    NAMED(VRClientRequestEnterPassword),
    NAMED(VRClientRequestParamPassword),
    NAMED(VRClientRequestErrorRetryTime),
    NAMED(VRErrorDomain),
    NAMED(VREventRidgeScanParamSimpleStatus),
    NAMED(VREventConsent),
    NAMED(VREventConsentResponse),
    NAMED(VREventPassphrase),
    NAMED(VRHintPassphraseFirst),
    NAMED(VRHintPINTitle),
    NAMED(VRHintPINLength),
};
#undef NAMED
#undef ALIAS

std::string quoted(const ObString* value) {
    return '"' + std::string(value->text()) + '"';
}

std::string_view aliasOf(std::size_t index) {
    if (constants[index].aliasOfPrevious)
        return constants[index - 1].name;
    if (index + 1 < std::size(constants) && constants[index + 1].aliasOfPrevious)
        return constants[index + 1].name;
    return "-";
}

} // namespace

int runVocabulary(Arguments arguments) {
    expectArgumentCount(arguments, 0, 0, "vocabulary");
    std::size_t nameWidth = 0;
    std::size_t valueWidth = 0;
    for (const Constant& constant : constants) {
        nameWidth = std::max(nameWidth, constant.name.size());
        valueWidth = std::max(valueWidth, quoted(*constant.value).size());
    }
    auto row = [&](std::string_view name, std::string_view value, std::string_view alias) {
        std::cout << std::left << std::setw(static_cast<int>(nameWidth + 2)) << name
                  << std::setw(static_cast<int>(valueWidth + 2)) << value << alias << '\n';
    };
    row("NAME", "VALUE", "ALIAS");
    for (std::size_t index = 0; index < std::size(constants); ++index)
        row(constants[index].name, quoted(*constants[index].value), aliasOf(index));
    return exitSuccess;
}

} // namespace tessiva::tool
