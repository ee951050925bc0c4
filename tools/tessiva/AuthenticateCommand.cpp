// SPDX-License-Identifier: MIT
// tessiva authenticate: a VR caller's evaluation against the system service
// (or the backend TESSIVA_SERVICE names),
// answering each event on the terminal (or standard input): the password
// (hidden) for each of PAM's prompts, consent as y or n, and the reader's
// progress and availability shown as they come. Ctrl-C stops the evaluation
// with StopEvents and exits 130.
#include "Command.h"
#include "PasswordPrompt.h"
#include "tessiva/VRConstants.h"
#include "tessiva/VRCredentialReference.h"
#include "tessiva/kavelin/KVPAMService.h"
#include "tessiva/object/Ob.h"

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <functional>
#include <iostream>
#include <mutex>
#include <pthread.h>
#include <strings.h>
#include <thread>
#include <unistd.h>

namespace tessiva::tool {
namespace {

// The shell's status for a command ended by SIGINT.
constexpr int exitInterrupted = 130;

struct Policy {
    std::string_view name;
    ObString* const* value;
};
// The policies' own names, which the translation knows apart (the constants
// all share one value).
constexpr std::string_view literalPolicies[] = {"DeviceOwnerAuthenticated",
                                                "DeviceOwnerAuthenticatedWithBiometrics",
                                                "DeviceOwnerConsentRidgescanPreferred"};
#define POLICY(symbol)                                                                             \
    Policy {                                                                                       \
#symbol, &symbol                                                                           \
    }
constexpr Policy policies[] = {
    POLICY(VRPolicyDeviceOwnerAuthenticated),
    POLICY(VRPolicyDeviceOwnerAuthenticatedWithBiometrics),
    POLICY(VRPolicyDeviceOwnerConsent),
    POLICY(VRPolicyDeviceOwnerConsentRidgescanPreferred),
    POLICY(VRPolicyDeviceOwnerConsentRidgeScanPreferred),
    POLICY(VRPolicyHumanPresence),
    POLICY(VRPolicyVelmora),
    POLICY(VRPolicyTirsa),
    POLICY(VRPolicyTirsaWithPIN),
};
#undef POLICY

struct Options {
    ObRef<ObString> policy = VRPolicyDeviceOwnerAuthenticated;
    KVPAMConfiguration configuration = KVPAMService::configurationFromEnvironment();
};

Options readOptions(Arguments arguments) {
    Options options;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        // "--name value" or "--name=value", as getopt_long takes them.
        std::string_view flag = arguments[index];
        std::string value;
        if (const auto equals = flag.find('='); flag.starts_with("--") && equals != flag.npos) {
            value = flag.substr(equals + 1);
            flag = flag.substr(0, equals);
        } else if (index + 1 < arguments.size()) {
            value = arguments[++index];
        } else {
            throw UsageError("option '" + std::string(flag) + "' requires an argument");
        }
        if (flag == "--service") {
            options.configuration.service = value;
        } else if (flag == "--user") {
            options.configuration.user = value;
        } else if (flag == "--policy") {
            const Policy* found = nullptr;
            for (const Policy& policy : policies)
                found = policy.name == value ? &policy : found;
            bool literal = false;
            for (std::string_view name : literalPolicies)
                literal = literal || name == value;
            if (found == nullptr && !literal)
                throw UsageError("unknown policy '" + value + "'");
            options.policy =
                found != nullptr ? ObRef<ObString>(*found->value) : ObString::make(value);
        } else {
            throw UsageError("unrecognized option '" + std::string(flag) + "'");
        }
    }
    return options;
}

// What the service's threads hand to the main thread, which alone talks to
// the user: a prompt with its reply, or the evaluation's outcome.
struct Message {
    bool isOutcome = false;
    ObRef<ObDictionary> params;
    VRUIReply reply;
    ObRef<ObError> error;
    ObRef<ObString> event;
    bool isInterrupt = false;

