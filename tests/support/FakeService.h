// SPDX-License-Identifier: MIT
// FakeService: a stand-in for the authentication service. It records every
// request that reaches it or its clients and answers as the test says: at
// once or from a thread of its own.
// Every member is safe to call from any thread.
#pragma once

#include "support/TestSupport.h"
#include "tessiva/kavelin/KVClient.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

namespace tessiva::test {

// AtOnce: on the requesting thread, before the request returns. OwnThread:
// from a new thread; joinReplyThreads() waits for every one.
enum class FakeReplyMode { AtOnce, OwnThread };

struct FakeClientRequest {
    ObRef<ObData> context;
    ObRef<KVUIDelegate> uiDelegate;
};
struct FakePolicyRequest {
    ObInteger policy;
    ObRef<ObDictionary> options;
};
struct FakeACLRequest {
    ObRef<ObObject> acl, operation;
    ObRef<ObDictionary> options;
};

// What the clients answer, and what they were asked; shared by the service
// and its clients, which may outlive it.
struct FakeServiceState {
    struct Answers {
        std::optional<std::pair<ObRef<KVClient>, ObRef<ObError>>> client; // until set, a new one
        std::pair<ObRef<ObDictionary>, ObRef<ObError>> evaluation{ObDictionary::make(), nullptr};
        std::pair<bool, ObRef<ObError>> action{true, nullptr};
        ObRef<ObString> creatorDisplayName;
        FakeReplyMode mode = FakeReplyMode::AtOnce;
        int deliveries = 1;
    };

    template <class Use> auto locked(Use&& use) {
        std::lock_guard lock(mutex);
        return use(answers);
    }
    Answers current() { return locked(std::identity()); }
    template <class Field> Field take(Field& field) {
        std::lock_guard lock(mutex);
        return std::exchange(field, {});
    }

    // Every delivery calls the one reply, as a service replying twice would.
    // Replies run outside the lock.
    void send(std::function<void()> reply) {
        const auto shared = std::make_shared<const std::function<void()>>(std::move(reply));
        const std::function<void()> deliver = [shared] { (*shared)(); };
        std::unique_lock lock(mutex);
        const int count = answers.deliveries;
        const bool ownThread = answers.mode == FakeReplyMode::OwnThread;
        for (int i = 0; ownThread && i < count; ++i)
            threads.emplace_back(deliver);
        lock.unlock();
        for (int i = 0; !ownThread && i < count; ++i)
            deliver();
    }

    // The last share of the service may go on a reply thread itself.
    void joinThreads() {
        for (auto running = take(threads); !running.empty(); running = take(threads))
            for (std::thread& thread : running)
                thread.get_id() == std::this_thread::get_id() ? thread.detach() : thread.join();
    }

    std::mutex mutex;
    Answers answers;
    std::vector<std::thread> threads;
    const ObRef<ObData> newContext = ObData::make("new-context", 11);
    SharedList<FakeClientRequest> clientRequests;
    SharedList<FakePolicyRequest> policyRequests;
    SharedList<FakeACLRequest> aclRequests;
    std::atomic<int> invalidateCount{0}, destroyedClientCount{0};
};

// A client of the fake service; it reports what it is asked to the service
// that made it and answers as that service is told to.
class FakeClient final : public KVClient {
    const std::shared_ptr<FakeServiceState> state_;
    const ObRef<ObData> context_;

public:
    FakeClient(std::shared_ptr<FakeServiceState> state, ObRef<ObData> context)
        : state_(std::move(state)), context_(std::move(context)) {}
    ~FakeClient() override { ++state_->destroyedClientCount; }

