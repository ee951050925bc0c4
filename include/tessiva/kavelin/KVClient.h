// SPDX-License-Identifier: MIT
// KVClient: a client of the authentication service for one context, and the
// installable backend that makes clients.
//
// The contract. What every backend (a KVClientBackend and the KVClients it
// makes) guarantees, and what libTessiva relies on. Tessiva's own backends
// keep all of it: KVSimulatedService and KVPAMService share one
// implementation of it and differ only in how an answer is judged;
// KVBusService relays a service hosted by the daemon tessivad and keeps the
// same rules across processes. Codes are KVErrorDomain codes: those of
// KVServiceErrors.h, KVErrorInvalidParameter, and KVErrorServiceUnavailable
// below. "At once" means on the calling thread, before the call returns.
//
// Replies. Every operation that takes a reply calls it exactly once: with a
// result and no error, or with an error and no result (a KVSuccessReply:
// true and no error, or false and an error). The one exception is a policy
// evaluation still waiting for the user when the process ends: it is
// abandoned without its reply. Set-up, ACL evaluation, enterPassword and
// failProcessedEvent reply at once. A policy evaluation never replies on the
// thread that called it, not even when it is refused before it starts: its
// reply comes from a thread of the backend's own, and so do the delegate's
// events. Every operation is safe from any thread, and a backend calls
// replies, delegates and the ACL rule with no lock of its own held. A backend
// may be released at any time: an evaluation owns what it uses.
//
// Contexts. Set-up without a handle makes a new context; its externalized
// context (the credential handle, 16 random bytes in Tessiva's services) is
// the same for every client of it. Set-up with a handle reaches the same
// context (the same handle, the same running evaluation, the same
// invalidation), or fails at once with KVErrorInvalidContext, "No context
// matches the handle.", when no context has it (never had, or invalidated).
// Each client carries its own delegate (may be absent); an evaluation talks
// to the delegate of the client that started it. creatorDisplayName names
// the process that made the context.
//
// Policy evaluation. What satisfies each policy:
//   1     a ridge scan alone. No reader, or one that cannot serve the user,
//         fails it once it has started, before any scan (see Ridge scans);
//         so does taking the fallback (KVErrorUserFallback, "The user chose
//         the fallback instead of the ridge scan."), and using up option
//         1003 fails it with KVErrorAuthenticationFailed, "Authentication
//         failed: too many ridge scans that did not match (N)."
//   1000  a ridge scan when the reader has a finger enrolled for the user,
//         then the password once option 1003 is used up or the delegate
//         takes the fallback; otherwise the password. With option 1012 the
//         password comes first, and the ridge scan only once option 1004 is
//         used up
//   1001  the user's consent (event 3)
//   1002  consent, after a ridge scan as policy 1000 has it
//   1003 to 1007  the password
// The password is the passcode (event 2, result 3 UsedPasscode) unless
// option 1012 is true or the backend says its secret is a passphrase (the
// simulated service: a passcode not all digits); then it is the passphrase
// (event 4, result 5 UsedPassphrase), asked, answered, counted and closed
// exactly as the passcode below ("passphrase" for "passcode" in messages).
// Before it starts, an evaluation is refused,
// in this order of checks, with:
//   KVErrorInvalidContext         the context was invalidated
//   KVErrorInvalidParameter       an unknown policy ("Unknown policy: N")
//   the backend's own error       the backend cannot evaluate the policy
//   KVErrorInvalidParameter       a malformed option (see Options)
//   KVErrorNotInteractive         option 1000 is true
//   KVErrorEvaluationInProgress   the context already runs an evaluation
//                                 (one evaluation per context at a time)
// Otherwise it asks for the passcode through event 2, the passcode event,
// raised through the delegate with these parameters:
//   0 (Active)        true while the passcode is wanted
//   5 (SimpleStatus)  the number of attempts left, as an integer
//   1                 the service's texts for the user since the last event,
//                     one line each, only when there are any (PAM's notices)
//   3, 4              the view's bundle identifier and name (Tessiva's
//                     services: "org.tessiva.simulator" and
//                     "SimulatedPasscodeView"), only when option 1007 asks
//                     for the remote view
// The passcode comes from the delegate's answer (response 0) or from
// enterPassword_reply on any client of the context. Each raised event takes
// one answer: a later answer to it, or an answer to an older event, is
// ignored. The delegate may answer inside the event call, later, or from any
// thread:
//   response 0 is an ObString      a passcode attempt
//   response 0 is anything else    the user declined: KVErrorUserCancel
//   an error                       the evaluation fails with that error object
//   neither                        the event is acknowledged; the evaluation
//                                  keeps waiting (for enterPassword, say)
// A wrong passcode is one failure (so is a password given to enterPassword
// that is not an ObString) and raises the event again with one attempt
// fewer; at the maximum (option 1004) the evaluation fails with
// KVErrorAuthenticationFailed. A delegate that throws from the event call
// fails the evaluation with KVErrorInvalidParameter, "The user-interface
// delegate raised an exception: <what()>". Events of one evaluation come one
// at a time: the next is raised after the delegate's call for the previous
// one has returned. Once it has raised an event, an evaluation raises event 2
// a last time with {0: false} (the passcode view may close; an answer to it
// is ignored), and calls its reply only after that call has returned. With no
// delegate, or with the event filtered out (option 1007), nothing is raised
// and only enterPassword can answer.
// Success replies, by what decided it: {1: false, 3: true, 4: false,
// 5: false} for a passcode; 5 true instead of 3 for a passphrase; 4 true
// (UsedYesNo) for consent; {1: true, 2: identity, 3: false, 4: false,
// 5: false} for a ridge scan.
//
// Ridge scans. An evaluation that may scan first asks the backend's reader
// about the user (in process the process's user, through the daemon the
// calling process's user, never another). A machine with a reader then gets
// an availability report: event 0, needing no answer, with {1: a ridge scan
// can be used by this evaluation, 2: the password can} (both booleans); a
// machine without one reports nothing. The report comes at the start, and
// again whenever that availability changes while the evaluation waits for
// an answer (a reader plugged in or out; fprintd tells of a removed reader
// once nobody holds it); during a scan, a reader unplugged ends the scan
// instead. Each status of the
// reader raises event 1 (ridge scan), which needs no answer, with
//   1 (Status)        0 match, 1 no match, 2 scan again, 3 swipe too short,
//                     4 finger not centred, 5 remove and retry, 6 the reader
//                     was unplugged, 7 another error
//   5 (SimpleStatus)  0 scanning (2 to 5: the attempt goes on), 1 matched,
//                     2 not matched, 3 failed (6, 7)
//   2 (Identity)      on a match: 32 bytes (ObData), the same for one
//                     enrolled finger of one user under one key and telling
//                     nothing else: HMAC-SHA-256 of user and finger under the
//                     service's key (the simulated service's own random one;
//                     else the machine's, made owner-only in the daemon's
//                     $STATE_DIRECTORY or the user's $XDG_STATE_HOME/tessiva)
// Each no-match counts against option 1003. With option 1 set, an answer to
// a ridge-scan event whose response 0 is a true number takes the fallback:
// the scan stops at once. Failing event 1 (failProcessedEvent), the time-out
// and invalidation stop the scan at once, with their codes. A reader that
// cannot serve the user fails the evaluation (policies 1000 and 1002 pass
// it over instead) with KVErrorBiometryNotEnrolled when no finger is
// enrolled, else KVErrorBiometryNotAvailable: no reader, in use by another
// program, unplugged during the scan, access refused, or failed; the
// message says which. Ridge scans do not count against the daemon's
// guessing limits.
//
// Consent. Event 3 with {0: true}; the answer's response 0 decides: a true
// number is yes (UsedYesNo), any other value no (KVErrorUserCancel, "The
// user declined to give consent."); an error fails the evaluation with it,
// neither keeps waiting. Once raised, event 3 is closed with {0: false} as
// the password's events are. enterPassword does not answer it.
//
// Options, by number; a malformed value fails with KVErrorInvalidParameter:
//   1000  a number; true fails with KVErrorNotInteractive, and raises nothing
//   1001  a positive number of seconds within which the user must answer,
//         counted from the start (longer than 366 days counts as 366 days);
//         then KVErrorTimedOut, "The user did not authenticate in time.".
//         Without it the evaluation waits until it is answered or stopped
//   1     anything: the fallback's title; offers the fallback during scans
//   1003  a positive number: the ridge scans that may fail to match
//         (default 3)
//   1004  a positive number: the passcode failures allowed (default 3)
//   1007  a dictionary naming the events the caller wants raised: the
//         passcode event is raised only when it holds the key 2 (processing
//         form) or "EventPasscode" (filter form). The processing entry for 2
//         may be a dictionary holding parameter 0; when that is true the
//         event carries 3 and 4. Events 1, 3 and 4 are chosen alike (1 or
//         "EventRidgescan", 3 or "EventConsent", 4 or "EventPassphrase").
//         Without option 1007 every event is raised; the availability
//         report always is
//   1012  a number: true asks the passphrase rather than the passcode, and
//         under policy 1000 asks it before the ridge scan
//   1009 and every other option are accepted and ignored.
//
// Client requests. failProcessedEvent_failureError_reply with the event the
// running evaluation is processing (1 while it scans, 2 or 4 while it asks
// the password, 3 while it asks consent; any of them before it has begun)
// makes it fail with the given error object, exactly as given
// (KVErrorAppCancel when it is absent or not an ObError), and replies
// success; with another event, or when the evaluation already has its
// outcome or is failing, it replies KVErrorNoEventProcessed.
// enterPassword_reply hands the password to the running evaluation's
// current passcode or passphrase event (raised or not) and replies success;
// it replies KVErrorNoEventProcessed when no evaluation is running, when it
// already has its outcome or is failing, when it is scanning or asking
// consent, or when the current event already has its answer.
//
// ACL evaluation asks the service's ACL rule and replies an empty dictionary,
// or KVErrorACLDenied; its options are not read.
//
// Invalidation ends the context, with no reply: its handle no longer
// restores it, a running evaluation fails with KVErrorAppCancel (after its
// closing event, if it raised one), and every later operation on any of its
// clients fails with KVErrorInvalidContext (externalizedContext and
// creatorDisplayName still answer). Invalidating again does nothing.
// Releasing a client ends neither its context nor its running evaluation
// (the daemon ends a context some time after its last client has gone: see
// KVBusService.h).
//
// No service. KVErrorServiceUnavailable means that there is no service to
// ask: no backend, a daemon out of reach, PAM unable to authenticate at all.
#pragma once