    static Message interrupt() { return {false, nullptr, nullptr, nullptr, nullptr, true}; }
};

class Mailbox {
public:
    void post(Message message) {
        std::lock_guard lock(mutex_);
        messages_.push_back(std::move(message));
        posted_.notify_all();
    }
    Message take() {
        std::unique_lock lock(mutex_);
        posted_.wait(lock, [this] { return !messages_.empty(); });
        Message message = std::move(messages_.front());
        messages_.pop_front();
        return message;
    }

private:
    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<Message> messages_;
};

class PromptingDelegate final : public VRUIDelegate {
public:
    explicit PromptingDelegate(Mailbox& mailbox) noexcept : mailbox_(mailbox) {}
    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        mailbox_.post({false, params, std::move(reply), nullptr, event, false});
    }
    const char* className() const noexcept override { return "PromptingDelegate"; }

private:
    Mailbox& mailbox_;
};

// SIGINT is blocked in every thread and taken by one that writes to a pipe,
// which the prompt waits on beside standard input.
class InterruptWatch {
public:
    // `interrupted` also hears of it, for waits that are not the prompt's.
    explicit InterruptWatch(std::function<void()> interrupted)
        : interrupted_(std::move(interrupted)) {
        if (pipe(fds_) != 0)
            throw std::runtime_error("cannot make a pipe");
        sigemptyset(&set_);
        sigaddset(&set_, SIGINT);
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
        watcher_ = std::thread([this] {
            int signal = 0;
            sigwait(&set_, &signal);
            if (!stopping_) {
                (void)!write(fds_[1], "!", 1);
                interrupted_();
            }
        });
    }
    ~InterruptWatch() {
        // Wakes the watcher with a signal of our own, which it then ignores.
        stopping_ = true;
        pthread_kill(watcher_.native_handle(), SIGINT);
        watcher_.join();
        close(fds_[0]);
        close(fds_[1]);
    }
    int fd() const noexcept { return fds_[0]; }

private:
    const std::function<void()> interrupted_;
    int fds_[2] = {-1, -1};
    sigset_t set_{};
    std::atomic<bool> stopping_ = false;
    std::thread watcher_;
};

bool isActive(const ObRef<ObDictionary>& params) {
    ObRef<ObNumber> active =
        params ? ob_cast<ObNumber>(params->objectForKey(VREventParamActive)) : nullptr;
    return active && active->boolValue();
}

std::string promptText(const ObRef<ObDictionary>& params, const std::string& what,
                       const std::string& user) {
    std::string text;
    if (ObRef<ObString> status =
            ob_cast<ObString>(params->objectForKey(VREventRidgeScanParamStatus)))
        text += std::string(status->text()) + "\n";
    ObRef<ObNumber> left =
        ob_cast<ObNumber>(params->objectForKey(VREventRidgeScanParamSimpleStatus));
    text += what + " for " + user;
    if (left)
        text += " (" + std::to_string(left->integerValue()) +
                (left->integerValue() == 1 ? " attempt left)" : " attempts left)");
    return text + ": ";
}

// The system service in this process, unless TESSIVA_SERVICE names another backend (bus:
// the deployed tessivad), which then answers as it would for any caller.
bool environmentNamesOtherBackend() {
    const char* named = std::getenv("TESSIVA_SERVICE");
    return named != nullptr && *named != '\0' && strcasecmp(named, "pam") != 0 &&
           strcasecmp(named, "system") != 0;
}

void stopEvaluation(const ObRef<VRCredentialReference>& reference, const ObRef<ObString>& event) {
    reference->sendClientRequest_params_reply(
        VRClientRequestStopEvents, ObDictionary::make({{VRClientRequestParamEvent, event}}),
        [](ObRef<ObDictionary>, ObRef<ObError>) {});
}

bool is(const ObRef<ObString>& event, ObString* name) {
    return event && event->isEqual(name);
}

