// SPDX-License-Identifier: MIT
// The evaluation: its stages (ridge scans, the password, consent), the
// password's attempts judged by the service's verifier, each answered through
// rounds of the passcode or passphrase event, until an outcome.
#include "Evaluation.h"

#include "NoticeDelegate.h"
#include "RidgeIdentity.h"
#include "ServiceContext.h"
#include "ServiceErrors.h"
#include "ServiceVocabulary.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVServiceErrors.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObNumber.h"

#include <exception>
#include <system_error>
#include <thread>

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(remoteViewBundle, "org.tessiva.simulator");
OB_CONSTANT_STRING(remoteViewName, "SimulatedPasscodeView");
OB_CONSTANT_STRING(timedOutMessage, "The user did not authenticate in time.");
OB_CONSTANT_STRING(unknownExceptionMessage,
                   "The user-interface delegate raised an exception of an unknown type.");
OB_CONSTANT_STRING(declinedMessage, "The user declined to enter the passcode.");
OB_CONSTANT_STRING(declinedPassphraseMessage, "The user declined to enter the passphrase.");
OB_CONSTANT_STRING(declinedConsentMessage, "The user declined to give consent.");
OB_CONSTANT_STRING(verifierFailedMessage, "The authentication service failed unexpectedly.");
OB_CONSTANT_STRING(readerFailedMessage, "The fingerprint reader failed unexpectedly.");
OB_CONSTANT_STRING(fallbackMessage, "The user chose the fallback instead of the ridge scan.");
OB_CONSTANT_STRING(noPasswordMessage, "The service has no password to ask for.");

ObRef<ObNumber> number(ObInteger value) {
    return ObNumber::make(value);
}

// What the user authenticated with; a ridge scan's result also says which
// finger it was, by its identity.
ObRef<ObDictionary> successResult(ObInteger used, const ObRef<ObData>& identity = nullptr) {
    ObRef<ObMutableDictionary> result = ObMutableDictionary::make();
    result->setObject_forKey(ObNumber::makeBool(used == usedRidgescanResult),
                             number(usedRidgescanResult));
    if (identity)
        result->setObject_forKey(identity, number(ridgescanIdentityResult));
    for (ObInteger other : {usedPasscodeResult, usedYesNoResult, usedPassphraseResult})
        result->setObject_forKey(ObNumber::makeBool(used == other), number(other));
    return result->copy();
}

ObInteger simpleStatus(const ScanReport& report) {
    if (!report.done)
        return simpleStatusScanning;
    switch (report.status) {
    case ScanStatus::match:
        return simpleStatusMatched;
    case ScanStatus::noMatch:
        return simpleStatusNotMatched;
    default:
        return simpleStatusFailed;
    }
}

