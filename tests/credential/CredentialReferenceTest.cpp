#include "credential/ReferenceTesting.h"
#include "support/RecordingUIDelegate.h"
#include "support/TestSupport.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/object/Ob.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace {
using tessiva::test::FakeReplyMode;
using tessiva::test::FakeService;
using tessiva::test::printed;
using tessiva::test::RecordingUIDelegate;
using tessiva::test::ReferenceKinds;
using tessiva::test::ReferenceTest;
using tessiva::test::serviceUnavailable;

constexpr std::string_view setupLine =
    "VRCredReference: -[VRCredentialReference setupWithCredentialHandle:domain:uiDelegate:reply:] ";
constexpr std::string_view setupReplyLine = "VRCredReference: -[VRCredentialReference "
                                            "setupWithCredentialHandle:domain:uiDelegate:reply:] "
                                            "(reply) ";

template <class Reference> class CredentialReferenceTest : public ReferenceTest<Reference> {};
TYPED_TEST_SUITE(CredentialReferenceTest, ReferenceKinds);

TYPED_TEST(CredentialReferenceTest, EverySetUpFormSendsTheHandleAndOnlyTheDelegate) {
    auto& r = *this->reference;
    const ObRef<ObData> h = this->handle;
    const ObRef<ObObject> domain = ObString::make("domain");
    const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    const struct {
        const char* form;
        std::function<void(VRErrorReply)> setUp;
        ObRef<ObData> context;
        bool withDelegate;
    } cases[] = {
        {"new", [&](auto reply) { r.setupNewReferenceWithReply(reply); }, nullptr, false},
        {"full, all absent",
         [&](auto reply) {
             r.setupWithCredentialHandle_domain_uiDelegate_reply({}, {}, {}, reply);
         },
         nullptr, false},
        {"handle", [&](auto reply) { r.setupWithCredentialHandle_reply(h, reply); }, h, false},
        {"handle, domain",
         [&](auto reply) { r.setupWithCredentialHandle_domain_reply(h, domain, reply); }, h, false},
        {"handle, delegate",
         [&](auto reply) { r.setupWithCredentialHandle_uiDelegate_reply(h, delegate, reply); }, h,
         true},
        {"full",
         [&](auto reply) {
             r.setupWithCredentialHandle_domain_uiDelegate_reply(h, domain, delegate, reply);
         },
         h, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.form);
        const std::size_t eventsBefore = delegate->events().size();
        c.setUp(this->recordReply());
        const auto request = this->service->clientRequests().back();
        EXPECT_EQ(request.context, c.context);
        ASSERT_EQ(bool(request.uiDelegate), c.withDelegate);
        ASSERT_EQ(this->replies.size(), this->service->clientRequests().size());
        EXPECT_EQ(this->replies.back(), nullptr);
        if (c.withDelegate) {
            // The service's events reach the caller's delegate through the proxy.
            request.uiDelegate->event_params_reply(3, nullptr, [](auto, auto) {});
            ASSERT_EQ(delegate->events().size(), eventsBefore + 1);
            EXPECT_EQ(printed(delegate->events().back().name), "EventConsent");
        }
    }
}

TYPED_TEST(CredentialReferenceTest, KeepsTheClientAndItsHandleUntilASetUpFails) {
    auto& r = *this->reference;
    this->service->setCreatorDisplayName(ObString::make("Maker"));
    EXPECT_EQ(r.credentialHandle(), nullptr);
    EXPECT_EQ(r.creatorDisplayName(), nullptr);
    EXPECT_EQ(this->service->creatorDisplayNameCount(), 0);

    r.setupNewReferenceWithReply(this->recordReply());
    EXPECT_EQ(r.credentialHandle(), this->service->newContext());
    EXPECT_EQ(printed(r.creatorDisplayName()), "Maker");

    this->service->answerClientRequests(nullptr, serviceUnavailable());
    r.setupWithCredentialHandle_reply(this->handle, this->recordReply());
    EXPECT_EQ(r.credentialHandle(), nullptr);
    EXPECT_EQ(r.creatorDisplayName(), nullptr);
    EXPECT_EQ(this->service->creatorDisplayNameCount(), 1);
    // The earlier client is dropped, not invalidated.
    EXPECT_EQ(this->service->destroyedClientCount(), 1);
    EXPECT_EQ(this->service->invalidateCount(), 0);
}

