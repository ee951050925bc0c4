// SPDX-License-Identifier: MIT
// The scripted reader: what a test sets is what an evaluation scans.
#include "ScriptedScanner.h"

#include <poll.h>

namespace tessiva::detail {
namespace {
constexpr char noSensor[] = "This device has no ridge-scan sensor.";
constexpr char busyReader[] = "The fingerprint reader is in use by another program.";
constexpr char notEnrolled[] = "No finger is enrolled for the user.";
constexpr char unplugged[] = "The fingerprint reader was unplugged during the scan.";

bool endsAttempt(ScanStatus status) {
    return status == ScanStatus::match || status == ScanStatus::noMatch ||
           status == ScanStatus::disconnected || status == ScanStatus::unknownError;
}

void awaitStop(ScanStop& stop) {
    pollfd descriptor{stop.fd(), POLLIN, 0};
    while (!stop.requested())
        // Without an eventfd, the interval ScanStop asks for.
        poll(stop.fd() >= 0 ? &descriptor : nullptr, stop.fd() >= 0 ? 1 : 0,
             stop.fd() >= 0 ? -1 : 10);
}
} // namespace

void ScriptedScanner::setReader(KVSimulatedReader reader) {
    std::lock_guard lock(mutex_);
    scans_.assign(reader.scans.begin(), reader.scans.end());
    reader_ = std::move(reader);
}

bool ScriptedScanner::present() {
    std::lock_guard lock(mutex_);
    return reader_.present;
}

ReaderState ScriptedScanner::state(const std::string&) {
    std::lock_guard lock(mutex_);
    if (!reader_.present)
        return {ReaderProblem::noReader, {}, noSensor};
    if (reader_.busy)
        return {ReaderProblem::busy, {}, busyReader};
    if (reader_.enrolledFingers.empty())
        return {ReaderProblem::notEnrolled, {}, notEnrolled};
    return {ReaderProblem::none, reader_.enrolledFingers, {}};
}

ScanOutcome ScriptedScanner::scan(const std::string& user,
                                  const std::function<void(const ScanReport&)>& onStatus,
                                  ScanStop& stop) {
    if (ReaderState reader = state(user); reader.problem != ReaderProblem::none)
        return {reader.problem, {}, reader.message, false};
    for (;;) {
        if (stop.requested())
            return {ReaderProblem::none, {}, {}, true};
        ScanReport report;
        {
            std::lock_guard lock(mutex_);
            if (scans_.empty())
                break;
            const KVSimulatedScan next = scans_.front();
            scans_.pop_front();
            report.status = next.status >= 0 && next.status <= 7 ? ScanStatus(next.status)
                                                                 : ScanStatus::unknownError;
            report.done = endsAttempt(report.status);
            if (report.status == ScanStatus::match)
                report.finger = next.finger.empty() && !reader_.enrolledFingers.empty()
                                    ? reader_.enrolledFingers.front()
                                    : next.finger;
        }
        onStatus(report);
        if (report.status == ScanStatus::disconnected)
            return {ReaderProblem::unplugged, report, unplugged, false};
        if (report.done)
            return {ReaderProblem::none, report, {}, false};
    }
    awaitStop(stop);
    return {ReaderProblem::none, {}, {}, true};
}
} // namespace tessiva::detail
