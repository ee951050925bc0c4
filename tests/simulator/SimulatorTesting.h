// A scripted user-interface delegate and reply helpers for the simulated
// service's suites.
#pragma once

#include "tessiva/kavelin/KVSimulatedService.h"
#include "tessiva/os/ObSemaphore.h"
#include "translation/TranslationTesting.h"

#include <deque>
#include <memory>
#include <thread>
#include <vector>

namespace tessiva::test {

// "error <code>: <message>" for an error, the result's text form otherwise.
inline std::string describe(const ObRef<ObObject>& result, const ObRef<ObError>& error) {
    if (error)
        return std::string(
            ObFormat("error %ld: %@", error->code(), error->localizedDescription())->text());
    return std::string(ObFormat("%@", result)->text());
}

inline ObRef<ObDictionary>
options(std::initializer_list<std::pair<ObInteger, ObRef<ObObject>>> entries) {
    ObRef<ObMutableDictionary> made = ObMutableDictionary::make();
    for (const auto& [key, value] : entries)
        made->setObject_forKey(value, num(key));
    return made;
}

// Records every event as "<event> <params>" and answers each active one with
// the next scripted answer, from inside the call; with none left it keeps the
// reply for the test to take.
class ScriptedDelegate final : public KVUIDelegate {
public:
    using Answer = std::function<void(const KVUIReply&)>;
    static Answer response(ObRef<ObObject> value) {
        return [value](const KVUIReply& reply) { reply(dict({{num(0), value}}), nullptr); };
    }
    static Answer passcode(std::string_view text) { return response(str(text)); }

    explicit ScriptedDelegate(std::vector<Answer> answers = {})
        : answers_(answers.begin(), answers.end()) {}

    void event_params_reply(ObInteger event, const ObRef<ObDictionary>& params,
                            KVUIReply reply) override {
        Answer answer;
        {
            std::lock_guard lock(mutex_);
            events_.emplace_back(ObFormat("%ld %@", event, params)->text());
            if (!ob_cast<ObNumber>(params->objectForKey(num(0)))->boolValue())
                return;
            if (answers_.empty()) {
                unanswered_.push_back(std::move(reply));
                unansweredCount_.signal();
                return;
            }
            answer = std::move(answers_.front());
            answers_.pop_front();
        }
        answer(reply);
    }

    std::vector<std::string> events() const {
        std::lock_guard lock(mutex_);
        return events_;
    }
    // Waits for the next active event left unanswered and gives its reply.
    KVUIReply takeUnanswered() {
        unansweredCount_.wait();
        std::lock_guard lock(mutex_);
        KVUIReply reply = std::move(unanswered_.front());
        unanswered_.pop_front();
        return reply;
    }

private:
    mutable std::mutex mutex_;
    std::deque<Answer> answers_;
    std::vector<std::string> events_;
    std::deque<KVUIReply> unanswered_;
    ObSemaphore unansweredCount_;
};

struct Outcome {
    ObRef<ObDictionary> result;
    ObRef<ObError> error;
    std::thread::id thread;
    std::string text() const { return describe(result, error); }
};

// A policy evaluation started on the client; wait() gives its outcome.
class Started {
public:
    explicit Started(const ObRef<KVClient>& client, const ObRef<ObDictionary>& options = nullptr,
                     ObInteger policy = 1000) {
        client->evaluatePolicy_options_reply(
            policy, options, [state = state_](ObRef<ObDictionary> result, ObRef<ObError> error) {
                state->outcome = {std::move(result), std::move(error), std::this_thread::get_id()};
                state->done.signal();
            });
    }
    Outcome wait() {
        state_->done.wait();
        return state_->outcome;
    }

private:
    struct State {
        ObSemaphore done;
        Outcome outcome;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

inline Outcome evaluate(const ObRef<KVClient>& client, const ObRef<ObDictionary>& options = nullptr,
                        ObInteger policy = 1000) {
    return Started(client, options, policy).wait();
}

// A client from the backend, or from KVClient's own choice when absent; the
// error goes to the out-parameter.
inline ObRef<KVClient> connect(const ObRef<KVClientBackend>& backend,
                               const ObRef<KVUIDelegate>& delegate = nullptr,
                               const ObRef<ObData>& handle = nullptr,
                               ObRef<ObError>* error = nullptr) {
    ObSemaphore done;
    ObRef<KVClient> client;
    auto reply = [&](ObRef<KVClient> made, ObRef<ObError> failure) {
        client = std::move(made);
        if (error != nullptr)
            *error = std::move(failure);
        done.signal();
    };
    if (backend)
        backend->clientWithExternalizedContext_uiDelegate_reply(handle, delegate, reply);
    else
        KVClient::clientWithExternalizedContext_uiDelegate_reply(handle, delegate, reply);
    done.wait();
    return client;
}

// The client requests, which reply before returning: "success" or the error.
inline std::string enterPassword(const ObRef<KVClient>& client, const char* password) {
    std::string text = "no reply";
    client->enterPassword_reply(str(password), [&](bool success, ObRef<ObError> error) {
        text = success ? "success" : describe(nullptr, error);
    });
    return text;
}
inline std::string failEvent(const ObRef<KVClient>& client, ObInteger event,
                             const ObRef<ObObject>& error) {
    std::string text = "no reply";
    client->failProcessedEvent_failureError_reply(
        event, error, [&](bool success, ObRef<ObError> failure) {
            text = success ? "success" : describe(nullptr, failure);
        });
    return text;
}

} // namespace tessiva::test