// The reader's progress and what can be used, as lines on standard error.
void showNotice(const ObRef<ObString>& event, const ObRef<ObDictionary>& params) {
    static constexpr const char* statuses[] = {"matched",
                                               "no match",
                                               "scan again",
                                               "swipe too short",
                                               "finger not centred",
                                               "remove your finger and try again",
                                               "the reader was unplugged",
                                               "the reader failed"};
    if (ObRef<ObNumber> available =
            ob_cast<ObNumber>(params->objectForKey(VREventParamAvailable))) {
        std::cerr << (is(event, VREventRidgescan) ? "Ridge scan" : "Passcode")
                  << (available->boolValue() ? ": available\n" : ": not available\n");
        return;
    }
    ObRef<ObNumber> status = ob_cast<ObNumber>(params->objectForKey(VREventRidgeScanParamStatus));
    if (!is(event, VREventRidgescan) || !status)
        return;
    const ObInteger value = status->integerValue();
    std::cerr << "Ridge scan: " << (value >= 0 && value <= 7 ? statuses[value] : "unknown status")
              << "\n";
}

void printResults(const ObRef<VRCredentialReference>& reference) {
    for (ObString* tag : {VRResultTagUsedPasscode, VRResultTagUsedRidgescan, VRResultTagUsedYesNo,
                          VRResultTagUsedPassphrase})
        std::cout << tag->text() << ": " << ObFormat("%@", reference->resultForTag(tag))->text()
                  << "\n";
}
} // namespace

int runAuthenticate(Arguments arguments) {
    const Options options = readOptions(arguments);
    const ObRef<KVPAMService> service = KVPAMService::make(options.configuration);
    // Installing none leaves the library's own choice, TESSIVA_SERVICE's.
    const KVScopedClientBackend installed(environmentNamesOtherBackend()
                                              ? ObRef<KVClientBackend>()
                                              : ObRef<KVClientBackend>(service));
    const std::string user = service->configuration().user;
    Mailbox mailbox;
    const InterruptWatch interrupts([&mailbox] { mailbox.post(Message::interrupt()); });

    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    reference->setupWithCredentialHandle_uiDelegate_reply(
        nullptr, ObMake<PromptingDelegate>(mailbox), [&](ObRef<ObError> error) {
            mailbox.post({true, nullptr, nullptr, error, nullptr, false});
        });
    Message setUp = mailbox.take();
    if (setUp.error) {
        std::cerr << "error: " << setUp.error->localizedDescription()->text() << "\n";
        return exitLibraryError;
    }
    reference->evaluatePolicy_hints_reply(options.policy, nullptr, [&](ObRef<ObError> error) {
        mailbox.post({true, nullptr, nullptr, error, nullptr, false});
    });

    PasswordPrompt prompt(interrupts.fd());
    bool interrupted = false;
    // The event being processed, which Ctrl-C stops.
    ObRef<ObString> current = VREventPasscode;
    for (;;) {
        Message message = mailbox.take();
        if (message.isInterrupt) {
            if (!interrupted)
                stopEvaluation(reference, current);
            interrupted = true;
            continue;
        }
        if (message.isOutcome) {
            if (interrupted) {
                std::cerr << "tessiva: interrupted\n";
                return exitInterrupted;
            }
            if (message.error) {
                std::cerr << "error: " << message.error->localizedDescription()->text()
                          << " (VR code " << message.error->code() << ")\n";
                return exitLibraryError;
            }
            printResults(reference);
            return exitSuccess;
        }
        if (interrupted || !message.params)
            continue;
        if (message.event && !message.params->objectForKey(VREventParamAvailable))
            current = message.event;
        if (!isActive(message.params)) {
            showNotice(message.event, message.params);
            continue;
        }
        const bool consent = is(message.event, VREventConsent);
        const std::string what = is(message.event, VREventPassphrase) ? "Passphrase" : "Password";
        switch (consent ? prompt.ask("Allow this for " + user + "? [y/n]: ", true)
                        : prompt.ask(promptText(message.params, what, user))) {
        case PasswordPrompt::Outcome::line: {
            // The response key of every answer, a consent's or a password's.
            ObRef<ObObject> answer = ObString::make(prompt.line());
            if (consent)
                answer = ObNumber::makeBool(prompt.line() == "y" || prompt.line() == "yes");
            message.reply(ObDictionary::make({{VREventConsentResponse, answer}}), nullptr);
            break;
        }
        case PasswordPrompt::Outcome::interrupted:
            interrupted = true;
            stopEvaluation(reference, current);
            break;
        case PasswordPrompt::Outcome::endOfInput:
            stopEvaluation(reference, current);
            break;
        }
    }
}
} // namespace tessiva::tool
