// The passcode evaluation: rounds of the passcode event until an outcome.
#include "PasscodeEvaluation.h"

#include "ServiceErrors.h"
#include "ServiceVocabulary.h"
#include "SimulatedContext.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVSimulatedService.h"
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

PasscodeEvaluation::PasscodeEvaluation(EvaluationOptions options, std::string passcode,
                                       ObRef<KVUIDelegate> delegate,
                                       ObRef<SimulatedContext> context, KVResultReply reply)
    : options_(options), passcode_(std::move(passcode)), delegate_(std::move(delegate)),
      context_(std::move(context)), reply_(std::move(reply)) {}

void PasscodeEvaluation::run() {
    std::optional<std::chrono::steady_clock::time_point> deadline;
    if (options_.timeout)
        deadline = std::chrono::steady_clock::now() + *options_.timeout;
    bool raised = false;
    std::optional<Outcome> outcome;
    while (!outcome) {
        if (std::optional<Prompt> prompt = nextPrompt()) {
            raise(*prompt);
            raised = true;
        }
        outcome = awaitRound(deadline);
    }
    if (raised)
        raiseClosingEvent();
    // A delegate may keep an unanswered reply, which holds this evaluation.
    delegate_ = nullptr;
    context_->finish(*this);
    KVResultReply reply = std::move(reply_);
    reply(outcome->result, outcome->error);
}

bool PasscodeEvaluation::enterPasscode(ObRef<ObObject> passcode) {
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

bool PasscodeEvaluation::fail(ObRef<ObError> error) {
    {
        std::lock_guard lock(mutex_);
        if (ended_ || failure_)
            return false;
        failure_ = std::move(error);
    }
    changed_.notify_all();
    return true;
}

std::optional<PasscodeEvaluation::Prompt> PasscodeEvaluation::nextPrompt() {
    std::lock_guard lock(mutex_);
    if (!delegate_ || !options_.raisesPasscodeEvent || roundAnswered_ || failure_)
        return std::nullopt;
    return Prompt{round_, options_.maxPasscodeFailures - failures_};
}

void PasscodeEvaluation::raise(Prompt prompt) {
    ObRef<ObMutableDictionary> parameters = ObMutableDictionary::make();
    parameters->setObject_forKey(ObNumber::makeBool(true), number(activeParameter));
    parameters->setObject_forKey(number(prompt.attemptsLeft), number(attemptsLeftParameter));
    if (options_.showsRemoteView) {
        parameters->setObject_forKey(&remoteViewBundle, number(remoteViewBundleParameter));
        parameters->setObject_forKey(&remoteViewName, number(remoteViewNameParameter));
    }
    ObRef<PasscodeEvaluation> self(this);
    try {
        delegate_->event_params_reply(
            passcodeEvent, parameters->copy(),
            [self, round = prompt.round](ObRef<ObDictionary> response, ObRef<ObError> error) {
                self->answerEvent(round, response, error);
            });
    } catch (const std::exception& exception) {
        // Most likely a reply the delegate could not translate; tell the caller.
        fail(serviceError(
            KVErrorInvalidParameter,
            ObFormat("The user-interface delegate raised an exception: %s", exception.what())));
    } catch (...) {
        // Anything else would end the process from this service thread.
        fail(serviceError(KVErrorInvalidParameter, &unknownExceptionMessage));
    }
}

void PasscodeEvaluation::raiseClosingEvent() {
    try {
        delegate_->event_params_reply(
            passcodeEvent,
            ObDictionary::make({{number(activeParameter), ObNumber::makeBool(false)}}),
            [](ObRef<ObDictionary>, ObRef<ObError>) {});
    } catch (...) {
        // The outcome is decided; a delegate that fails to close changes nothing.
    }
}

std::optional<PasscodeEvaluation::Outcome>
PasscodeEvaluation::awaitRound(std::optional<std::chrono::steady_clock::time_point> deadline) {
    std::unique_lock lock(mutex_);
    auto answered = [this] { return failure_ || pendingPasscode_; };
    if (!deadline) {
        changed_.wait(lock, answered);
    } else if (!changed_.wait_until(lock, *deadline, answered)) {
        ended_ = true;
        return Outcome{nullptr, serviceError(KVErrorTimedOut, &timedOutMessage)};
    }
    if (failure_) {
        ended_ = true;
        return Outcome{nullptr, failure_};
    }
    ObRef<ObString> attempt = ob_cast<ObString>(*pendingPasscode_);
    pendingPasscode_.reset();
    if (attempt && attempt->text() == passcode_) {
        ended_ = true;
        return Outcome{successResult(), nullptr};
    }
    if (++failures_ >= options_.maxPasscodeFailures) {
        ended_ = true;
        return Outcome{nullptr, serviceError(KVErrorAuthenticationFailed,
                                             ObFormat("Authentication failed: too many wrong "
                                                      "passcodes (%ld).",
                                                      failures_))};
    }
    ++round_;
    roundAnswered_ = false;
    return std::nullopt;
}

void PasscodeEvaluation::answerEvent(ObUInteger round, const ObRef<ObDictionary>& response,
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
            failure_ = serviceError(KVErrorUserCancel, &declinedMessage);
        } else {
            return; // acknowledged; the passcode may still come by enterPassword
        }
    }
    changed_.notify_all();
}

const char* PasscodeEvaluation::className() const noexcept {
    return "PasscodeEvaluation";
}
} // namespace tessiva::detail
