#include "tessiva/DelegateProxy.h"

#include "support/RecordingUIDelegate.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/Ob.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {
using tessiva::test::RecordingUIDelegate;

ObRef<ObString> text(std::string_view value) {
    return ObString::make(value);
}
ObRef<ObNumber> number(ObInteger value) {
    return ObNumber::make(value);
}
std::string printed(const ObRef<ObObject>& object) {
    return std::string(ObFormat("%@", object)->text());
}

// "<name>: <message>" of the exception the action raises.
template <class Action> std::string refusal(Action action) {
    try {
        action();
    } catch (const ObException& exception) {
        return std::string(exception.name()->text()) + ": " + exception.what();
    }
    return "no exception";
}

class DelegateProxyTest : public ::testing::Test {
protected:
    struct Answer {
        ObRef<ObDictionary> dictionary;
        ObRef<ObError> error;
        std::thread::id thread;
    };
    // Records what reaches the service through the proxy.
    KVUIReply serviceReply() {
        return [this](ObRef<ObDictionary> answer, ObRef<ObError> error) {
            answers.push_back({std::move(answer), std::move(error), std::this_thread::get_id()});
        };
    }
    VRUIReply onlyReply() const {
        EXPECT_EQ(delegate->events().size(), 1u);
        return delegate->events().at(0).reply;
    }

    std::vector<Answer> answers;
    ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    ObRef<DelegateProxy> proxy = KVLegacyHelper::uiDelegateFromVRUIDelegate(delegate);
};

TEST(UIDelegateFromVRUIDelegate, AbsentStaysAbsentAndEveryCallMakesANewProxy) {
    EXPECT_EQ(KVLegacyHelper::uiDelegateFromVRUIDelegate(nullptr), nullptr);
    const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    const ObRef<DelegateProxy> first = KVLegacyHelper::uiDelegateFromVRUIDelegate(delegate);
    ASSERT_TRUE(first);
    EXPECT_NE(first, KVLegacyHelper::uiDelegateFromVRUIDelegate(delegate));
}

TEST_F(DelegateProxyTest, RenamesEventsAndTheirParameters) {
    const struct {
        ObInteger event;
        ObRef<ObDictionary> params;
        std::string_view name, vrParams;
    } cases[] = {
        {1, ObDictionary::make({{number(1), text("s")}, {number(2), text("i")}}), "EventRidgescan",
         "{Status = s; Identity = i}"},
        {2, ObDictionary::make({{number(3), text("b")}, {number(4), text("n")}}), "EventPasscode",
         "{EventParamRemoteViewControllerBundleID = b; EventParamRemoteViewControllerName = n}"},
        {3, nullptr, "EventConsent", "(null)"},
        {4, ObDictionary::make({{number(0), text("a")}, {number(5), text("b")}}), "EventPassphrase",
         "{Active = a; SimpleStatus = b}"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.event);
        proxy->event_params_reply(c.event, c.params, serviceReply());
        EXPECT_EQ(printed(delegate->events().back().name), c.name);
        EXPECT_EQ(printed(delegate->events().back().params), c.vrParams);
    }
    EXPECT_EQ(delegate->events().size(), std::size(cases));
    EXPECT_TRUE(answers.empty());
}

TEST_F(DelegateProxyTest, OtherEventsCarryOneAvailabilityReportPerEntry) {
    const ObRef<ObObject> yes = ObNumber::makeBool(true), no = ObNumber::makeBool(false);
    proxy->event_params_reply(0, ObDictionary::make({{number(1), yes}, {number(2), no}}),
                              serviceReply());
    proxy->event_params_reply(9, ObDictionary::make({{number(7), text("v")}}), serviceReply());
    proxy->event_params_reply(5, nullptr, serviceReply());

    const auto events = delegate->events();
    ASSERT_EQ(events.size(), 3u);
    const std::string_view expected[][2] = {{"EventRidgescan", "{Available = 1}"},
                                            {"EventPasscode", "{Available = 0}"},
                                            {"(null)", "{Available = v}"}};
    for (std::size_t i = 0; i < events.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(printed(events[i].name), expected[i][0]);
        EXPECT_EQ(printed(events[i].params), expected[i][1]);
        events[i].reply(ObDictionary::make({{text("ConsentResponse"), yes}}), nullptr);
    }
    EXPECT_TRUE(answers.empty());
}

TEST_F(DelegateProxyTest, TranslatesEveryAnswerBackWithTheErrorUnchanged) {
    proxy->event_params_reply(3, nullptr, serviceReply());
    const ObRef<ObError> error = KVErrorHelper::parameterErrorWithMessage(text("declined"));
    onlyReply()(ObDictionary::make({{text("ConsentResponse"), text("v")}}), error);
    onlyReply()(nullptr, nullptr);

    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(printed(answers[0].dictionary), "{0 = v}");
    EXPECT_EQ(answers[0].error, error);
    EXPECT_EQ(printed(answers[1].dictionary), "{}");
    EXPECT_EQ(answers[1].error, nullptr);
}

TEST_F(DelegateProxyTest, RefusesParametersAndAnswerKeysItCannotName) {
    EXPECT_EQ(refusal([&] {
                  proxy->event_params_reply(2, ObDictionary::make({{number(6), text("x")}}),
                                            serviceReply());
              }).substr(0, 28),
              "ObInvalidArgumentException: ");
    EXPECT_TRUE(delegate->events().empty());

    proxy->event_params_reply(3, nullptr, serviceReply());
    EXPECT_EQ(refusal([&] {
                  onlyReply()(ObDictionary::make({{text("ConsentResponse"), text("v")},
                                                  {text("Passcode"), text("1234")}}),
                              nullptr);
              }),
              "ObInvalidArgumentException: Unknown response key: Passcode");
    EXPECT_TRUE(answers.empty());
}

TEST_F(DelegateProxyTest, AnswersLaterFromAnotherThreadAfterTheProxyIsGone) {
    proxy->event_params_reply(1, nullptr, serviceReply());
    const VRUIReply reply = onlyReply();
    proxy = nullptr;
    delegate = nullptr;
    std::thread::id answeringThread;
    std::thread([&] {
        answeringThread = std::this_thread::get_id();
        reply(ObDictionary::make({{text("ConsentResponse"), text("later")}}), nullptr);
    }).join();
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(printed(answers[0].dictionary), "{0 = later}");
    EXPECT_EQ(answers[0].thread, answeringThread);
}
} // namespace
