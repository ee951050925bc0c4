// SPDX-License-Identifier: MIT
// VRCredentialReference: a caller's handle on an authentication context held
// by the service, reached through a KVClient once set up.
//
// Every operation writes an entry line to the system log under the tag
// "VRCredReference" (when KVLogger has logging on), named after the
// operation, e.g. "-[VRCredentialReference invalidate]". A reply the
// operation hands to the service logs under the same name followed by
// " (reply)", so the two lines of one call read as a pair.
//
// The synchronous forms run their asynchronous twin and wait, without
// time-out, until its reply has run. By design they wait for ever when that
// reply never comes: a service that never answers, a user-interface delegate
// that never answers an event, a reference with no client. Callers that need
// a bound use the asynchronous forms and stop a pending evaluation themselves
// (invalidate, or the "StopEvents" client request). Should the service reply
// more than once, every reply is forwarded, and a synchronous form returns
// once the first has run, with that first reply's result and error whatever
// the later ones bring and whichever threads they come from.
#pragma once

#include "tessiva/TessivaExport.h"
#include "tessiva/VRReplies.h"
#include "tessiva/VRUIDelegate.h"
#include "tessiva/kavelin/KVClient.h"
#include "tessiva/os/ObAtomicRef.h"

class TESSIVA_API VRCredentialReference : public ObObject {
public:
    // A new reference that holds nothing until it is set up.
    static ObRef<VRCredentialReference> make();

    // The externalized context of the client of the last completed set-up
    // (absent before any, or after one that failed). Safe against a set-up
    // finishing on another thread.
    ObRef<ObData> credentialHandle() const;
    // The client's name for the context's creator; absent with no client.
    ObRef<ObString> creatorDisplayName() const;

    // --- Set-up -------------------------------------------------------------
    // Asks the service for a client on `handle` (absent for a new context)
    // whose user-interface events go to `uiDelegate` (may be absent), and
    // returns at once. When the service answers, the reference keeps the
    // client and its handle, also when there is none, and `reply` receives the
    // service's error in the VR vocabulary (absent on success), on the thread
    // the service answers on. The reference stays alive until then.
    //
    // `domain` is accepted for older callers and only logged.
    void setupWithCredentialHandle_domain_uiDelegate_reply(const ObRef<ObData>& handle,
                                                           const ObRef<ObObject>& domain,
                                                           const ObRef<VRUIDelegate>& uiDelegate,
                                                           VRErrorReply reply);
    // The same with defaults: absent handle, domain and delegate.
    void setupNewReferenceWithReply(VRErrorReply reply);
    void setupWithCredentialHandle_reply(const ObRef<ObData>& handle, VRErrorReply reply);
    void setupWithCredentialHandle_domain_reply(const ObRef<ObData>& handle,
                                                const ObRef<ObObject>& domain, VRErrorReply reply);
    void setupWithCredentialHandle_uiDelegate_reply(const ObRef<ObData>& handle,
                                                    const ObRef<VRUIDelegate>& uiDelegate,
                                                    VRErrorReply reply);

    // Synchronous set-up: blocks, without time-out, until the service has
    // answered; true on success. A given `error` is always written (absent on
    // success). Never call these on the thread the service answers on.
    bool setupNewReferenceWithError(ObRef<ObError>* error);
    bool setupWithCredentialHandle_error(const ObRef<ObData>& handle, ObRef<ObError>* error);

    // --- Evaluation ---------------------------------------------------------
    // Each translates its VR arguments before anything is sent; a hint or
    // policy that cannot be translated raises a KVException here, on the
    // caller's thread, and the reply is never called. With no client (before
    // set-up, or after one that failed) nothing is sent and the reply is
    // never called, so the synchronous forms then wait for ever.

    // Asks the service to evaluate `policy` with the options translated from
    // `hints` (may be absent), plus option 1009: whether this process has a
    // class named "ScandraIdentity", looked up once per process. The service's
    // result replaces the kept result, even when absent, before `reply`
    // receives the service's error in the VR vocabulary. The reference stays
    // alive until then.
    void evaluatePolicy_hints_reply(const ObRef<ObString>& policy, const ObRef<ObDictionary>& hints,
                                    VRErrorReply reply);
    // Synchronous: true on success; a given `error` is written unless the
    // translation raised.
    bool evaluatePolicy_hints_error(const ObRef<ObString>& policy, const ObRef<ObDictionary>& hints,
                                    ObRef<ObError>* error);

    // Asks the service to evaluate `acl` for `operation`, both passed on
    // untouched, with the options translated from `hints`. The service's
    // result is dropped; `reply` receives only its error, in the VR
    // vocabulary. The pending reply does not keep the reference alive.
    void evaluateACL_operation_hints_reply(const ObRef<ObObject>& acl,
                                           const ObRef<ObObject>& operation,
                                           const ObRef<ObDictionary>& hints, VRErrorReply reply);
    bool evaluateACL_operation_hints_error(const ObRef<ObObject>& acl,
                                           const ObRef<ObObject>& operation,
                                           const ObRef<ObDictionary>& hints, ObRef<ObError>* error);

    // --- Results by tag -----------------------------------------------------
    // The entry for a VR result tag in the kept result of the last policy
    // evaluation. `reply` runs before this returns: with the value, or with
    // the VR error -10 "Result not available.". An unknown tag raises a
    // KVException and the reply is never called. Needs no client.
    void resultForTag_reply(const ObRef<ObString>& tag, VRResultReply reply);
    // The same value, or absent; a missing value is also reported to the
    // system trace log.
    ObRef<ObObject> resultForTag(const ObRef<ObString>& tag);

    // --- Client requests ----------------------------------------------------
    // Pushes a request into a running evaluation: "EnterPassword" passes the
    // "Password" parameter on; "StopEvents" fails the event named by "Event"
    // (an unknown or missing one raises a KVException before anything is
    // sent) with the "Error" parameter. `params` may be absent. `reply`
    // receives a new empty dictionary on success, or absent and the error in
    // the VR vocabulary. Any other request, absent included, is answered at
    // once with the VR error -1005. With no client a known request sends
    // nothing and the reply is never called.
    // With logging on (KVLogger), the entry line written to the system log
    // (syslog(3), or standard error with TESSIVA_LOG_STDERR) holds `params`
    // in their text form, an "EnterPassword" password included, unless
    // KVLogger::setRedactingSecrets (or TESSIVA_LOG_REDACT) has the password
    // shown as "<redacted>".
    void sendClientRequest_params_reply(const ObRef<ObString>& request,
                                        const ObRef<ObDictionary>& params, VRDictionaryReply reply);

    // --- Lifecycle ----------------------------------------------------------
    // Tells the client, if any, to end its context. The reference keeps its
    // client and handle and can be set up again. Destroying a reference does
    // not invalidate: callers that want the context ended call this first.
    void invalidate();

    const char* className() const noexcept override;

protected:
    VRCredentialReference() noexcept;
    ~VRCredentialReference() override;

private:
    // Each may be absent. Every read and write of a field is indivisible, as
    // replies write them on the service's threads. Destroyed in reverse order.
    ObAtomicRef<KVClient> _client;
    ObAtomicRef<KVUIDelegate> _delegateProxy;
    ObAtomicRef<ObDictionary> _lastEvaluatePolicyResult;
    ObAtomicRef<ObData> _credentialHandle;
};

// The older name of the same kind of reference; it behaves identically.
class TESSIVA_API VRCredReference : public VRCredentialReference {
public:
    static ObRef<VRCredReference> make();

    const char* className() const noexcept override;

protected:
    VRCredReference() noexcept = default;
    ~VRCredReference() override;
};
