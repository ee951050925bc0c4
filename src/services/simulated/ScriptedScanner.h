// SPDX-License-Identifier: MIT
// The simulated service's reader: enrolled fingers and scans that a test or
// the demo scripts (KVSimulatedReader).
#pragma once

#include "services/core/RidgeScanner.h"
#include "tessiva/kavelin/KVSimulatedService.h"

#include <deque>
#include <mutex>

namespace tessiva::detail {
class ScriptedScanner final : public RidgeScanner {
public:
    void setReader(KVSimulatedReader reader);
    bool present();

    ReaderState state(const std::string& user) override;
    // Reports the scripted scans in turn up to one that ends the attempt;
    // with none left, waits for the stop.
    ScanOutcome scan(const std::string& user,
                     const std::function<void(const ScanReport&)>& onStatus,
                     ScanStop& stop) override;

    const char* className() const noexcept override { return "ScriptedScanner"; }

private:
    std::mutex mutex_;
    KVSimulatedReader reader_;
    std::deque<KVSimulatedScan> scans_;
};
} // namespace tessiva::detail
