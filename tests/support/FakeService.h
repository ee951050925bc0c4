// FakeService: a stand-in for the authentication service. It records every
// request that reaches it or its clients and answers as the test says: at
// once, from a thread of its own, or only when the test fires the reply.
// Every member is safe to call from any thread.
#pragma once

#include "tessiva/kavelin/KVClient.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

namespace tessiva::test {

enum class FakeReplyMode {
    AtOnce,    // on the requesting thread, before the request returns
    OwnThread, // from a new thread; joinReplyThreads() waits for every one
    Held,      // kept until the test calls fireHeldReplies(), from any thread
};

struct FakeClientRequest {
    ObRef<ObData> context;
    ObRef<KVUIDelegate> uiDelegate;
};
struct FakePolicyRequest {
    ObInteger policy;
    ObRef<ObDictionary> options;
};
struct FakeACLRequest {
    ObRef<ObObject> acl;
    ObRef<ObObject> operation;
    ObRef<ObDictionary> options;
};
struct FakePasswordRequest {
    ObRef<ObObject> password;
};
struct FakeFailEventRequest {
    ObInteger event;
    ObRef<ObObject> failureError;
};

struct FakeServiceState;

// A client of the fake service; it reports what it is asked to the service
// that made it and answers as that service is told to.
class FakeClient final : public KVClient {
public:
    ObRef<ObData> externalizedContext() override;
    void invalidate() override;
    ObRef<ObString> creatorDisplayName() override;
    void evaluatePolicy_options_reply(ObInteger policy, const ObRef<ObDictionary>& options,
                                      KVResultReply reply) override;
    void evaluateACL_operation_options_reply(const ObRef<ObObject>& acl,
                                             const ObRef<ObObject>& operation,
                                             const ObRef<ObDictionary>& options,
                                             KVResultReply reply) override;
    void enterPassword_reply(const ObRef<ObObject>& password, KVSuccessReply reply) override;
    void failProcessedEvent_failureError_reply(ObInteger event, const ObRef<ObObject>& failureError,
                                               KVSuccessReply reply) override;

    // Calls of invalidate on this client.
    int invalidateCount() const;

private:
    friend class FakeService;
    FakeClient(std::shared_ptr<FakeServiceState> state, ObRef<ObData> context);
    ~FakeClient() override;

    std::shared_ptr<FakeServiceState> state_;
    const ObRef<ObData> context_;
    std::atomic<int> invalidateCount_{0};
};

class FakeService final : public KVClientBackend {
public:
    static ObRef<FakeService> make();

    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                        const ObRef<KVUIDelegate>& uiDelegate,
                                                        KVClientReply reply) override;

    // --- Answers ---------------------------------------------------------
    // Applies to requests made from now on; AtOnce until set.
    void setReplyMode(FakeReplyMode mode);
    // How often each reply goes out, in the current mode; 1 until set. With
    // OwnThread every delivery has a thread of its own, so they race.
    void setDeliveriesPerReply(int count);
    // A client of this service on the given context.
    ObRef<FakeClient> makeClient(const ObRef<ObData>& context);
    // What a client request receives. Until set: a new client on the context
    // asked for (newContext() when none was given) and no error.
    void answerClientRequests(const ObRef<KVClient>& client, const ObRef<ObError>& error);
    // What policy and ACL evaluations receive; until set, ({}, absent).
    void answerEvaluations(const ObRef<ObDictionary>& result, const ObRef<ObError>& error);
    // What password entry and event failure receive; until set, (true, absent).
    void answerClientActions(bool success, const ObRef<ObError>& error);
    // What creatorDisplayName returns on every client; absent until set.
    void setCreatorDisplayName(const ObRef<ObString>& name);
    // The context of the clients made for a request without one.
    ObRef<ObData> newContext() const;

    // --- Replies not yet delivered ----------------------------------------
    std::size_t heldReplyCount() const;
    // Runs the held replies, in the order of their requests, on this thread.
    void fireHeldReplies();
    // Destroys the held replies without running them.
    void dropHeldReplies();
    // Waits until every reply thread started so far has finished.
    void joinReplyThreads();

    // --- What reached the service -----------------------------------------
    std::vector<FakeClientRequest> clientRequests() const;
    std::vector<FakePolicyRequest> policyRequests() const;
    std::vector<FakeACLRequest> aclRequests() const;
    std::vector<FakePasswordRequest> passwordRequests() const;
    std::vector<FakeFailEventRequest> failEventRequests() const;
    // Totals over every client of this service.
    int invalidateCount() const;
    int creatorDisplayNameCount() const;
    int destroyedClientCount() const;

private:
    FakeService();
    // Drops the held replies and joins the reply threads, so that nothing
    // the test made outlives it through them.
    ~FakeService() override;

    std::shared_ptr<FakeServiceState> state_;
    // Kept here, not in the shared state, which the clients keep alive.
    bool clientAnswerSet_ = false;
    ObRef<KVClient> answerClient_;
    ObRef<ObError> answerClientError_;
};

} // namespace tessiva::test
