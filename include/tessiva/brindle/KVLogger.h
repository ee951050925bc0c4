// KVLogger: the process-wide switch that decides whether Tessiva logs.
#pragma once

#include "tessiva/object/ObImmortal.h"
#include "tessiva/object/ObRef.h"

#include <atomic>

class TESSIVA_PLATFORM_API KVLogger : public ObObject {
public:
    // The one logger of the process. On first use it reads the environment
    // variable TESSIVA_LOGGING: "1", "true", "yes" or "on" switch logging on.
    static ObRef<KVLogger> sharedInstance();

    // Off unless switched on by the environment or by setLoggingEnabled.
    // Safe from any thread.
    bool isLoggingEnabled() const noexcept { return enabled_.load(std::memory_order_relaxed); }
    void setLoggingEnabled(bool enabled) noexcept {
        enabled_.store(enabled, std::memory_order_relaxed);
    }

    const char* className() const noexcept override;

private:
    friend class ObImmortal<KVLogger>;
    constexpr explicit KVLogger(ImmortalTag) noexcept : ObObject(immortal) {}

    std::atomic<bool> enabled_{false};
};
