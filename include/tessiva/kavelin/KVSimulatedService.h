// SPDX-License-Identifier: MIT
// KVSimulatedService: the authentication service built into Tessiva for
// devices without authentication hardware, and the default KVClient backend.
// It keeps the contract of KVClient.h; what is its own is the judge and the
// process's default instance:
//
// The passcode. An answer to the passcode event (or a password given to
// enterPassword) is right when it equals the service's passcode, as text.
// Policies 1000 to 1007 are satisfied by it; policy 1 fails with
// KVErrorBiometryNotAvailable ("This device has no ridge-scan sensor."), as
// the simulated device has no ridge-scan sensor. An evaluation uses the
// passcode that the service had when the evaluation started.
//
// The ACL rule. ACL evaluation asks the rule given to setACLRule (by default
// none, which allows everything), on the caller's thread with no lock held.
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

    // The passcode later evaluations accept; absent or empty restores
    // defaultPasscode (not TESSIVA_PASSCODE), since an empty passcode would
    // let an empty answer in. An evaluation already running keeps the
    // passcode it started with.
    virtual void setPasscode(const ObRef<ObString>& passcode) = 0;
    virtual ObRef<ObString> passcode() = 0;
    // The rule later ACL evaluations ask; an empty rule allows everything.
    virtual void setACLRule(KVACLRule rule) = 0;

protected:
    // Out of line, so the library holds the vtable and type information.
    ~KVSimulatedService() override;
};
