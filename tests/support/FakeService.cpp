#include "support/FakeService.h"

#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace tessiva::test {

struct FakeServiceState {
    mutable std::mutex mutex;

    FakeReplyMode mode = FakeReplyMode::AtOnce;
    int deliveries = 1;
    ObRef<ObDictionary> answerResult = ObDictionary::make();
    ObRef<ObError> answerEvaluationError;
    bool answerSuccess = true;
    ObRef<ObError> answerActionError;
    ObRef<ObString> creatorDisplayName;
    const ObRef<ObData> newContext = ObData::make("new-context", 11);

    std::vector<FakeClientRequest> clientRequests;
    std::vector<FakePolicyRequest> policyRequests;
    std::vector<FakeACLRequest> aclRequests;
    std::vector<FakePasswordRequest> passwordRequests;
    std::vector<FakeFailEventRequest> failEventRequests;
    int invalidateCount = 0;
    int creatorDisplayNameCount = 0;
    int destroyedClientCount = 0;

    std::vector<std::function<void()>> held;
    std::vector<std::thread> threads;

    ~FakeServiceState() { joinThreads(); }

    // `record` notes the request under the lock and returns the reply with
    // its answer bound; the reply then goes out in the current mode, as often
    // as set. Every delivery calls the one reply, as a service replying twice
    // would. Replies run and are destroyed outside the lock, as destroying a
    // client takes it.
    template <class Record> void request(Record&& record) {
        // Declared before the lock, so that the last share goes after unlocking.
        std::function<void()> deliver;
        std::unique_lock lock(mutex);
        deliver = [reply = std::make_shared<const std::function<void()>>(
                       std::forward<Record>(record)())] { (*reply)(); };
        const int count = deliveries;
        switch (mode) {
        case FakeReplyMode::AtOnce:
            lock.unlock();
            for (int i = 0; i < count; ++i)
                deliver();
            return;
        case FakeReplyMode::OwnThread:
            for (int i = 0; i < count; ++i)
                threads.emplace_back(deliver);
            return;
        case FakeReplyMode::Held:
            held.insert(held.end(), count, deliver);
            return;
        }
    }

    std::vector<std::function<void()>> takeHeld() {
        std::lock_guard lock(mutex);
        return std::exchange(held, {});
    }

    void joinThreads() {
        for (;;) {
            std::vector<std::thread> running;
            {
                std::lock_guard lock(mutex);
                running = std::exchange(threads, {});
            }
            if (running.empty())
                return;
            // The last share of a client may go on a reply thread itself.
            for (std::thread& thread : running) {
                if (thread.get_id() == std::this_thread::get_id())
                    thread.detach();
                else
                    thread.join();
            }
        }
    }

    template <class Value> Value read(const Value& value) const {
        std::lock_guard lock(mutex);
        return value;
    }
};

FakeClient::FakeClient(std::shared_ptr<FakeServiceState> state, ObRef<ObData> context)
    : state_(std::move(state)), context_(std::move(context)) {}

FakeClient::~FakeClient() {
    std::lock_guard lock(state_->mutex);
    ++state_->destroyedClientCount;
}

ObRef<ObData> FakeClient::externalizedContext() {
    return context_;
}

void FakeClient::invalidate() {
    ++invalidateCount_;
    std::lock_guard lock(state_->mutex);
    ++state_->invalidateCount;
}

int FakeClient::invalidateCount() const {
    return invalidateCount_.load();
}

ObRef<ObString> FakeClient::creatorDisplayName() {
    std::lock_guard lock(state_->mutex);
    ++state_->creatorDisplayNameCount;
    return state_->creatorDisplayName;
}

void FakeClient::evaluatePolicy_options_reply(ObInteger policy, const ObRef<ObDictionary>& options,
                                              KVResultReply reply) {
    state_->request([&]() -> std::function<void()> {
        state_->policyRequests.push_back({policy, options});
        return [reply = std::move(reply), result = state_->answerResult,
                error = state_->answerEvaluationError] { reply(result, error); };
    });
}

void FakeClient::evaluateACL_operation_options_reply(const ObRef<ObObject>& acl,
                                                     const ObRef<ObObject>& operation,
                                                     const ObRef<ObDictionary>& options,
                                                     KVResultReply reply) {
    state_->request([&]() -> std::function<void()> {
        state_->aclRequests.push_back({acl, operation, options});
        return [reply = std::move(reply), result = state_->answerResult,
                error = state_->answerEvaluationError] { reply(result, error); };
    });
}