bool isAuthenticationFailure(const ObRef<ObError>& error) {
    return error && error->code() == KVErrorAuthenticationFailed;
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

Evaluation::Evaluation(EvaluationOptions options, ObInteger policy, Methods methods,
                       ObRef<KVUIDelegate> delegate, ObRef<ServiceContext> context,
                       ObRef<AttemptGuard> guard, KVResultReply reply)
    : options_(options), policy_(policy), verifier_(std::move(methods.password)),
      scanner_(std::move(methods.scanner)), user_(std::move(methods.user)),
      identityKey_(std::move(methods.identityKey)),
      passphrase_(options.passphraseFirst || (verifier_ && verifier_->judgesPassphrase())),
      delegate_(std::move(delegate)), context_(std::move(context)), guard_(std::move(guard)),
      reply_(std::move(reply)) {
    const unsigned scan = scanner_ ? 1u << ridgescanEvent : 0, password = 1u << promptEvent(),
                   consent = 1u << consentEvent;
    switch (policy) {
    case 1:
        stageEvents_ = scanner_ ? scan : password;
        break;
    case 1000:
        stageEvents_ = scan | password;
        break;
    case 1001:
        stageEvents_ = consent;
        break;
    case 1002:
        stageEvents_ = scan | consent;
        break;
    default:
        stageEvents_ = password;
    }
}

void Evaluation::run() {
    if (options_.timeout)
        deadline_ = std::chrono::steady_clock::now() + *options_.timeout;
    Outcome outcome = evaluate();
    {
        std::lock_guard lock(mutex_);
        ended_ = true;
    }
    raiseClosingEvents();
    // A delegate may keep an unanswered reply, which holds this evaluation;
    // the verifier and the reader let go of what they hold on this thread.
    delegate_ = nullptr;
    verifier_ = nullptr;
    scanner_ = nullptr;
    context_->finish(*this);
    KVResultReply reply = std::move(reply_);
    reply(outcome.result, outcome.error);
}

Evaluation::Outcome Evaluation::evaluate() {
    constexpr ObInteger ridgeScanPolicy = 1, passcodePolicy = 1000, consentPolicy = 1001,
                        consentScanPolicy = 1002;
    const ReaderState reader = readerState();
    const bool canScan = reader.problem == ReaderProblem::none;
    // Only a machine with a reader has anything to report.
    if (scanner_ && reader.problem != ReaderProblem::noReader)
        reportAvailability(canScan && policyScans());
    // Readers coming and going are reported while the evaluation waits.
    std::unique_ptr<ReaderWatch> watching;
    if (scanner_ && delegate_) {
        try {
            watching = scanner_->watch([this] {
                {
                    std::lock_guard lock(mutex_);
                    availabilityChanged_ = true;
                }
                changed_.notifyAll();
            });
        } catch (...) {
            // Unwatched, the report made at the start stays the only one.
        }
    }
    switch (policy_) {
    case ridgeScanPolicy: {
        if (!scanner_) // a service that judges policy 1 by its password verifier
            return passwordStage();
        if (!canScan)
            return readerFailure(reader.problem, reader.message);
        ScanEnd end = ridgeStage();
        if (end.outcome)
            return *end.outcome;
        if (end.fallbackTaken)
            return {nullptr, kvError(KVErrorUserFallback, &fallbackMessage)};
        return {nullptr, kvError(KVErrorAuthenticationFailed,
                                 ObFormat("Authentication failed: too many ridge scans that "
                                          "did not match (%ld).",
                                          end.failures))};
    }
    case passcodePolicy:
        if (!canScan)
            return passwordStage();
        if (options_.passphraseFirst) {
            Outcome first = passwordStage();
            if (!isAuthenticationFailure(first.error))
                return first;
            {
                std::lock_guard lock(mutex_);
                if (failure_ || timedOut_)
                    return first;
                ended_ = false;
            }
            ScanEnd end = ridgeStage();
            return end.outcome ? *end.outcome : first;
        } else {
            ScanEnd end = ridgeStage();
            return end.outcome ? *end.outcome : passwordStage();
        }
    case consentPolicy:
        return consentStage();
    case consentScanPolicy:
        if (canScan) {
            ScanEnd end = ridgeStage();
            if (end.outcome)
                return *end.outcome;
        }
        return consentStage();
    default:
        return passwordStage();
    }
}

ReaderState Evaluation::readerState() {
    if (!scanner_)
        return {};
    try {
        return scanner_->state(user_);
    } catch (...) {
        return {ReaderProblem::failed, {}, std::string(readerFailedMessage.text())};
    }
}

bool Evaluation::policyScans() const noexcept {
    return policy_ == 1 || policy_ == 1000 || policy_ == 1002;
}

void Evaluation::reportAvailability(bool canScan) {
    if (!delegate_)
        return;
    reportedScan_ = canScan;
    // What this evaluation can use: consent policies take no password.
    const bool password = verifier_ && policy_ != 1 && policy_ != 1001 && policy_ != 1002;
    raiseEvent(availabilityEvent,
               ObDictionary::make({{number(ridgescanEvent), ObNumber::makeBool(canScan)},
                                   {number(passcodeEvent), ObNumber::makeBool(password)}}),
               [](ObRef<ObDictionary>, ObRef<ObError>) {});
}

void Evaluation::reportAvailabilityChange() {
    const ReaderState reader = readerState();
    // A machine that had no reader, and still has none, has nothing to tell.
    if (!reportedScan_ && reader.problem == ReaderProblem::noReader)
        return;
    const bool canScan = reader.problem == ReaderProblem::none && policyScans();
    if (reportedScan_ != canScan)
        reportAvailability(canScan);
}

template <class Done> bool Evaluation::waitUntil(std::unique_lock<std::mutex>& lock, Done done) {
    auto woken = [&] { return done() || availabilityChanged_; };
    for (;;) {
        if (!changed_.wait(lock, deadline_, woken))
            return false;
        if (done())
            return true;
        availabilityChanged_ = false;
        lock.unlock();
        reportAvailabilityChange();
        lock.lock();
    }
}

void Evaluation::enterStage(ObInteger event) {
    std::lock_guard lock(mutex_);
    stageEvent_ = event;
}

std::optional<Evaluation::Outcome> Evaluation::forcedOutcome() {
    std::lock_guard lock(mutex_);
    if (failure_) {
        ended_ = true;
        return Outcome{nullptr, failure_};
    }
    if (!timedOut_ && deadline_ && std::chrono::steady_clock::now() >= *deadline_)
        ended_ = timedOut_ = true;
    if (timedOut_)
        return Outcome{nullptr, kvError(KVErrorTimedOut, &timedOutMessage)};
    return std::nullopt;
}

Evaluation::Outcome Evaluation::passwordStage() {
    enterStage(promptEvent());
    if (!verifier_)
        return {nullptr, kvError(KVErrorServiceUnavailable, &noPasswordMessage)};
    std::optional<Outcome> outcome;
    while (!outcome)
        outcome = judge(attempt());
    return *outcome;
}

Evaluation::ScanEnd Evaluation::ridgeStage() {
    enterStage(ridgescanEvent);
    ScanEnd end;
    for (;;) {
        if (std::optional<Outcome> forced = forcedOutcome())
            return {forced};
        ScanStop stop;
        {
            std::lock_guard lock(mutex_);
            scanStop_ = &stop;
        }
        // The reader knows no deadline: this stops it at the time-out.
        std::thread watcher;
        try {
            if (deadline_)
                watcher = std::thread([this, &stop] {
                    std::unique_lock lock(mutex_);
                    if (!changed_.wait(lock, deadline_,
                                       [this] { return scanStop_ == nullptr || failure_; })) {
                        ended_ = timedOut_ = true;
                        stop.request();
                    }
                });
        } catch (const std::system_error&) {
            // Without the watcher the time-out could not be kept: no scan.
            std::lock_guard lock(mutex_);
            scanStop_ = nullptr;
            return {readerFailure(ReaderProblem::failed, "No thread to keep the time-out.")};
        }
        ScanOutcome scanned;
        try {
            scanned = scanner_->scan(
                user_, [this](const ScanReport& report) { reportScan(report); }, stop);
        } catch (...) {
            // Field by field: g++ 12 at -O3 takes the braced temporary's
            // strings for uninitialised (-Wmaybe-uninitialized).
            scanned.problem = ReaderProblem::failed;
            scanned.message = readerFailedMessage.text();
        }
        bool fallback = false;
        {
            std::lock_guard lock(mutex_);
            scanStop_ = nullptr;
            fallback = fallbackTaken_;
        }
        changed_.notifyAll();
        if (watcher.joinable())
            watcher.join();
        if (std::optional<Outcome> forced = forcedOutcome())
            return {forced};
        if (fallback) {
            end.fallbackTaken = true;
            return end;
        }
        if (scanned.problem != ReaderProblem::none)
            return {readerFailure(scanned.problem, scanned.message)};
        if (scanned.stopped)
            return {readerFailure(ReaderProblem::failed, scanned.message)};
        switch (scanned.last.status) {
        case ScanStatus::match:
            return {scanSuccess(scanned.last.finger)};
        case ScanStatus::noMatch:
            if (++end.failures >= options_.maxRidgescanFailures)
                return end;
            break;
        case ScanStatus::disconnected:
            return {readerFailure(ReaderProblem::unplugged, scanned.message)};
        default:
            return {readerFailure(ReaderProblem::failed, scanned.message)};
        }
    }
}

void Evaluation::reportScan(const ScanReport& report) {
    if (!delegate_ || !options_.raises(ridgescanEvent))
        return;
    ObRef<ObMutableDictionary> params = ObMutableDictionary::make();
    params->setObject_forKey(number(ObInteger(report.status)), number(scanStatusParameter));
    params->setObject_forKey(number(simpleStatus(report)), number(scanSimpleStatusParameter));
    if (report.done && report.status == ScanStatus::match)
        params->setObject_forKey(
            ObRef<ObObject>(ridgescanIdentity(identityKey_, user_, report.finger)),
            number(scanIdentityParameter));
    ObRef<Evaluation> self(this);
    raiseEvent(ridgescanEvent, params->copy(),
               [self](ObRef<ObDictionary> response, ObRef<ObError> error) {
                   self->answerScan(response, error);
               });
}

void Evaluation::answerScan(const ObRef<ObDictionary>& response, const ObRef<ObError>& error) {
    if (error) {
        fail(error);
        return;
    }
    ObRef<ObNumber> answer =
        response ? ob_cast<ObNumber>(response->objectForKey(number(passcodeResponse))) : nullptr;
    if (!options_.offersFallback || !answer || !answer->boolValue())
        return;
    std::lock_guard lock(mutex_);
    if (ended_ || failure_ || stageEvent_ != ridgescanEvent || fallbackTaken_)
        return;
    fallbackTaken_ = true;
    if (scanStop_)
        scanStop_->request();
}

Evaluation::Outcome Evaluation::readerFailure(ReaderProblem problem, const std::string& message) {
    static constexpr const char* fallbacks[] = {
        "The fingerprint reader failed unexpectedly.",
        "This device has no fingerprint reader.",
        "No finger is enrolled for the user.",
        "The fingerprint reader is in use by another program.",
        "The fingerprint reader was unplugged during the scan.",
        "The fingerprint reader's service refused access.",
        "The fingerprint reader failed unexpectedly.",
    };
    const std::string text = message.empty() ? fallbacks[int(problem)] : message;
    const ObInteger code = problem == ReaderProblem::notEnrolled ? KVErrorBiometryNotEnrolled
                                                                 : KVErrorBiometryNotAvailable;
    return {nullptr, kvError(code, ObString::make(text))};
}

Evaluation::Outcome Evaluation::scanSuccess(const std::string& finger) {
    return {successResult(usedRidgescanResult, ridgescanIdentity(identityKey_, user_, finger)),
            nullptr};
}

Evaluation::Outcome Evaluation::consentStage() {
    enterStage(consentEvent);
    if (delegate_ && options_.raises(consentEvent)) {
        ObRef<Evaluation> self(this);
        raiseEvent(consentEvent,
                   ObDictionary::make({{number(activeParameter), ObNumber::makeBool(true)}}),
                   [self](ObRef<ObDictionary> response, ObRef<ObError> error) {
                       self->answerConsent(response, error);
                   });
        raised_ |= 1u << consentEvent;
    }
    std::unique_lock lock(mutex_);
    if (!waitUntil(lock, [this] { return failure_ || consent_; }))
        ended_ = timedOut_ = true;
    lock.unlock();
    if (std::optional<Outcome> forced = forcedOutcome())
        return *forced;
    if (!*consent_)
        return {nullptr, kvError(KVErrorUserCancel, &declinedConsentMessage)};
    return {successResult(usedYesNoResult), nullptr};
}

void Evaluation::answerConsent(const ObRef<ObDictionary>& response, const ObRef<ObError>& error) {
    {
        std::lock_guard lock(mutex_);
        if (ended_ || failure_ || consent_ || stageEvent_ != consentEvent)
            return;
        ObRef<ObObject> answer =
            response ? response->objectForKey(number(passcodeResponse)) : nullptr;
        if (error) {
            failure_ = error;
        } else if (ObRef<ObNumber> yesNo = ob_cast<ObNumber>(answer)) {
            consent_ = yesNo->boolValue();
        } else if (answer) {
            consent_ = false;
        } else {
            return; // acknowledged; the answer may come later
        }
    }
    changed_.notifyAll();
}

void Evaluation::raiseEvent(ObInteger event, const ObRef<ObDictionary>& params, KVUIReply reply) {
    try {
        delegate_->event_params_reply(event, params, std::move(reply));
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
        const ObInteger wanted = promptEvent();
        if (ended_ || failure_ || roundAnswered_ ||
            (stageEvent_ != 0 ? stageEvent_ != wanted : !(stageEvents_ & (1u << wanted))))
            return false;
        roundAnswered_ = true;
        pendingPasscode_ = std::move(passcode);
    }
    changed_.notifyAll();
    return true;
}

bool Evaluation::fail(ObRef<ObError> error) {
    {
        std::lock_guard lock(mutex_);
        if (ended_ || failure_)
            return false;
        failure_ = std::move(error);
        if (scanStop_)
            scanStop_->request();
    }
    changed_.notifyAll();
    if (guard_)
        guard_->wake();
    return true;
}

bool Evaluation::failEvent(ObInteger event, ObRef<ObError> error) {
    {
        std::lock_guard lock(mutex_);
        if (event < ridgescanEvent || event > passphraseEvent ||
            (stageEvent_ != 0 ? stageEvent_ != event : !(stageEvents_ & (1u << event))))
            return false;
    }
    return fail(std::move(error));
}

std::optional<Evaluation::Prompt> Evaluation::nextPrompt() {
    std::lock_guard lock(mutex_);
    std::string notice = std::exchange(notice_, {});
    if (!delegate_ || !options_.raises(promptEvent()) || roundAnswered_ || failure_)
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
    raiseEvent(promptEvent(), parameters->copy(),
               [self, round = prompt.round](ObRef<ObDictionary> response, ObRef<ObError> error) {
                   self->answerEvent(round, response, error);
               });
}

void Evaluation::raiseClosingEvents() {
    // The outcome is decided; the delegate's answer or failure changes nothing.
    for (ObInteger event : {passcodeEvent, consentEvent, passphraseEvent})
        if (raised_ & (1u << event))
            notify(*delegate_, event,
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
        raised_ |= 1u << promptEvent();
    }
    std::unique_lock lock(mutex_);
    if (!waitUntil(lock, [this] { return failure_ || pendingPasscode_; })) {
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
        return Outcome{successResult(passphrase_ ? usedPassphraseResult : usedPasscodeResult),
                       nullptr};
    }
    if (!attemptSpoiled_ && verification.verdict == Verdict::failed) {
        ended_ = true;
        return Outcome{nullptr, verification.error};
    }
    attemptSpoiled_ = false;
    if (++failures_ >= options_.maxPasscodeFailures) {
        ended_ = true;
        return Outcome{nullptr,
                       kvError(KVErrorAuthenticationFailed,
                               ObFormat("Authentication failed: too many wrong "
                                        "%s (%ld).",
                                        passphrase_ ? "passphrases" : "passcodes", failures_))};
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
        if (ended_ || failure_ || roundAnswered_ || round != round_ || stageEvent_ != promptEvent())
            return;
        ObRef<ObObject> answer =
            response ? response->objectForKey(number(passcodeResponse)) : nullptr;
        if (error) {
            failure_ = error;
        } else if (ob_cast<ObString>(answer)) {
            roundAnswered_ = true;
            pendingPasscode_ = std::move(answer);
        } else if (answer) {
            failure_ = kvError(KVErrorUserCancel,
                               passphrase_ ? &declinedPassphraseMessage : &declinedMessage);
        } else {
            return; // acknowledged; the passcode may still come by enterPassword
        }
    }
    changed_.notifyAll();
    if (guard_)
        guard_->wake();
}

const char* Evaluation::className() const noexcept {
    return "Evaluation";
}
} // namespace tessiva::detail
