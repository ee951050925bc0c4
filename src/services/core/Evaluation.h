// SPDX-License-Identifier: MIT
// Evaluation: one policy evaluation of a Tessiva service. By its policy it
// runs one or two stages: ridge scans through the service's reader (the
// ridge-scan event), the password (the passcode or the passphrase event,
// until its verifier accepts an answer) or the user's consent (the consent
// event); until a stage decides, or the evaluation is stopped or out of time.
#pragma once

#include "AttemptGuard.h"
#include "Condition.h"
#include "EvaluationOptions.h"
#include "ServiceVocabulary.h"
#include "Verifier.h"
#include "tessiva/kavelin/KVClient.h"

#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace tessiva::detail {
class ServiceContext;

// What an evaluation may use to decide.
struct Methods {
    // Judges the password; absent only for policy 1.
    ObRef<Verifier> password;
    // The service's reader; absent when it has none.
    ObRef<RidgeScanner> scanner;
    // Whose fingers the reader verifies.
    std::string user;
    // Keys the identity of a matching finger.
    std::string identityKey;
};

class Evaluation final : public ObObject {
public:
    // With a guard, each password attempt waits for the user's turn and
    // counts against the user's failures.
    Evaluation(EvaluationOptions options, ObInteger policy, Methods methods,
               ObRef<KVUIDelegate> delegate, ObRef<ServiceContext> context,
               ObRef<AttemptGuard> guard, KVResultReply reply);

    // Runs the evaluation to its end and replies; on a service thread.
    void run();

    // Answers the current passcode event; false when the evaluation has
    // ended or that event already has its answer.
    bool enterPasscode(ObRef<ObObject> passcode);
    // Makes the evaluation fail with the error; false when it has ended or
    // already fails.
    bool fail(ObRef<ObError> error);
    // As fail, when the evaluation is processing the event (or has not yet
    // begun a stage).
    bool failEvent(ObInteger event, ObRef<ObError> error);

    const char* className() const noexcept override;

private:
    class AttemptConversation;
    struct Outcome {
        ObRef<ObDictionary> result;
        ObRef<ObError> error;
    };
    struct ScanEnd {
        // Absent: the stage hands over (its failures used up, or the
        // delegate took the fallback).
        std::optional<Outcome> outcome;
        bool fallbackTaken = false;
        ObInteger failures = 0;
    };
    struct Prompt {
        ObUInteger round;
        ObInteger attemptsLeft;
        std::string notice;
    };
    Outcome evaluate();
    ReaderState readerState();
    // Whether the policy would use a usable reader.
    bool policyScans() const noexcept;
    void reportAvailability(bool canScan);
    // Reports the reader's availability again when it differs from the
    // last report.
    void reportAvailabilityChange();
    // Waits under the lock until `done`, or until the deadline (false then),
    // meanwhile reporting each change of the reader's availability.
    template <class Done> bool waitUntil(std::unique_lock<std::mutex>& lock, Done done);
    Outcome passwordStage();
    ScanEnd ridgeStage();
    void reportScan(const ScanReport& report);
    void answerScan(const ObRef<ObDictionary>& response, const ObRef<ObError>& error);
    Outcome consentStage();
    void answerConsent(const ObRef<ObDictionary>& response, const ObRef<ObError>& error);
    // The outcome that a failure or the time-out forces, if any.
    std::optional<Outcome> forcedOutcome();
    Outcome readerFailure(ReaderProblem problem, const std::string& message);
    Outcome scanSuccess(const std::string& finger);
    void enterStage(ObInteger event);
    // Raises an event; a throwing delegate fails the evaluation.
    void raiseEvent(ObInteger event, const ObRef<ObDictionary>& params, KVUIReply reply);
    ObInteger promptEvent() const noexcept { return passphrase_ ? passphraseEvent : passcodeEvent; }
    // The passcode event to raise for the current round; none when there is
    // nobody to ask, the caller filtered it out, or it is answered already.
    std::optional<Prompt> nextPrompt();
    void raise(const Prompt& prompt);
    void raiseClosingEvents();
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
    const ObInteger policy_;
    // Read and cleared by the evaluation's own thread only.
    ObRef<Verifier> verifier_;
    ObRef<RidgeScanner> scanner_;
    const std::string user_;
    const std::string identityKey_;
    // The password prompt is the passphrase event.
    const bool passphrase_;
    ObRef<KVUIDelegate> delegate_;
    const ObRef<ServiceContext> context_;
    const ObRef<AttemptGuard> guard_;
    KVResultReply reply_;
    std::optional<std::chrono::steady_clock::time_point> deadline_;
    // The prompt events raised (bit N for event N), to close at the end.
    unsigned raised_ = 0;
    // The ridge scan's availability as last reported; none before a report.
    std::optional<bool> reportedScan_;
    // The current attempt got a passcode to judge.
    bool attemptAnswered_ = false;

    std::mutex mutex_;
    Condition changed_;
    // The event of the current stage; 0 before the first.
    ObInteger stageEvent_ = 0;
    // The events of the stages its policy may run (bit N for event N).
    unsigned stageEvents_ = 0;
    // The scan in progress, to stop from other threads.
    ScanStop* scanStop_ = nullptr;
    bool fallbackTaken_ = false;
    // The reader's watch has seen a change that is not yet looked at.
    bool availabilityChanged_ = false;
    std::optional<bool> consent_;
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