TYPED_TEST(CredentialReferenceTest, HandsOnTheServiceErrorTranslated) {
    const ObRef<ObError> kvError = serviceUnavailable();
    const ObRef<ObError> foreign = ObError::make(ObString::make("elsewhere"), 7, nullptr);
    for (const ObRef<ObError>& error : {kvError, foreign}) {
        this->service->answerClientRequests(nullptr, error);
        this->reference->setupNewReferenceWithReply(this->recordReply());
    }
    ASSERT_EQ(this->replies.size(), 2u);
    EXPECT_TRUE(this->replies[0]->domain()->isEqual(VRErrorDomain));
    EXPECT_EQ(this->replies[0]->code(), -6);
    EXPECT_EQ(this->replies[0]->userInfo(), kvError->userInfo());
    EXPECT_EQ(this->replies[1], foreign);
}

TYPED_TEST(CredentialReferenceTest, SynchronousSetUpWaitsForTheReplyOnAnyThread) {
    for (FakeReplyMode mode : {FakeReplyMode::AtOnce, FakeReplyMode::OwnThread}) {
        SCOPED_TRACE(static_cast<int>(mode));
        this->service->setReplyMode(mode);
        const ObRef<TypeParam> r = TypeParam::make();

        this->service->answerClientRequests(this->service->makeClient(this->handle), nullptr);
        ObRef<ObError> error = serviceUnavailable();
        EXPECT_TRUE(r->setupWithCredentialHandle_error(this->handle, &error));
        EXPECT_EQ(error, nullptr);
        // Only a completed reply sets the handle.
        EXPECT_EQ(r->credentialHandle(), this->handle);
        EXPECT_EQ(this->service->clientRequests().back().context, this->handle);

        this->service->answerClientRequests(nullptr, serviceUnavailable());
        EXPECT_FALSE(r->setupNewReferenceWithError(&error));
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), -6);
        EXPECT_EQ(this->service->clientRequests().back().context, nullptr);
        EXPECT_FALSE(r->setupNewReferenceWithError(nullptr));
        this->service->joinReplyThreads();
    }
}

TYPED_TEST(CredentialReferenceTest, InvalidateForwardsToTheClientAndKeepsTheFields) {
    this->reference->invalidate();
    EXPECT_EQ(this->service->invalidateCount(), 0);

    const ObRef<tessiva::test::FakeClient> client = this->service->makeClient(this->handle);
    this->service->answerClientRequests(client, nullptr);
    this->reference->setupNewReferenceWithReply(this->recordReply());
    this->reference->invalidate();
    EXPECT_EQ(client->invalidateCount(), 1);
    EXPECT_EQ(this->reference->credentialHandle(), this->handle);
}

TYPED_TEST(CredentialReferenceTest, APendingReplyKeepsTheReferenceAndDestructionDoesNotInvalidate) {
    struct Observed : TypeParam {
        explicit Observed(std::atomic<bool>* destroyed) : destroyed_(destroyed) {}
        ~Observed() override { *destroyed_ = true; }
        std::atomic<bool>* destroyed_;
    };
    std::atomic<bool> destroyed{false};
    this->service->setReplyMode(FakeReplyMode::Held);
    ObMake<Observed>(&destroyed)->setupNewReferenceWithReply(this->recordReply());
    EXPECT_FALSE(destroyed);
    EXPECT_TRUE(this->replies.empty());

    this->service->fireHeldReplies();
    ASSERT_EQ(this->replies.size(), 1u);
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(this->service->destroyedClientCount(), 1);
    EXPECT_EQ(this->service->invalidateCount(), 0);
}

TYPED_TEST(CredentialReferenceTest, LogsEachEntryAndReplyInOrder) {
    tessiva::test::LogCapture capture;
    const ObRef<RecordingUIDelegate> delegate = RecordingUIDelegate::make();
    const ObRef<ObError> error = serviceUnavailable();
    const ObRef<tessiva::test::FakeClient> client = this->service->makeClient(this->handle);
    {
        tessiva::test::ScopedLogging logging(true);
        this->service->answerClientRequests(nullptr, error);
        this->reference->setupWithCredentialHandle_domain_uiDelegate_reply(
            this->handle, ObString::make("work"), delegate, this->recordReply());
        this->service->answerClientRequests(client, nullptr);
        EXPECT_TRUE(this->reference->setupNewReferenceWithError(nullptr));
        this->reference->invalidate();
    }
    tessiva::test::ScopedLogging off(false);
    this->reference->setupNewReferenceWithReply(this->recordReply());
    this->reference->invalidate();

    const std::string expected[] = {
        std::string(setupLine) + "<0102>, work, " + printed(delegate),
        std::string(setupReplyLine) + "-> (null), " + printed(error),
        std::string(setupLine) + "(null), (null), (null)",
        std::string(setupReplyLine) + "-> " + printed(client) + ", (null)",
        "VRCredReference: -[VRCredentialReference invalidate] ",
    };
    EXPECT_EQ(capture.lines(), std::vector<std::string>(std::begin(expected), std::end(expected)));
}
} // namespace
