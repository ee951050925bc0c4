// SPDX-License-Identifier: MIT
// A whole session through the VR interface against the simulated service, on
// the service's own threads.
#include "credential/ReferenceTesting.h"
#include "support/RecordingUIDelegate.h"
#include "tessiva/kavelin/KVSimulatedService.h"

namespace tessiva::test {
namespace {

// The caller's delegate answers a prompt; another reference, restored from
// the handle, pushes the passcode into the same evaluation, and later stops
// one with the caller's own error.
TEST(EndToEnd, DelegateAndClientRequestsFromARestoredHandleDriveOneContext) {
    const ObRef<KVSimulatedService> service = KVSimulatedService::make();
    const KVScopedClientBackend installed(service);
    const ObRef<ObString> passcode = ObString::make("2468");
    service->setPasscode(passcode);
    const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    SharedList<ObRef<ObError>> replies;
    const VRErrorReply record = [&](ObRef<ObError> error) { replies.add(error); };
    reference->setupWithCredentialHandle_uiDelegate_reply(nullptr, delegate, record);
    ASSERT_EQ(replies.waitFor(0), nullptr);
    const ObRef<VRCredentialReference> restored = VRCredentialReference::make();
    ASSERT_TRUE(restored->setupWithCredentialHandle_error(reference->credentialHandle(), nullptr));

    reference->evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, record);
    delegate->waitForEvent(0).reply(
        ObDictionary::make({{VREventConsentResponse, ObString::make("0000")}}), nullptr);
    // The wrong passcode was counted.
    EXPECT_EQ(printed(delegate->waitForEvent(1).params), "{Active = 1; SimpleStatus = 2}");
    restored->sendClientRequest_params_reply(
        VRClientRequestEnterPassword,
        ObDictionary::make({{VRClientRequestParamPassword, passcode}}), [](auto...) {});
    EXPECT_EQ(replies.waitFor(1), nullptr);

    const ObRef<ObError> stop = ObError::make(ObString::make("Caller"), 3, nullptr);
    reference->evaluatePolicy_hints_reply(VRPolicyTirsa, nullptr, record);
    (void)delegate->waitForEvent(3);
    restored->sendClientRequest_params_reply(
        VRClientRequestStopEvents,
        ObDictionary::make(
            {{VRClientRequestParamEvent, VREventPasscode}, {VRClientRequestParamError, stop}}),
        [](auto...) {});
    EXPECT_EQ(replies.waitFor(2), stop);
}

} // namespace
} // namespace tessiva::test
