// SPDX-License-Identifier: MIT
#include "WorkerService.h"

#include "tessiva/object/ObDictionary.h"

#include <utility>

namespace tessiva::bench {

ReplyWorker::ReplyWorker() : thread_([this] { run(); }) {}

ReplyWorker::~ReplyWorker() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void ReplyWorker::post(KVResultReply reply, ObRef<ObDictionary> result) {
    {
        std::lock_guard lock(mutex_);
        pending_.push_back({std::move(reply), std::move(result)});
    }
    wake_.notify_one();
}

void ReplyWorker::run() {
    std::vector<Pending> batch;
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !pending_.empty(); });
        if (pending_.empty())
            return;
        batch.swap(pending_);
        lock.unlock();
        for (Pending& pending : batch)
            pending.reply(std::move(pending.result), nullptr);
        batch.clear();
        lock.lock();
    }
}

WorkerClient::WorkerClient(ReplyWorker* worker, ObRef<ObDictionary> result)
    : worker_(worker), result_(std::move(result)), context_(ObData::make("bench", 5)) {}

void WorkerClient::replyWith(KVResultReply reply, ObRef<ObDictionary> result) {
    if (worker_ != nullptr)
        worker_->post(std::move(reply), std::move(result));
    else
        reply(std::move(result), nullptr);
}

ObRef<ObData> WorkerClient::externalizedContext() {
    return context_;
}

void WorkerClient::evaluatePolicy_options_reply(ObInteger policy,
                                                const ObRef<ObDictionary>& options,
                                                KVResultReply reply) {
    if (recording_) {
        lastPolicy_ = policy;
        lastOptions_ = options;
    }
    replyWith(std::move(reply), result_);
}

void WorkerClient::evaluateACL_operation_options_reply(const ObRef<ObObject>&,
                                                       const ObRef<ObObject>&,
                                                       const ObRef<ObDictionary>&,
                                                       KVResultReply reply) {
    replyWith(std::move(reply), ObDictionary::make());
}

void WorkerClient::enterPassword_reply(const ObRef<ObObject>&, KVSuccessReply reply) {
    reply(true, nullptr);
}

void WorkerClient::failProcessedEvent_failureError_reply(ObInteger, const ObRef<ObObject>&,
                                                         KVSuccessReply reply) {
    reply(true, nullptr);
}

} // namespace tessiva::bench
