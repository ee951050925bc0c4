// SPDX-License-Identifier: MIT
// Evaluation: one policy evaluation of a Tessiva service, which asks for the
// passcode through the passcode event until its verifier accepts an answer,
// or the evaluation is refused, stopped or out of time.
#pragma once

#include "AttemptGuard.h"
#include "EvaluationOptions.h"
#include "Verifier.h"
#include "tessiva/kavelin/KVClient.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

namespace tessiva::detail {
class ServiceContext;

class Evaluation final : public ObObject {
public:
    // With a guard, each attempt waits for the user's turn and counts
    // against the user's failures.
    Evaluation(EvaluationOptions options, ObRef<Verifier> verifier, ObRef<KVUIDelegate> delegate,
               ObRef<ServiceContext> context, ObRef<AttemptGuard> guard, KVResultReply reply);

    // Runs the evaluation to its end and replies; on a service thread.
    void run();

    // Answers the current passcode event; false when the evaluation has
    // ended or that event already has its answer.
    bool enterPasscode(ObRef<ObObject> passcode);
    // Makes the evaluation fail with the error; false when it has ended or
    // already fails.
    bool fail(ObRef<ObError> error);

    const char* className() const noexcept override;

private:
    class AttemptConversation;
    struct Outcome {
        ObRef<ObDictionary> result;
        ObRef<ObError> error;
    };
    struct Prompt {
        ObUInteger round;
        ObInteger attemptsLeft;
        std::string notice;
    };
    // The passcode event to raise for the current round; none when there is
    // nobody to ask, the caller filtered it out, or it is answered already.
    std::optional<Prompt> nextPrompt();
    void raise(const Prompt& prompt);
    void raiseClosingEvent();
    // The answer to the current round, once given; absent when the evaluation
    // stops first or the answer is no passcode (which spoils the attempt).
    std::optional<SecretText> awaitAnswer();
    void tell(std::string_view text);
    // One attempt: the user's turn, then the verifier's verdict.
    Verification attempt();
    bool stopped();
    // What the attempt's verification and the evaluation's state decide.
    std::optional<Outcome> judge(const Verification& verification);
    void answerEvent(ObUInteger round, const ObRef<ObDictionary>& response,
                     const ObRef<ObError>& error);

    const EvaluationOptions options_;
    // Read and cleared by the evaluation's own thread only.
    ObRef<Verifier> verifier_;
    ObRef<KVUIDelegate> delegate_;
    const ObRef<ServiceContext> context_;
    const ObRef<AttemptGuard> guard_;
    KVResultReply reply_;
    std::optional<std::chrono::steady_clock::time_point> deadline_;
    bool raised_ = false;
    // The current attempt got a passcode to judge.
    bool attemptAnswered_ = false;

    std::mutex mutex_;
    std::condition_variable changed_;
    ObInteger failures_ = 0;
    // Each raised passcode event is one round; a wrong passcode, or a second
    // question in one attempt, starts the next.
    ObUInteger round_ = 1;
    bool roundAnswered_ = false;
    std::optional<ObRef<ObObject>> pendingPasscode_;
    // The attempt got an answer that was no passcode, or none in time.
    bool attemptSpoiled_ = false;
    bool timedOut_ = false;
    // The service's texts for the user since the last raised event.
    std::string notice_;
    ObRef<ObError> failure_;
    bool ended_ = false;
};
} // namespace tessiva::detail