    ObRef<ObData> externalizedContext() override { return context_; }
    void invalidate() override { ++state_->invalidateCount; }
    ObRef<ObString> creatorDisplayName() override { return state_->current().creatorDisplayName; }
    void evaluatePolicy_options_reply(ObInteger policy, const ObRef<ObDictionary>& options,
                                      KVResultReply reply) override {
        state_->policyRequests.add({policy, options});
        state_->send([reply, a = state_->current()] { std::apply(reply, a.evaluation); });
    }
    void evaluateACL_operation_options_reply(const ObRef<ObObject>& acl,
                                             const ObRef<ObObject>& operation,
                                             const ObRef<ObDictionary>& options,
                                             KVResultReply reply) override {
        state_->aclRequests.add({acl, operation, options});
        state_->send([reply, a = state_->current()] { std::apply(reply, a.evaluation); });
    }
    void enterPassword_reply(const ObRef<ObObject>&, KVSuccessReply reply) override {
        state_->send([reply, a = state_->current()] { std::apply(reply, a.action); });
    }
    void failProcessedEvent_failureError_reply(ObInteger, const ObRef<ObObject>&,
                                               KVSuccessReply reply) override {
        state_->send([reply, a = state_->current()] { std::apply(reply, a.action); });
    }
};

class FakeService final : public KVClientBackend {
    const std::shared_ptr<FakeServiceState> state_ = std::make_shared<FakeServiceState>();

public:
    static ObRef<FakeService> make() { return ObMake<FakeService>(); }
    // Drops the answers and joins the reply threads, so that nothing the test
    // made outlives it through them.
    ~FakeService() override {
        state_->locked([](auto& answers) { answers = {}; });
        joinReplyThreads();
    }

    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                        const ObRef<KVUIDelegate>& uiDelegate,
                                                        KVClientReply reply) override {
        state_->clientRequests.add({context, uiDelegate});
        const auto answer = state_->current().client;
        const ObRef<KVClient> client =
            answer ? answer->first : makeClient(context ? context : newContext());
        state_->send(
            [reply, client, error = answer ? answer->second : nullptr] { reply(client, error); });
    }

    // --- Answers, for requests made from now on ----------------------------
    // AtOnce until set.
    void setReplyMode(FakeReplyMode mode) {
        state_->locked([&](auto& answers) { answers.mode = mode; });
    }
    // How often each reply goes out; 1 until set. With OwnThread every
    // delivery has a thread of its own, so they race.
    void setDeliveriesPerReply(int count) {
        state_->locked([&](auto& answers) { answers.deliveries = count; });
    }
    // A client of this service on the given context.
    ObRef<FakeClient> makeClient(const ObRef<ObData>& context) {
        return ObMake<FakeClient>(state_, context);
    }
    // What a client request receives. Until set: a new client on the context
    // asked for (newContext() when none was given) and no error.
    void answerClientRequests(const ObRef<KVClient>& client, const ObRef<ObError>& error) {
        state_->locked([&](auto& answers) { answers.client = std::pair(client, error); });
    }
    // What policy and ACL evaluations receive; until set, ({}, absent).
    void answerEvaluations(const ObRef<ObDictionary>& result, const ObRef<ObError>& error) {
        state_->locked([&](auto& answers) { answers.evaluation = {result, error}; });
    }
    // What password entry and event failure receive; until set, (true, absent).
    void answerClientActions(bool success, const ObRef<ObError>& error) {
        state_->locked([&](auto& answers) { answers.action = {success, error}; });
    }
    // What creatorDisplayName returns on every client; absent until set.
    void setCreatorDisplayName(const ObRef<ObString>& name) {
        state_->locked([&](auto& answers) { answers.creatorDisplayName = name; });
    }
    // The context of the clients made for a request without one.
    ObRef<ObData> newContext() const { return state_->newContext; }

    // Waits until every reply thread started so far has finished.
    void joinReplyThreads() { state_->joinThreads(); }

    // --- What reached the service -----------------------------------------
    std::vector<FakeClientRequest> clientRequests() const { return state_->clientRequests.items(); }
    std::vector<FakePolicyRequest> policyRequests() const { return state_->policyRequests.items(); }
    std::vector<FakeACLRequest> aclRequests() const { return state_->aclRequests.items(); }
    // Totals over every client of this service.
    int invalidateCount() const { return state_->invalidateCount; }
    int destroyedClientCount() const { return state_->destroyedClientCount; }
};

} // namespace tessiva::test