#include "tessiva/kavelin/KVUIDelegate.h"
#include "tessiva/object/ObData.h"
#include "tessiva/object/ObString.h"
#include "tessiva/os/ObAtomicRef.h"

#include <functional>

class KVClient;

// Each reply is called exactly once; which thread calls it is said above.
using KVClientReply = std::function<void(ObRef<KVClient>, ObRef<ObError>)>;
using KVResultReply = std::function<void(ObRef<ObDictionary>, ObRef<ObError>)>;
using KVSuccessReply = std::function<void(bool, ObRef<ObError>)>;

// The service reports "no service is available" with this KVErrorDomain code.
inline constexpr ObInteger KVErrorServiceUnavailable = -1000;

class TESSIVA_PLATFORM_API KVClient : public ObObject {
public:
    // Asks the installed backend for a client on an externalized context
    // (absent for a new context) with a user-interface delegate (may be
    // absent). With no backend installed, the backend that the environment
    // variable TESSIVA_SERVICE names (read once) answers: unset, empty or
    // "simulated" is the simulated service (KVSimulatedService::
    // defaultService()), "system" (or "pam") a KVPAMService configured from
    // the environment (KVPAMService::configurationFromEnvironment()), "bus" the daemon
    // (KVBusService::make()). "none", or any other name, is no default: with
    // no backend installed, the request then replies at once, on the calling
    // thread, with an absent client and a KVErrorDomain error of code
    // KVErrorServiceUnavailable, "No authentication service is available.".
    static void clientWithExternalizedContext_uiDelegate_reply(
        const ObRef<ObData>& context, const ObRef<KVUIDelegate>& uiDelegate, KVClientReply reply);

