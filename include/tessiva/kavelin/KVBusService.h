// SPDX-License-Identifier: MIT
// KVBusService: a KVClient backend that reaches the authentication daemon,
// tessivad, over D-Bus, so that contexts are shared between processes.
//
// The daemon hosts a service (PAM on the system bus, where the simulated one is
// refused; the simulated one by default elsewhere) and relays to it,
// keeping the contract of KVClient.h across processes: contexts, handles,
// options, events and codes are the hosted service's own. A context belongs
// to the user who made it; the daemon treats a handle made by another user as
// unknown (KVErrorInvalidContext). User-interface events reach the delegate
// of the client that started the evaluation, in this process, on a thread of
// the backend's own; the delegate may answer from any thread. An evaluation's
// reply comes on that thread too, after the events raised before it. That
// thread also reads the connection, so a delegate that blocks holds up the
// events and evaluation replies after it; a call that waits for its reply
// reads the connection itself meanwhile, and is never held up. Replies
// other than an evaluation's run on the caller's thread before the call
// returns, and invalidate returns once the daemon has ended the context.
// The daemon ends a context 300 seconds (its --idle-seconds) after its last
// client was released, and stops the running evaluations of a process that
// leaves the bus (KVErrorAppCancel).
//
// The connection is made on first use and again after it was lost. When the
// daemon cannot be reached, set-up replies at once with
// KVErrorServiceUnavailable ("The authentication daemon cannot be reached:
// <reason>"); a daemon that goes away fails the evaluations waiting on it
// with the same code. After the daemon restarted, the operations of clients
// made before fail with KVErrorInvalidContext. A request beyond the daemon's
// limits fails with KVErrorServiceUnavailable ("The authentication daemon
// refused the request: <reason>"). A value that cannot cross the bus (see
// docs/architecture.md, "Values on the bus") fails the operation with
// KVErrorInvalidParameter. A build without D-Bus support keeps this class,
// and every set-up replies KVErrorServiceUnavailable, "Tessiva was built
// without D-Bus support.".
#pragma once

#include "tessiva/kavelin/KVClient.h"

// The daemon owns the bus name org.tessiva.Authentication1 and serves the
// interface of that name at /org/tessiva/Authentication1.
class TESSIVA_PLATFORM_API KVBusService : public KVClientBackend {
public:
    // A backend on the bus at the address (as in DBUS_SESSION_BUS_ADDRESS);
    // absent means the session bus, or the system bus when the environment
    // variable TESSIVA_BUS is "system". Setting TESSIVA_SERVICE=bus makes
    // make() the process's default backend.
    static ObRef<KVBusService> make(const ObRef<ObString>& address = nullptr);

protected:
    // Out of line, so the library holds the vtable and type information.
    ~KVBusService() override;
};
