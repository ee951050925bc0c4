// SPDX-License-Identifier: MIT
// tessivad on a private bus of its own as a backend of the conformance
// suite, started on first use with the options and environment given.
#pragma once

#include "PrivateBus.h"
#include "conformance/BackendConformance.h"
#include "tessiva/kavelin/KVBusService.h"

#include <mutex>

namespace tessiva::test {

class DaemonBackend : public Backend {
public:
    // The contract's tests guess wrong on purpose, many times over: the
    // user's guessing limits, which have suites of their own, stay out of
    // their way.
    DaemonBackend(std::vector<std::string> options, std::vector<std::string> environment)
        : options_(withoutGuessingLimits(std::move(options))),
          environment_(std::move(environment)) {}
    // Tests connect from several threads at once.
    ObRef<KVClientBackend> service() override {
        std::lock_guard lock(mutex_);
        if (!daemon_) {
            daemon_ = std::make_unique<DaemonProcess>(bus_.address(), options_, environment_);
            service_ = KVBusService::make(str(bus_.address()));
        }
        return service_;
    }
    bool keepsIdentity() const override { return false; }
    // The daemon ends cleanly, its services and their contexts with it
    // (under the sanitizers, a leak would fail its exit status).
    void finish() override {
        if (daemon_) {
            EXPECT_EQ(daemon_->stop(), 0) << "tessivad's exit status";
        }
    }
    const std::string& address() const { return bus_.address(); }

protected:
    // Adds to the daemon's environment; false once it has started.
    bool addEnvironment(std::string entry) {
        std::lock_guard lock(mutex_);
        if (daemon_)
            return false;
        environment_.push_back(std::move(entry));
        return true;
    }

private:
    static std::vector<std::string> withoutGuessingLimits(std::vector<std::string> options) {
        options.insert(options.end(), {"--deny", "100000000", "--fail-delay-ms", "0"});
        return options;
    }

    const std::vector<std::string> options_;
    std::vector<std::string> environment_;
    std::mutex mutex_;
    PrivateBus bus_;
    std::unique_ptr<DaemonProcess> daemon_;
    ObRef<KVClientBackend> service_;
};

} // namespace tessiva::test
