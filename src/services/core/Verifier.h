// SPDX-License-Identifier: MIT
// The one seam between the shared evaluation machinery and a service: the
// verifier that decides whether the user's answers prove who they are.
//
// An evaluation (Evaluation.h) owns everything a caller sees: the passcode
// event and its parameters, the answers from the delegate or enterPassword,
// the attempts left, the time-out, cancellation and the reply. For each
// attempt it calls Verifier::verify on its own service thread, handing it a
// Conversation through which the verifier asks for the passcode as often as
// it needs; the verifier only judges. The simulated service compares the
// answer with its passcode, the PAM service lets PAM's modules judge it.
#pragma once

#include "Requester.h"
#include "RidgeScanner.h"
#include "SecretText.h"
#include "tessiva/object/ObError.h"

#include <optional>
#include <string_view>

namespace tessiva::detail {
// The evaluation's side of one attempt; used only from inside verify.
class Conversation {
public:
    // Raises the passcode event (unless the caller already answered it) and
    // waits for the answer. Absent when the attempt cannot be answered: the
    // evaluation was stopped or ran out of time, or the answer was not a
    // passcode; the verifier should then give up the attempt promptly.
    virtual std::optional<SecretText> askPasscode() = 0;
    // A text for the user (a notice or an error of the service); it travels
    // with the next passcode event. Never pass a secret.
    virtual void tell(std::string_view text) = 0;

protected:
    ~Conversation() = default;
};

enum class Verdict {
    accepted, // the answers prove the user's identity
    rejected, // a wrong answer: one failure, and another attempt if any are left
    failed,   // the evaluation ends with the verification's error
};

struct Verification {
    Verdict verdict;
    ObRef<ObError> error; // set exactly when the verdict is failed
};

// One evaluation's judge. verify is called on the evaluation's thread, once
// per attempt, until an attempt is accepted or fails, or the attempts run out.
class Verifier : public ObObject {
public:
    virtual Verification verify(Conversation& conversation) = 0;
    // The secret it judges is a passphrase (the passphrase event asks for
    // it), not a passcode.
    virtual bool judgesPassphrase() const { return false; }
    // It judges at once, waiting for nothing but the conversation's
    // answers (no module that sleeps or asks another service).
    virtual bool judgesAtOnce() const { return false; }
};

// What a service adds to the shared machinery.
class VerifierSource : public ObObject {
public:
    // The verifier for one evaluation of a known policy (1 or 1000 to 1007)
    // asked for by the requester, or absent and the error that refuses the
    // policy on this service.
    virtual ObRef<Verifier> verifierForPolicy(ObInteger policy, const Requester& requester,
                                              ObRef<ObError>* error) = 0;
    // The service's fingerprint reader; absent when it has none.
    virtual ObRef<RidgeScanner> ridgeScanner() { return nullptr; }
    // The key of the ridge-scan identities (see RidgeIdentity.h).
    virtual std::string identityKey() { return {}; }
    // Whose fingers the reader verifies for the requester; empty: the
    // requester's user (a daemon's caller), else the process's own.
    virtual std::string userToScan() const { return {}; }
};
} // namespace tessiva::detail
