// SPDX-License-Identifier: MIT
// The PAM service's judge: one PAM transaction per evaluation, one
// pam_authenticate per attempt, pam_acct_mgmt once the user is known.
#include "PamConversation.h"
#include "PamSupport.h"
#include "services/core/RidgeIdentity.h"
#include "services/core/ServiceErrors.h"
#include "services/fprint/FprintScanner.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObMake.h"

#include <string>

namespace tessiva::detail {
namespace {
class PamVerifier final : public Verifier {
public:
    PamVerifier(std::string service, std::string user, const Requester& requester)
        : service_(std::move(service)), user_(std::move(user)), requestingUser_(requester.user),
          tty_(requester.tty) {}

    ~PamVerifier() override {
        if (handle_ != nullptr)
            pam_end(handle_, lastStatus_);
    }

    Verification verify(Conversation& conversation) override {
        state_.conversation = &conversation;
        state_.refusedPrompt.clear();
        state_.sinceLastPrompt.clear();
        Verification verification = attempt();
        state_.conversation = nullptr;
        return verification;
    }

    const char* className() const noexcept override { return "PamVerifier"; }

private:
    Verification attempt() {
        if (handle_ == nullptr) {
            const pam_conv conversation{converseWithEvaluation, &state_};
            lastStatus_ = pam_start(service_.c_str(), user_.c_str(), &conversation, &handle_);
            if (lastStatus_ != PAM_SUCCESS) {
                handle_ = nullptr; // pam_start may leave it set on failure
                // Linux-PAM's messages need no handle.
                return failed(KVErrorServiceUnavailable,
                              ObFormat("PAM could not start the service '%s': %s.",
                                       service_.c_str(), pam_strerror(nullptr, lastStatus_)));
            }
            // Who asked, for the modules and the log lines they write.
            if (const int status = setItems(); status != PAM_SUCCESS)
                return failed(KVErrorServiceUnavailable,
                              ObFormat("PAM could not take the caller's details: %s.",
                                       pam_strerror(handle_, status)));
        }
        lastStatus_ = pam_authenticate(handle_, PAM_DISALLOW_NULL_AUTHTOK);
        // Modules report a failed conversation in their own ways.
        if (lastStatus_ != PAM_SUCCESS && !state_.refusedPrompt.empty())
            return failed(KVErrorServiceUnavailable,
                          ObFormat("PAM asked for visible input (\"%s\"), which Tessiva "
                                   "does not give.",
                                   state_.refusedPrompt.c_str()));
        switch (lastStatus_) {
        case PAM_SUCCESS:
            return checkAccount();
        case PAM_AUTH_ERR:
        case PAM_CRED_INSUFFICIENT:
            return {Verdict::rejected, nullptr};
        case PAM_CONV_ERR:
            // The evaluation stopped or spoiled the attempt; it knows how it ends.
            return {Verdict::rejected, nullptr};
        case PAM_USER_UNKNOWN:
            return failed(KVErrorAuthenticationFailed,
                          ObFormat("PAM does not know the user '%s'.", user_.c_str()));
        case PAM_MAXTRIES:
            return failed(KVErrorAuthenticationFailed,
                          ObFormat("PAM refused further attempts for the user '%s': %s.",
                                   user_.c_str(), strerror()));
        default:
            return failed(KVErrorServiceUnavailable,
                          ObFormat("PAM could not authenticate the user '%s' with the service "
                                   "'%s': %s.",
                                   user_.c_str(), service_.c_str(), strerror()));
        }
    }

    Verification checkAccount() {
        lastStatus_ = pam_acct_mgmt(handle_, PAM_DISALLOW_NULL_AUTHTOK);
        switch (lastStatus_) {
        case PAM_SUCCESS:
            return {Verdict::accepted, nullptr};
        case PAM_ACCT_EXPIRED:
        case PAM_NEW_AUTHTOK_REQD:
        case PAM_PERM_DENIED:
        case PAM_AUTH_ERR:
            return failed(KVErrorACLDenied,
                          ObFormat("PAM does not let the user '%s' in with the service '%s': "
                                   "%s.%s",
                                   user_.c_str(), service_.c_str(), strerror(),
                                   modulesSaid().c_str()));
        case PAM_USER_UNKNOWN:
            return failed(KVErrorAuthenticationFailed,
                          ObFormat("PAM does not know the user '%s'.", user_.c_str()));
        default:
            return failed(KVErrorServiceUnavailable,
                          ObFormat("PAM could not check the account of the user '%s': %s.",
                                   user_.c_str(), strerror()));
        }
    }

    int setItems() {
        int status = PAM_SUCCESS;
        if (!requestingUser_.empty())
            status = pam_set_item(handle_, PAM_RUSER, requestingUser_.c_str());
        if (status == PAM_SUCCESS && !tty_.empty())
            status = pam_set_item(handle_, PAM_TTY, tty_.c_str());
        return status;
    }

    const char* strerror() const { return pam_strerror(handle_, lastStatus_); }

    // What the modules said after the last prompt, to end a description.
    std::string modulesSaid() const {
        return state_.sinceLastPrompt.empty() ? std::string() : " " + state_.sinceLastPrompt;
    }

    static Verification failed(ObInteger code, const ObRef<ObString>& message) {
        return {Verdict::failed, kvError(code, message)};
    }

    const std::string service_;
    const std::string user_;
    const std::string requestingUser_;
    const std::string tty_;
    // Where the handle's conversation finds the attempt; its address is fixed.
    PamConversationState state_;
    pam_handle_t* handle_ = nullptr;
    int lastStatus_ = PAM_SUCCESS;
};

class PamVerifierSource final : public VerifierSource {
public:
    explicit PamVerifierSource(KVPAMConfiguration configuration)
        : configuration_(std::move(configuration)) {}

    // Every policy's password is PAM's; policy 1 never asks, as the system
    // service always has its reader (which may report that there is none).
    ObRef<Verifier> verifierForPolicy(ObInteger, const Requester& requester,
                                      ObRef<ObError>*) override {
        return ObMake<PamVerifier>(configuration_.service, configuration_.user, requester);
    }
    ObRef<RidgeScanner> ridgeScanner() override { return scanner_; }
    std::string identityKey() override { return machineIdentityKey(); }
    // The fingers of the user whose password PAM checks, so that the two
    // proofs are of one person.
    std::string userToScan() const override { return configuration_.user; }

    const char* className() const noexcept override { return "PamVerifierSource"; }

private:
    const KVPAMConfiguration configuration_;
    const ObRef<RidgeScanner> scanner_ = makeFprintScanner();
};
} // namespace

ObRef<ObError> pamSupportError() {
    return nullptr;
}

ObRef<VerifierSource> makePamVerifierSource(const KVPAMConfiguration& configuration) {
    return ObMake<PamVerifierSource>(configuration);
}
} // namespace tessiva::detail

bool KVPAMService::isSupported() noexcept {
    return true;
}
