// SPDX-License-Identifier: MIT
// The proxy between the service's numbered events and a caller's VR delegate.
#include "tessiva/DelegateProxy.h"

#include "credential/ReferenceTesting.h"
#include "support/RecordingUIDelegate.h"

#include <climits>

namespace tessiva::test {
namespace {

// Events 1 to 4 reach the caller renamed with their parameters; any other,
// those at and past the edges of the numbers the proxy keeps ready (-1, 7, 8)
// and the extremes too, becomes one availability report per entry, named
// after the entry's key, which nobody answers. Answers go back renamed with the error as given,
// even after the proxy and the caller's delegate are gone.
TEST(DelegateProxy, RenamesEventsParametersAndAnswers) {
    ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    ObRef<DelegateProxy> proxy = DelegateProxy::initWithVRUIDelegate(delegate);
    std::string answers;
    // Parameters {number: number}, for each number given.
    const auto send = [&](ObInteger event, const std::vector<ObInteger>& numbers) {
        std::vector<ObDictionary::Entry> params;
        for (ObInteger number : numbers)
            params.emplace_back(ObNumber::make(number), ObNumber::make(number));
        proxy->event_params_reply(event, numbers.empty() ? nullptr : ObDictionary::make(params),
                                  [&](auto answer, auto error) {
                                      answers += printed(answer) + " " + printed(error) + "\n";
                                  });
    };
    EXPECT_THAT([&] { send(2, {6}); }, testing::Throws<ObInvalidArgumentException>());
    for (const auto& [event, numbers] :
         std::vector<std::pair<ObInteger, std::vector<ObInteger>>>{{1, {1, 2}},
                                                                   {2, {3, 4}},
                                                                   {3, {}},
                                                                   {4, {0, 5}},
                                                                   {0, {1, 9}},
                                                                   {5, {}},
                                                                   {-1, {1}},
                                                                   {7, {1}},
                                                                   {8, {1}},
                                                                   {LONG_MIN, {1}},
                                                                   {LONG_MAX, {1}}})
        send(event, numbers);
    std::string events;
    for (const RecordingUIDelegate::Event& event : delegate->events()) {
        events += printed(event.name) + " " + printed(event.params) + "\n";
        event.reply(nullptr, nullptr);
    }
    EXPECT_EQ(events, R"(EventRidgescan {Status = 1; Identity = 2}
EventPasscode {EventParamRemoteViewControllerBundleID = 3; EventParamRemoteViewControllerName = 4}
EventConsent (null)
EventPassphrase {Active = 0; SimpleStatus = 5}
EventRidgescan {Available = 1}
(null) {Available = 9}
EventRidgescan {Available = 1}
EventRidgescan {Available = 1}
EventRidgescan {Available = 1}
EventRidgescan {Available = 1}
EventRidgescan {Available = 1}
)");

    const VRUIReply reply = delegate->events().at(2).reply;
    proxy = nullptr;
    delegate = nullptr;
    const ObRef<ObString> passcode = ObString::make("Passcode");
    reply(ObDictionary::make({{VREventConsentResponse, passcode}}), serviceUnavailable());
    EXPECT_THAT(
        [&] {
            reply(ObDictionary::make({{passcode, passcode}}), nullptr);
        },
        testing::ThrowsMessage<ObInvalidArgumentException>("Unknown response key: Passcode"));
    EXPECT_EQ(answers, "{} (null)\n{} (null)\n{} (null)\n{} (null)\n{0 = Passcode} " +
                           printed(serviceUnavailable()) + "\n");
}

} // namespace
} // namespace tessiva::test