    // The context in externalized form: the credential handle. Answers at
    // once, also after invalidation.
    virtual ObRef<ObData> externalizedContext() = 0;
    // Ends the context in the service (see Invalidation above); returns once
    // it is ended.
    virtual void invalidate() = 0;
    // Names the process that made the context; may be absent.
    virtual ObRef<ObString> creatorDisplayName() = 0;

    // See Policy evaluation and Options above; replies from a thread of the
    // backend's own, never the caller's.
    virtual void evaluatePolicy_options_reply(ObInteger policy, const ObRef<ObDictionary>& options,
                                              KVResultReply reply) = 0;
    // See ACL evaluation above; replies at once.
    virtual void evaluateACL_operation_options_reply(const ObRef<ObObject>& acl,
                                                     const ObRef<ObObject>& operation,
                                                     const ObRef<ObDictionary>& options,
                                                     KVResultReply reply) = 0;
    // See Client requests above; each replies at once.
    virtual void enterPassword_reply(const ObRef<ObObject>& password, KVSuccessReply reply) = 0;
    virtual void failProcessedEvent_failureError_reply(ObInteger event,
                                                       const ObRef<ObObject>& failureError,
                                                       KVSuccessReply reply) = 0;

protected:
    // Out of line, so the library holds the vtable and type information.
    ~KVClient() override;
};

// What makes clients: the service itself, a simulation, or a test's fake.
class TESSIVA_PLATFORM_API KVClientBackend : public ObObject {
public:
    // A client on the context of the handle, or on a new context when it is
    // absent, with the delegate (may be absent); replies at once. See
    // Contexts above.
    virtual void
    clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                   const ObRef<KVUIDelegate>& uiDelegate,
                                                   KVClientReply reply) = 0;

protected:
    // Out of line, so the library holds the vtable and type information.
    ~KVClientBackend() override;
};

// Installs a backend (absent removes it, which brings back the default);
// returns the one it replaces, absent when the default was in use.
// Thread-safe; a request already passed to a backend keeps it alive.
TESSIVA_PLATFORM_API ObRef<KVClientBackend>
KVSetClientBackend(const ObRef<KVClientBackend>& backend);
using KVScopedClientBackend = ObScopedInstall<KVClientBackend, &KVSetClientBackend>;