void FakeClient::enterPassword_reply(const ObRef<ObObject>& password, KVSuccessReply reply) {
    state_->request([&]() -> std::function<void()> {
        state_->passwordRequests.push_back({password});
        return [reply = std::move(reply), success = state_->answerSuccess,
                error = state_->answerActionError] { reply(success, error); };
    });
}

void FakeClient::failProcessedEvent_failureError_reply(ObInteger event,
                                                       const ObRef<ObObject>& failureError,
                                                       KVSuccessReply reply) {
    state_->request([&]() -> std::function<void()> {
        state_->failEventRequests.push_back({event, failureError});
        return [reply = std::move(reply), success = state_->answerSuccess,
                error = state_->answerActionError] { reply(success, error); };
    });
}

FakeService::FakeService() : state_(std::make_shared<FakeServiceState>()) {}

FakeService::~FakeService() {
    dropHeldReplies();
    joinReplyThreads();
}

ObRef<FakeService> FakeService::make() {
    return ObRef<FakeService>::adopt(new FakeService());
}

void FakeService::clientWithExternalizedContext_uiDelegate_reply(
    const ObRef<ObData>& context, const ObRef<KVUIDelegate>& uiDelegate, KVClientReply reply) {
    state_->request([&]() -> std::function<void()> {
        state_->clientRequests.push_back({context, uiDelegate});
        ObRef<KVClient> client = answerClient_;
        if (!clientAnswerSet_)
            client = makeClient(context ? context : state_->newContext);
        return [reply = std::move(reply), client = std::move(client), error = answerClientError_] {
            reply(client, error);
        };
    });
}

void FakeService::setReplyMode(FakeReplyMode mode) {
    std::lock_guard lock(state_->mutex);
    state_->mode = mode;
}

void FakeService::setDeliveriesPerReply(int count) {
    std::lock_guard lock(state_->mutex);
    state_->deliveries = count;
}

ObRef<FakeClient> FakeService::makeClient(const ObRef<ObData>& context) {
    return ObRef<FakeClient>::adopt(new FakeClient(state_, context));
}

void FakeService::answerClientRequests(const ObRef<KVClient>& client, const ObRef<ObError>& error) {
    ObRef<KVClient> previous;
    std::lock_guard lock(state_->mutex);
    clientAnswerSet_ = true;
    previous = std::exchange(answerClient_, client);
    answerClientError_ = error;
}

void FakeService::answerEvaluations(const ObRef<ObDictionary>& result,
                                    const ObRef<ObError>& error) {
    std::lock_guard lock(state_->mutex);
    state_->answerResult = result;
    state_->answerEvaluationError = error;
}

void FakeService::answerClientActions(bool success, const ObRef<ObError>& error) {
    std::lock_guard lock(state_->mutex);
    state_->answerSuccess = success;
    state_->answerActionError = error;
}

void FakeService::setCreatorDisplayName(const ObRef<ObString>& name) {
    std::lock_guard lock(state_->mutex);
    state_->creatorDisplayName = name;
}

ObRef<ObData> FakeService::newContext() const {
    return state_->newContext;
}

std::size_t FakeService::heldReplyCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->held.size();
}

void FakeService::fireHeldReplies() {
    for (const auto& reply : state_->takeHeld())
        reply();
}

void FakeService::dropHeldReplies() {
    (void)state_->takeHeld();
}

void FakeService::joinReplyThreads() {
    state_->joinThreads();
}

std::vector<FakeClientRequest> FakeService::clientRequests() const {
    return state_->read(state_->clientRequests);
}
std::vector<FakePolicyRequest> FakeService::policyRequests() const {
    return state_->read(state_->policyRequests);
}
std::vector<FakeACLRequest> FakeService::aclRequests() const {
    return state_->read(state_->aclRequests);
}
std::vector<FakePasswordRequest> FakeService::passwordRequests() const {
    return state_->read(state_->passwordRequests);
}
std::vector<FakeFailEventRequest> FakeService::failEventRequests() const {
    return state_->read(state_->failEventRequests);
}
int FakeService::invalidateCount() const {
    return state_->read(state_->invalidateCount);
}
int FakeService::creatorDisplayNameCount() const {
    return state_->read(state_->creatorDisplayNameCount);
}
int FakeService::destroyedClientCount() const {
    return state_->read(state_->destroyedClientCount);
}

} // namespace tessiva::test
