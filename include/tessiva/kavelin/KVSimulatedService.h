// KVSimulatedService: the authentication service built into Tessiva for
// devices without authentication hardware, and the default KVClient backend.
// Everything below but the passcode itself is the machinery that every
// Tessiva service shares: KVPAMService behaves the same, with PAM as judge.
//
// Contexts. A new context gets a handle of 16 random bytes (its externalized
// context). Giving that handle back to clientWithExternalizedContext reaches
// the same context: the same handle, the same running evaluation, the same
// invalidation. Every client of a context may carry its own UI delegate; an
// evaluation talks to the delegate of the client that started it. The creator
// display name is the short name of the process that made the context.
//
// Policy evaluation. Policies 1000 to 1007 are all satisfied by the device
// passcode; policy 1 needs a ridge-scan sensor and fails with
// KVErrorBiometryNotAvailable. The evaluation runs on a thread of its own and
// replies there, never on the caller's thread. It raises the passcode event,
// event 2, through the client's KVUIDelegate with these parameters:
//   0 (Active)        true while the passcode is wanted
//   5 (SimpleStatus)  the number of attempts left, as an integer
//   3, 4              the view's bundle identifier and name, only when the
//                     event-processing option asks for the remote view
// and waits for a passcode, from the delegate's reply (response 0) or from
// enterPassword_reply on any client of the context. Each raised event takes
// one answer: a later reply to it, or to an older event, is ignored. The
// delegate may answer from inside the call, later, or from any thread:
//   response 0 is an ObString      a passcode attempt
//   response 0 is anything else    the user declined: KVErrorUserCancel
//   an error                       the evaluation fails with that error object
//   neither                        the event is acknowledged; the evaluation
//                                  keeps waiting (for enterPassword, say)
// A wrong passcode counts as a failure (so does a password given to
// enterPassword that is not an ObString) and raises the event again with one
// attempt fewer, until the maximum, when the evaluation fails with
// KVErrorAuthenticationFailed. A delegate that throws from the event call
// fails the evaluation with KVErrorInvalidParameter and the exception's text.
// Once it has raised an event, an evaluation raises event 2 a last time with
// {0: false} (the passcode view may close) before it replies; an answer to
// that is ignored.
// Success replies {1: false, 3: true, 4: false, 5: false}: a passcode, and no
// ridge scan, yes/no or passphrase, was used. With no delegate, or with the
// event filtered out, nothing is raised and only enterPassword can answer.
//
// Options, by number; a malformed value fails with KVErrorInvalidParameter:
//   1000  a number; true fails at once with KVErrorNotInteractive, no event
//   1001  a positive number of seconds (at most a year) within which the user
//         must authenticate, counted from the start; then KVErrorTimedOut.
//         Without it the evaluation waits until it is answered or stopped
//   1004  a positive number: the passcode failures allowed (default 3)
//   1007  a dictionary naming the events the caller wants raised: the
//         passcode event is raised only when it holds the key 2 (processing
//         form) or "EventPasscode" (filter form). The processing entry for 2
//         may hold parameter 0; when it is true the event carries 3 and 4
//   1009 and every other option are accepted and ignored.
//
// Client requests. failProcessedEvent_failureError_reply with event 2 makes
// the running evaluation fail with the given error object, exactly as given
// (KVErrorAppCancel when it is absent or not an ObError), and replies success.
// enterPassword_reply hands the password to the running evaluation's current
// passcode event and replies success. Either replies KVErrorNoEventProcessed
// when no evaluation is processing that event. One evaluation runs per context
// at a time; another fails with KVErrorEvaluationInProgress.
//
// ACL evaluation asks the service's ACL rule (by default, allow everything)
// and replies an empty dictionary, or KVErrorACLDenied; options are not read.
//
// Invalidation ends the context: its handle no longer restores it, a running
// evaluation fails with KVErrorAppCancel, and every later operation on any of
// its clients fails with KVErrorInvalidContext.
//
// Replies other than an evaluation's run on the caller's thread, before the
// call returns. Every operation is safe from any thread, the delegate is
// called with no lock held, and a service may be released at any time: an
// evaluation owns what it uses, and one still waiting when the process ends
// is abandoned without its reply.
#pragma once

#include "tessiva/kavelin/KVClient.h"
#include "tessiva/kavelin/KVServiceErrors.h"

class TESSIVA_PLATFORM_API KVSimulatedService : public KVClientBackend {
public:
    // The passcode a service accepts unless TESSIVA_PASSCODE or setPasscode
    // names another.
    static constexpr char defaultPasscode[] = "1234";
    // The passcode failures an evaluation allows unless option 1004 says.
    static constexpr ObInteger defaultMaxPasscodeFailures = 3;

    // A new service with no contexts. Its passcode is the value of the
    // environment variable TESSIVA_PASSCODE when set and not empty, otherwise
    // defaultPasscode; its ACL rule allows everything.
    static ObRef<KVSimulatedService> make();

    // The process's own service, which KVClient uses whenever no backend is
    // installed and the environment variable TESSIVA_SERVICE is unset, empty
    // or "simulated" (it is read once). Absent when TESSIVA_SERVICE names no
    // service ("none", or a name no backend has): the process then has none.
    // With "pam" or "bus" it exists but is not the default backend.
    static ObRef<KVSimulatedService> defaultService();

    // The passcode later evaluations accept; absent or empty restores the default.
    // An evaluation already running keeps the passcode it started with.
    virtual void setPasscode(const ObRef<ObString>& passcode) = 0;
    virtual ObRef<ObString> passcode() = 0;
    // The rule later ACL evaluations ask; an empty rule allows everything.
    virtual void setACLRule(KVACLRule rule) = 0;

protected:
    // Out of line, so the library holds the vtable and type information.
    ~KVSimulatedService() override;
};
