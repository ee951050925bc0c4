// The process-wide logging switch.
#include "tessiva/brindle/KVLogger.h"

#include <cstdlib>
#include <string_view>

namespace {
bool environmentEnablesLogging() {
    const char* value = std::getenv("TESSIVA_LOGGING");
    if (value == nullptr)
        return false;
    const std::string_view text(value);
    return text == "1" || text == "true" || text == "yes" || text == "on";
}

// Immortal and set up once; later reads of the switch are relaxed loads.
KVLogger& sharedLogger() {
    static KVLogger* logger = [] {
        static constinit ObImmortal<KVLogger> instance{ObObject::immortal};
        instance.get().setLoggingEnabled(environmentEnablesLogging());
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
