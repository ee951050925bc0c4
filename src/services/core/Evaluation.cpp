// SPDX-License-Identifier: MIT
// The evaluation: attempts judged by the service's verifier, each answered
// through rounds of the passcode event, until an outcome.
#include "Evaluation.h"

#include "NoticeDelegate.h"
#include "ServiceContext.h"
#include "ServiceErrors.h"
#include "ServiceVocabulary.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVServiceErrors.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObNumber.h"

#include <exception>

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(remoteViewBundle, "org.tessiva.simulator");
OB_CONSTANT_STRING(remoteViewName, "SimulatedPasscodeView");
OB_CONSTANT_STRING(timedOutMessage, "The user did not authenticate in time.");
OB_CONSTANT_STRING(unknownExceptionMessage,
                   "The user-interface delegate raised an exception of an unknown type.");
OB_CONSTANT_STRING(declinedMessage, "The user declined to enter the passcode.");
OB_CONSTANT_STRING(verifierFailedMessage, "The authentication service failed unexpectedly.");

ObRef<ObNumber> number(ObInteger value) {
    return ObNumber::make(value);
}

// What the user authenticated with: the passcode alone.
ObRef<ObDictionary> successResult() {
    return ObDictionary::make({{number(1), ObNumber::makeBool(false)},
                               {number(3), ObNumber::makeBool(true)},
                               {number(4), ObNumber::makeBool(false)},
                               {number(5), ObNumber::makeBool(false)}});
}
} // namespace

// Hands the verifier the evaluation's rounds; lives for one run.
class Evaluation::AttemptConversation final : public Conversation {
public:
    explicit AttemptConversation(Evaluation& evaluation) noexcept : evaluation_(evaluation) {}
    std::optional<SecretText> askPasscode() override { return evaluation_.awaitAnswer(); }
    void tell(std::string_view text) override { evaluation_.tell(text); }

private:
    Evaluation& evaluation_;
};

Evaluation::Evaluation(EvaluationOptions options, ObRef<Verifier> verifier,
                       ObRef<KVUIDelegate> delegate, ObRef<ServiceContext> context,
                       ObRef<AttemptGuard> guard, KVResultReply reply)
    : options_(options), verifier_(std::move(verifier)), delegate_(std::move(delegate)),
      context_(std::move(context)), guard_(std::move(guard)), reply_(std::move(reply)) {}

void Evaluation::run() {
    if (options_.timeout)
        deadline_ = std::chrono::steady_clock::now() + *options_.timeout;
    std::optional<Outcome> outcome;
    while (!outcome)
        outcome = judge(attempt());
    if (raised_)
        raiseClosingEvent();
    // A delegate may keep an unanswered reply, which holds this evaluation;
    // the verifier lets go of what it holds in the service on this thread.
    delegate_ = nullptr;
    verifier_ = nullptr;
    context_->finish(*this);
    KVResultReply reply = std::move(reply_);
    reply(outcome->result, outcome->error);
}

Verification Evaluation::attempt() {
    attemptAnswered_ = false;
    if (guard_) {
        switch (guard_->enter([this] { return stopped(); }, deadline_)) {
        case AttemptGuard::Admission::admitted:
            break;
        case AttemptGuard::Admission::lockedOut:
            return {Verdict::failed, AttemptGuard::lockedOutError()};
        case AttemptGuard::Admission::stopped: {
            std::lock_guard lock(mutex_);
            if (!failure_)
                ended_ = timedOut_ = true;
            return {Verdict::rejected, nullptr};
        }
        }
    }
    AttemptConversation conversation(*this);
    Verification verification{Verdict::failed, nullptr};
    try {
        verification = verifier_->verify(conversation);
    } catch (...) {
        // Anything escaping would end the process from this service thread.
        verification.error = kvError(KVErrorServiceUnavailable, &verifierFailedMessage);
    }
    if (guard_)
        guard_->leave(attemptAnswered_ && verification.verdict == Verdict::rejected);
    return verification;
}

bool Evaluation::stopped() {
    std::lock_guard lock(mutex_);
    return ended_ || failure_;
}

bool Evaluation::enterPasscode(ObRef<ObObject> passcode) {
    {
        std::lock_guard lock(mutex_);
        if (ended_ || failure_ || roundAnswered_)
            return false;
        roundAnswered_ = true;
        pendingPasscode_ = std::move(passcode);
    }
    changed_.notify_all();
    return true;
}

bool Evaluation::fail(ObRef<ObError> error) {
    {
        std::lock_guard lock(mutex_);
        if (ended_ || failure_)
            return false;
        failure_ = std::move(error);
    }
    changed_.notify_all();
    if (guard_)
        guard_->wake();
    return true;
}

std::optional<Evaluation::Prompt> Evaluation::nextPrompt() {
    std::lock_guard lock(mutex_);
    std::string notice = std::exchange(notice_, {});
    if (!delegate_ || !options_.raisesPasscodeEvent || roundAnswered_ || failure_)
        return std::nullopt;
    return Prompt{round_, options_.maxPasscodeFailures - failures_, std::move(notice)};
}

