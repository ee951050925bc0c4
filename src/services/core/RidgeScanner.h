// SPDX-License-Identifier: MIT
// The seam between an evaluation and a fingerprint reader: the simulated
// service's scripted reader and the fprintd client both stand behind it.
//
// Everything here is called on the evaluation's own service thread and may
// block (but for a watch's `changed`, which its own thread calls); only
// ScanStop::request is called from elsewhere (cancellation,
// invalidation, the time-out), and a scan in progress must notice it
// promptly, stop the reader's verification and let the device go before it
// returns.
#pragma once

#include "services/core/ScanStop.h"

#include <functional>
#include <memory>
#include <string>
#include <tessiva/object/ObObject.h>
#include <vector>

namespace tessiva::detail {
// What a reader reports of one scan. The numbers are the Status of the
// ridge-scan event, so they never change.
enum class ScanStatus : int {
    match = 0,
    noMatch = 1,
    retryScan = 2,
    swipeTooShort = 3,
    fingerNotCentered = 4,
    removeAndRetry = 5,
    disconnected = 6,
    unknownError = 7,
};

struct ScanReport {
    ScanStatus status = ScanStatus::unknownError;
    // The attempt is over: a match, a no-match or an error.
    bool done = false;
    // On a match, the finger that matched, as the reader names it.
    std::string finger;
};

// Why a reader cannot serve a user, or none.
enum class ReaderProblem {
    none,
    noReader,    // no reader on the machine, or no fprintd to ask
    notEnrolled, // a reader, but no finger enrolled for the user
    busy,        // the reader is claimed by someone else
    unplugged,   // the reader went away during the scan
    refused,     // the reader's service refused us (permissions)
    failed,      // anything else the reader's service reported
};

struct ReaderState {
    ReaderProblem problem = ReaderProblem::noReader;
    // The user's enrolled fingers, when there is no problem.
    std::vector<std::string> fingers;
    // Why, in words for the log and the error's description; never a secret.
    std::string message;
};

struct ScanOutcome {
    // none when the attempt ended with `last`; otherwise why it could not.
    ReaderProblem problem = ReaderProblem::none;
    ScanReport last;
    std::string message;
    // The scan ended because stop was requested.
    bool stopped = false;
};

// Watches for readers coming and going until destroyed.
class ReaderWatch {
public:
    virtual ~ReaderWatch() = default;
};

class RidgeScanner : public ObObject {
public:
    // Calls `changed`, on a thread of the watch's own and never after the
    // watch is gone, whenever the readers may have changed; what changed is
    // for state() to say. None when this reader cannot be watched.
    virtual std::unique_ptr<ReaderWatch> watch(std::function<void()> changed) {
        (void)changed;
        return nullptr;
    }
    // Whether the user (a user name) can scan now, and which fingers.
    virtual ReaderState state(const std::string& user) = 0;
    // One attempt for the user: claims the reader, verifies any enrolled
    // finger, reports every status (done or not) through onStatus in order,
    // and releases the reader before returning.
    virtual ScanOutcome scan(const std::string& user,
                             const std::function<void(const ScanReport&)>& onStatus,
                             ScanStop& stop) = 0;
};
} // namespace tessiva::detail
