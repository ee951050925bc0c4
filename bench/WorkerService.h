// SPDX-License-Identifier: MIT
// WorkerService: a minimal service backend whose clients answer policy
// evaluations from one dedicated worker thread, as the real service answers
// from its own threads, or at once. It does no work of its own, so that what a benchmark
// measures is the caller's side and the handoff between the two threads.
#pragma once

#include "tessiva/kavelin/KVClient.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace tessiva::bench {

// Runs evaluation replies, in order, on its own thread.
class ReplyWorker {
public:
    ReplyWorker();
    ~ReplyWorker();
    ReplyWorker(const ReplyWorker&) = delete;
    ReplyWorker& operator=(const ReplyWorker&) = delete;

    // Calls `reply` with `result` and no error on the worker thread.
    void post(KVResultReply reply, ObRef<ObDictionary> result);

private:
    struct Pending {
        KVResultReply reply;
        ObRef<ObDictionary> result;
    };
    void run();

    std::mutex mutex_;
    std::condition_variable wake_;
    // Swapped with the worker's own batch, so that steady use allocates nothing.
    std::vector<Pending> pending_;
    bool stopping_ = false;
    std::thread thread_;
};

// A client whose evaluations all succeed with one fixed result, replied from
// the worker, or at once on the caller's thread when it has none. Its other
// operations answer at once and are not benchmarked.
class WorkerClient final : public KVClient {
public:
    WorkerClient(ReplyWorker* worker, ObRef<ObDictionary> result);

    ObRef<ObData> externalizedContext() override;
    void invalidate() override {}
    ObRef<ObString> creatorDisplayName() override { return nullptr; }
    void evaluatePolicy_options_reply(ObInteger policy, const ObRef<ObDictionary>& options,
                                      KVResultReply reply) override;
    void evaluateACL_operation_options_reply(const ObRef<ObObject>& acl,
                                             const ObRef<ObObject>& operation,
                                             const ObRef<ObDictionary>& options,
                                             KVResultReply reply) override;
    void enterPassword_reply(const ObRef<ObObject>& password, KVSuccessReply reply) override;
    void failProcessedEvent_failureError_reply(ObInteger event, const ObRef<ObObject>& failureError,
                                               KVSuccessReply reply) override;

    // While recording, keeps the policy and options of the last evaluation,
    // so a benchmark can check that two ways of asking send the same request.
    void setRecording(bool recording) { recording_ = recording; }
    ObInteger lastPolicy() const { return lastPolicy_; }
    const ObRef<ObDictionary>& lastOptions() const { return lastOptions_; }

private:
    void replyWith(KVResultReply reply, ObRef<ObDictionary> result);

    ReplyWorker* const worker_;
    const ObRef<ObDictionary> result_;
    const ObRef<ObData> context_;
    bool recording_ = false;
    ObInteger lastPolicy_ = 0;
    ObRef<ObDictionary> lastOptions_;
};

// Hands out one client, at once, to every request.
class WorkerBackend final : public KVClientBackend {
public:
    explicit WorkerBackend(ObRef<WorkerClient> client) : client_(std::move(client)) {}

    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>&,
                                                        const ObRef<KVUIDelegate>&,
                                                        KVClientReply reply) override {
        reply(client_, nullptr);
    }

private:
    const ObRef<WorkerClient> client_;
};

} // namespace tessiva::bench
