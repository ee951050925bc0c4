// PasscodeEvaluation: one policy evaluation of the simulated service, which
// asks for the passcode until it is right, refused, stopped or out of time.
#pragma once

#include "EvaluationOptions.h"
#include "tessiva/kavelin/KVClient.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

namespace tessiva::detail {
class SimulatedContext;

class PasscodeEvaluation final : public ObObject {
public:
    PasscodeEvaluation(EvaluationOptions options, std::string passcode,
                       ObRef<KVUIDelegate> delegate, ObRef<SimulatedContext> context,
                       KVResultReply reply);

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
    struct Outcome {
        ObRef<ObDictionary> result;
        ObRef<ObError> error;
    };
    struct Prompt {
        ObUInteger round;
        ObInteger attemptsLeft;
    };
    // The passcode event to raise for the current round; none when there is
    // nobody to ask, the caller filtered it out, or it is answered already.
    std::optional<Prompt> nextPrompt();
    void raise(Prompt prompt);
    void raiseClosingEvent();
    // Waits for an answer, a failure or the deadline; the outcome once decided.
    std::optional<Outcome>
    awaitRound(std::optional<std::chrono::steady_clock::time_point> deadline);
    void answerEvent(ObUInteger round, const ObRef<ObDictionary>& response,
                     const ObRef<ObError>& error);

    const EvaluationOptions options_;
    const std::string passcode_;
    // Read and cleared by the evaluation's own thread only.
    ObRef<KVUIDelegate> delegate_;
    const ObRef<SimulatedContext> context_;
    KVResultReply reply_;

    std::mutex mutex_;
    std::condition_variable changed_;
    ObInteger failures_ = 0;
    // Each raised passcode event is one round; a wrong passcode starts the next.
    ObUInteger round_ = 1;
    bool roundAnswered_ = false;
    std::optional<ObRef<ObObject>> pendingPasscode_;
    ObRef<ObError> failure_;
    bool ended_ = false;
};
} // namespace tessiva::detail
