// SPDX-License-Identifier: MIT
// tessiva authenticate: a VR caller's evaluation against the PAM service,
// asking for the password on the terminal (or standard input) for each of
// PAM's prompts. Ctrl-C stops the evaluation with StopEvents and exits 130.
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
#include <iostream>
#include <mutex>
#include <pthread.h>
#include <strings.h>
#include <thread>
#include <unistd.h>

namespace tessiva::tool {
namespace {

constexpr std::string_view synopsis =
    "authenticate [--policy NAME] [--service PAM-SERVICE] [--user NAME]";
// The shell's status for a command ended by SIGINT.
constexpr int exitInterrupted = 130;

struct Policy {
    std::string_view name;
    ObString* const* value;
};
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
    for (std::size_t index = 0; index < arguments.size(); index += 2) {
        const std::string_view flag = arguments[index];
        if (index + 1 >= arguments.size())
            throw UsageError("missing value for '" + std::string(flag) + "'; usage: tessiva " +
                             std::string(synopsis));
        const std::string value(arguments[index + 1]);
        if (flag == "--service") {
            options.configuration.service = value;
        } else if (flag == "--user") {
            options.configuration.user = value;
        } else if (flag == "--policy") {
            const Policy* found = nullptr;
            for (const Policy& policy : policies)
                found = policy.name == value ? &policy : found;
            if (found == nullptr)
                throw UsageError("unknown policy '" + value + "'");
            options.policy = *found->value;
        } else {
            throw UsageError("unknown option '" + std::string(flag) + "'; usage: tessiva " +
                             std::string(synopsis));
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
    void event_params_reply(const ObRef<ObString>&, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        mailbox_.post({false, params, std::move(reply), nullptr});
    }
    const char* className() const noexcept override { return "PromptingDelegate"; }

private:
    Mailbox& mailbox_;
};

// SIGINT is blocked in every thread and taken by one that writes to a pipe,
// which the prompt waits on beside standard input.
class InterruptWatch {
public:
    InterruptWatch() {
        if (pipe(fds_) != 0)
            throw std::runtime_error("cannot make a pipe");
        sigemptyset(&set_);
        sigaddset(&set_, SIGINT);
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
        watcher_ = std::thread([this] {
            int signal = 0;
            sigwait(&set_, &signal);
            if (!stopping_)
                (void)!write(fds_[1], "!", 1);
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

std::string promptText(const ObRef<ObDictionary>& params, const std::string& user) {
    std::string text;
    if (ObRef<ObString> status =
            ob_cast<ObString>(params->objectForKey(VREventRidgeScanParamStatus)))
        text += std::string(status->text()) + "\n";
    ObRef<ObNumber> left =
        ob_cast<ObNumber>(params->objectForKey(VREventRidgeScanParamSimpleStatus));
    text += "Password for " + user;
    if (left)
        text += " (" + std::to_string(left->integerValue()) +
                (left->integerValue() == 1 ? " attempt left)" : " attempts left)");
    return text + ": ";
}

// PAM in this process, unless TESSIVA_SERVICE names another backend (bus:
// the deployed tessivad), which then answers as it would for any caller.
bool environmentNamesOtherBackend() {
    const char* named = std::getenv("TESSIVA_SERVICE");
    return named != nullptr && *named != '\0' && strcasecmp(named, "pam") != 0;
}

void stopEvaluation(const ObRef<VRCredentialReference>& reference) {
    reference->sendClientRequest_params_reply(
        VRClientRequestStopEvents,
        ObDictionary::make({{VRClientRequestParamEvent, VREventPasscode}}),
        [](ObRef<ObDictionary>, ObRef<ObError>) {});
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
    const InterruptWatch interrupts;
    Mailbox mailbox;

    const ObRef<VRCredentialReference> reference = VRCredentialReference::make();
    reference->setupWithCredentialHandle_uiDelegate_reply(
        nullptr, ObMake<PromptingDelegate>(mailbox), [&](ObRef<ObError> error) {
            mailbox.post({true, nullptr, nullptr, error});
        });
    Message setUp = mailbox.take();
    if (setUp.error) {
        std::cerr << "error: " << setUp.error->localizedDescription()->text() << "\n";
        return exitLibraryError;
    }
    reference->evaluatePolicy_hints_reply(options.policy, nullptr, [&](ObRef<ObError> error) {
        mailbox.post({true, nullptr, nullptr, error});
    });

    PasswordPrompt prompt(interrupts.fd());
    bool interrupted = false;
    for (;;) {
        Message message = mailbox.take();
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
        if (!isActive(message.params) || interrupted)
            continue;
        switch (prompt.ask(promptText(message.params, user))) {
        case PasswordPrompt::Outcome::line:
            message.reply(
                ObDictionary::make({{VREventConsentResponse, ObString::make(prompt.line())}}),
                nullptr);
            break;
        case PasswordPrompt::Outcome::interrupted:
            interrupted = true;
            stopEvaluation(reference);
            break;
        case PasswordPrompt::Outcome::endOfInput:
            stopEvaluation(reference);
            break;
        }
    }
}
} // namespace tessiva::tool