void Evaluation::raise(const Prompt& prompt) {
    ObRef<ObMutableDictionary> parameters = ObMutableDictionary::make();
    parameters->setObject_forKey(ObNumber::makeBool(true), number(activeParameter));
    parameters->setObject_forKey(number(prompt.attemptsLeft), number(attemptsLeftParameter));
    if (!prompt.notice.empty())
        parameters->setObject_forKey(ObString::make(prompt.notice), number(noticeParameter));
    if (options_.showsRemoteView) {
        parameters->setObject_forKey(&remoteViewBundle, number(remoteViewBundleParameter));
        parameters->setObject_forKey(&remoteViewName, number(remoteViewNameParameter));
    }
    ObRef<Evaluation> self(this);
    try {
        delegate_->event_params_reply(
            passcodeEvent, parameters->copy(),
            [self, round = prompt.round](ObRef<ObDictionary> response, ObRef<ObError> error) {
                self->answerEvent(round, response, error);
            });
    } catch (const std::exception& exception) {
        // Most likely a reply the delegate could not translate; tell the caller.
        fail(kvError(
            KVErrorInvalidParameter,
            ObFormat("The user-interface delegate raised an exception: %s", exception.what())));
    } catch (...) {
        // Anything else would end the process from this service thread.
        fail(kvError(KVErrorInvalidParameter, &unknownExceptionMessage));
    }
}

void Evaluation::raiseClosingEvent() {
    // The outcome is decided; the delegate's answer or failure changes nothing.
    notify(*delegate_, passcodeEvent,
           ObDictionary::make({{number(activeParameter), ObNumber::makeBool(false)}}));
}

std::optional<SecretText> Evaluation::awaitAnswer() {
    {
        std::lock_guard lock(mutex_);
        // A verifier asking again within one attempt asks a new question.
        if (roundAnswered_ && !pendingPasscode_) {
            ++round_;
            roundAnswered_ = false;
        }
    }
    if (std::optional<Prompt> prompt = nextPrompt()) {
        raise(*prompt);
        raised_ = true;
    }
    std::unique_lock lock(mutex_);
    auto answered = [this] { return failure_ || pendingPasscode_; };
    if (!deadline_) {
        changed_.wait(lock, answered);
    } else if (!changed_.wait_until(lock, *deadline_, answered)) {
        ended_ = timedOut_ = true;
        return std::nullopt;
    }
    if (failure_) {
        ended_ = true;
        return std::nullopt;
    }
    ObRef<ObString> answer = ob_cast<ObString>(*pendingPasscode_);
    pendingPasscode_.reset();
    if (!answer) {
        attemptSpoiled_ = true;
        return std::nullopt;
    }
    attemptAnswered_ = true;
    return SecretText(answer->text());
}

void Evaluation::tell(std::string_view text) {
    std::lock_guard lock(mutex_);
    if (!notice_.empty())
        notice_ += '\n';
    notice_ += text;
}

std::optional<Evaluation::Outcome> Evaluation::judge(const Verification& verification) {
    std::lock_guard lock(mutex_);
    if (failure_) {
        ended_ = true;
        return Outcome{nullptr, failure_};
    }
    if (timedOut_)
        return Outcome{nullptr, kvError(KVErrorTimedOut, &timedOutMessage)};
    if (!attemptSpoiled_ && verification.verdict == Verdict::accepted) {
        ended_ = true;
        return Outcome{successResult(), nullptr};
    }
    if (!attemptSpoiled_ && verification.verdict == Verdict::failed) {
        ended_ = true;
        return Outcome{nullptr, verification.error};
    }
    attemptSpoiled_ = false;
    if (++failures_ >= options_.maxPasscodeFailures) {
        ended_ = true;
        return Outcome{nullptr, kvError(KVErrorAuthenticationFailed,
                                        ObFormat("Authentication failed: too many wrong "
                                                 "passcodes (%ld).",
                                                 failures_))};
    }
    ++round_;
    roundAnswered_ = false;
    pendingPasscode_.reset();
    return std::nullopt;
}

void Evaluation::answerEvent(ObUInteger round, const ObRef<ObDictionary>& response,
                             const ObRef<ObError>& error) {
    {
        std::lock_guard lock(mutex_);
        if (ended_ || failure_ || roundAnswered_ || round != round_)
            return;
        ObRef<ObObject> answer =
            response ? response->objectForKey(number(passcodeResponse)) : nullptr;
        if (error) {
            failure_ = error;
        } else if (ob_cast<ObString>(answer)) {
            roundAnswered_ = true;
            pendingPasscode_ = std::move(answer);
        } else if (answer) {
            failure_ = kvError(KVErrorUserCancel, &declinedMessage);
        } else {
            return; // acknowledged; the passcode may still come by enterPassword
        }
    }
    changed_.notify_all();
    if (guard_)
        guard_->wake();
}

const char* Evaluation::className() const noexcept {
    return "Evaluation";
}
} // namespace tessiva::detail
