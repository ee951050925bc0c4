// KVClient: a client of the authentication service for one context, and the
// installable backend that makes clients.
#pragma once

#include "tessiva/kavelin/KVUIDelegate.h"
#include "tessiva/object/ObData.h"
#include "tessiva/object/ObString.h"
#include "tessiva/os/ObAtomicRef.h"

#include <functional>

class KVClient;

// Each reply is called exactly once, from any thread.
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
    // defaultService()), "pam" a KVPAMService configured from the environment
    // (KVPAMService::configurationFromEnvironment()), "bus" the daemon
    // (KVBusService::make()). "none", or any other name, is no default: with
    // no backend installed, the request then replies at once, on the calling
    // thread, with an absent client and a KVErrorDomain error of code
    // KVErrorServiceUnavailable, "No authentication service is available.".
    static void clientWithExternalizedContext_uiDelegate_reply(
        const ObRef<ObData>& context, const ObRef<KVUIDelegate>& uiDelegate, KVClientReply reply);

    // The context in externalized form: the credential handle.
    virtual ObRef<ObData> externalizedContext() = 0;
    // Ends the context in the service.
    virtual void invalidate() = 0;
    // Names the context's creator; may be absent.
    virtual ObRef<ObString> creatorDisplayName() = 0;

    virtual void evaluatePolicy_options_reply(ObInteger policy, const ObRef<ObDictionary>& options,
                                              KVResultReply reply) = 0;
    virtual void evaluateACL_operation_options_reply(const ObRef<ObObject>& acl,
                                                     const ObRef<ObObject>& operation,
                                                     const ObRef<ObDictionary>& options,
                                                     KVResultReply reply) = 0;
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
