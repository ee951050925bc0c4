// SPDX-License-Identifier: MIT
// KVLogger: the process-wide switches that decide whether Tessiva logs, and
// whether its log lines show secrets.
//
// With logging on, the library writes one line per operation and reply to
// the system log (syslog(3), or standard error when TESSIVA_LOG_STDERR is on),
// holding the operation's arguments in their text form: hint values, and
// client-request parameters, an "EnterPassword" request's password included.
// Anyone who can read that log reads them. Redaction, off by default so that
// the lines stay as the logging convention has them, replaces the values of
// secret parameters (the "Password" parameter of a client request) with
// "<redacted>".
#pragma once

#include "tessiva/object/ObImmortal.h"
#include "tessiva/object/ObRef.h"

#include <atomic>

class TESSIVA_PLATFORM_API KVLogger : public ObObject {
public:
    // The one logger of the process. On first use it reads the environment
    // variables TESSIVA_LOGGING and TESSIVA_LOG_REDACT: "1", "true", "yes" or
    // "on", in any case, switch logging and redaction on.
    static ObRef<KVLogger> sharedInstance();

    // Off unless switched on by the environment or by setLoggingEnabled.
    // Safe from any thread.
    bool isLoggingEnabled() const noexcept { return enabled_.load(std::memory_order_relaxed); }
    void setLoggingEnabled(bool enabled) noexcept {
        enabled_.store(enabled, std::memory_order_relaxed);
    }

    // Off unless switched on by the environment or by setRedactingSecrets.
    // Safe from any thread.
    bool isRedactingSecrets() const noexcept { return redacting_.load(std::memory_order_relaxed); }
    void setRedactingSecrets(bool redacting) noexcept {
        redacting_.store(redacting, std::memory_order_relaxed);
    }

    const char* className() const noexcept override;

private:
    friend class ObImmortal<KVLogger>;
    constexpr explicit KVLogger(ImmortalTag) noexcept : ObObject(immortal) {}

    std::atomic<bool> enabled_{false};
    std::atomic<bool> redacting_{false};
};
