// SPDX-License-Identifier: MIT
// KVSimulatedService: the authentication service built into Tessiva for
// devices without authentication hardware, and the default KVClient backend.
// It keeps the contract of KVClient.h; what is its own is the judge and the
// process's default instance:
//
// The passcode. An answer to the password prompt (or a password given to
// enterPassword) is right when it equals the service's passcode, as text. A
// passcode that is not all digits (0 to 9) is a passphrase: the prompt is
// then the passphrase event (4) and success gives UsedPassphrase. An
// evaluation uses the passcode that the service had when it started.
//
// The reader. By default the simulated device has no ridge-scan sensor:
// policy 1 fails with KVErrorBiometryNotAvailable ("This device has no
// ridge-scan sensor."), policies 1000 and 1002 go straight to the passcode
// and to consent. setReader gives it a reader with enrolled fingers and the
// scans it will report (KVSimulatedReader); every user of the service has
// the same fingers. Identities of its matches are keyed by a random key of
// the service's own, so they are stable for one finger for its lifetime.
//
// The ACL rule. ACL evaluation asks the rule given to setACLRule (by default
// none, which allows everything), on the caller's thread with no lock held.
#pragma once

#include "tessiva/kavelin/KVClient.h"
#include "tessiva/kavelin/KVServiceErrors.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One scan the simulated reader reports.
struct KVSimulatedScan {
    // The Status the ridge-scan event carries: 0 a match, 1 no match, 2 to 5
    // a retry (scan again, too short, not centred, remove and retry), which
    // does not end the attempt, 6 the reader was unplugged, 7 another error.
    ObInteger status = 0;
    // On a match, the finger that matched; empty: the first one enrolled.
    std::string finger;
};

// The simulated device's fingerprint reader.
struct KVSimulatedReader {
    // Whether there is a reader at all.
    bool present = false;
    // Claimed by another program: scanning fails with
    // KVErrorBiometryNotAvailable.
    bool busy = false;
    // The fingers enrolled; none fails scanning with
    // KVErrorBiometryNotEnrolled.
    std::vector<std::string> enrolledFingers;
    // The scans to report, in turn, across evaluations. With none left a
    // scan waits for a finger that never comes, until its evaluation ends.
    std::vector<KVSimulatedScan> scans;
};

class TESSIVA_PLATFORM_API KVSimulatedService : public KVClientBackend {
public:
    // The passcode a service accepts unless TESSIVA_PASSCODE or setPasscode
    // names another.
    static constexpr char defaultPasscode[] = "1234";
    // The passcode failures an evaluation allows unless option 1004 says.
    static constexpr ObInteger defaultMaxPasscodeFailures = 3;

    // A new service with no contexts. Its passcode is the value of the
    // environment variable TESSIVA_PASSCODE when set and not empty, otherwise
    // defaultPasscode; its ACL rule allows everything; its reader is the one
    // TESSIVA_READER describes (see readerFromText), else none.
    static ObRef<KVSimulatedService> make();

    // A reader from its text form, "<fingers>[:<scans>]": the enrolled
    // fingers separated by commas ("none" for a reader with none enrolled,
    // "busy" for one in use by another program), then the scans' statuses
    // separated by commas, a match optionally naming its finger ("0=left").
    // So "right-index:2,1,0" is a reader with one finger that reports a
    // retry, a no-match and a match. Absent for an empty or malformed text.
    static std::optional<KVSimulatedReader> readerFromText(std::string_view text);

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
    // Replaces the reader, with its script of scans; a scan in progress
    // goes on with the scans that are left of the new script. Not virtual,
    // so that the class's layout stays as it was; it does nothing on a
    // service that make() did not make.
    void setReader(KVSimulatedReader reader);

protected:
    // Out of line, so the library holds the vtable and type information.
    ~KVSimulatedService() override;
};
