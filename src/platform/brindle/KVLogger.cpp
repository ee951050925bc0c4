// SPDX-License-Identifier: MIT
// The process-wide logging and redaction switches.
#include "tessiva/brindle/KVLogger.h"

#include "platform/os/EnvironmentFlag.h"

namespace {
// Immortal and set up once; later reads of the switch are relaxed loads.
KVLogger& sharedLogger() {
    static KVLogger* logger = [] {
        static constinit ObImmortal<KVLogger> instance{ObObject::immortal};
        instance.get().setLoggingEnabled(tessiva::detail::environmentFlag("TESSIVA_LOGGING"));
        instance.get().setRedactingSecrets(tessiva::detail::environmentFlag("TESSIVA_LOG_REDACT"));
        return &instance.get();
    }();
    return *logger;
}
} // namespace

ObRef<KVLogger> KVLogger::sharedInstance() {
    return ObRef<KVLogger>(&sharedLogger());
}

const char* KVLogger::className() const noexcept {
    return "KVLogger";
}
