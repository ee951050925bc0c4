// SPDX-License-Identifier: MIT
// KVPAMService: the system service, a KVClient backend that authenticates a
// real user, by default the one the process runs as: the password through
// PAM (the system's pluggable authentication modules), ridge scans through
// the machine's fingerprint reader. Select it for a whole process with the
// environment variable TESSIVA_SERVICE=system (or its older name, pam), or
// install it with KVSetClientBackend.
//
// Shape. The service keeps the contract of KVClient.h, with the same
// implementation as KVSimulatedService: contexts, handles and restore by
// handle, invalidation, options 1000/1001/1004/1007/1009, the passcode event
// 2 and its parameters, the client requests, one evaluation per context, the
// error codes and the result dictionary are as the contract says. Only the
// judge differs: where the simulated service compares the answer with its
// passcode, this one runs pam_authenticate on the evaluation's own thread
// (never the caller's) and PAM's modules judge the answers handed to them
// through PAM's conversation.
//
// The conversation. Every PAM_PROMPT_ECHO_OFF message (a password prompt)
// raises the passcode event with the attempts left, and its answer (the
// delegate's response 0, or enterPassword on any client of the context)
// becomes PAM's response. PAM_TEXT_INFO and PAM_ERROR_MSG texts are collected
// and travel with the next passcode event as parameter 1 (one line per text;
// a VR delegate sees it as the event's "Status"). PAM_PROMPT_ECHO_ON (a
// module asking for visible text, usually a user name, which Tessiva always
// gives PAM itself) is refused: the evaluation fails with
// KVErrorServiceUnavailable. A wrong password (PAM_AUTH_ERR) counts against
// option 1004 and asks again; the time-out, StopEvents, invalidation and a
// declining delegate end a pending prompt at once, the conversation returning
// PAM_CONV_ERR so that PAM unwinds, with the codes the contract gives.
// After a successful authentication pam_acct_mgmt runs. PAM's prompt is the
// passcode event unless option 1012 asks for the passphrase event: PAM does
// not say what kind of secret it wants. A PAM stack with a fingerprint module
// still works as any PAM service, its texts travelling as parameter 1.
//
// Ridge scans. Policies 1, 1000 and 1002 scan as KVClient.h says, through
// the machine's reader as fprintd offers it on the system bus, for the user
// the process runs as (through the daemon: the calling user). Without a
// reader they are refused with the reason: "no fingerprint reader: cannot
// reach the system bus: …" when there is no bus or no fprintd, "built
// without fprintd support" in a build without it.
//
// Codes particular to PAM (KVErrorDomain, with the VR code they become):
//   KVErrorAuthenticationFailed (-1, VR -1)   PAM does not know the user
//                                             (PAM_USER_UNKNOWN), or a module
//                                             gave up (PAM_MAXTRIES)
//   KVErrorACLDenied (-1002, VR -1000)        the password was right but the
//                                             account may not be used: expired,
//                                             locked, or its password must be
//                                             changed first (pam_acct_mgmt)
//   KVErrorServiceUnavailable (-1000, VR -6)  PAM could not authenticate at all:
//                                             no such PAM service, a module
//                                             error, visible input asked for,
//                                             or PAM support not built in
// Every message names PAM's own error text and the user; none ever holds a
// password. A password is copied only into the response that PAM takes over
// (and frees); Tessiva wipes its own copies as soon as they are handed on.
//
// ACL evaluation allows every operation. When Tessiva is built without PAM
// (TESSIVA_WITH_PAM off, or no libpam found), this API is still there, and
// asking the service for a client replies KVErrorServiceUnavailable with
// "PAM support is not built into Tessiva.".
#pragma once

#include "tessiva/kavelin/KVClient.h"
#include "tessiva/kavelin/KVServiceErrors.h"

#include <string>

struct KVPAMConfiguration {
    // The PAM service (the file in /etc/pam.d) that judges the passcode policies.
    std::string service = "tessiva";
    // The user to authenticate; empty is the user the process runs as.
    std::string user;
    // Ignored: policy 1 scans through the reader. Kept so that the
    // structure's layout stays as callers were built with.
    std::string biometricService;
};

class TESSIVA_PLATFORM_API KVPAMService : public KVClientBackend {
public:
    // A new service with no contexts.
    static ObRef<KVPAMService> make(KVPAMConfiguration configuration);
    // The default configuration with what the environment overrides:
    // TESSIVA_PAM_SERVICE names the service, TESSIVA_PAM_USER the user
    // (empty or unset variables leave the default).
    static KVPAMConfiguration configurationFromEnvironment();
    // Whether this build of Tessiva has PAM support.
    static bool isSupported() noexcept;

    // The configuration the service was made with, the user filled in.
    virtual KVPAMConfiguration configuration() = 0;

protected:
    // Out of line, so the library holds the vtable and type information.
    ~KVPAMService() override;
};
