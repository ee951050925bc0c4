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
} // namespace

class KVLoggerInstance {
public:
    static KVLogger& get() {
        // Immortal and set up once; later reads of the switch are relaxed loads.
        static KVLogger* logger = [] {
            static constinit KVLogger instance{ObObject::immortal};
            instance.setLoggingEnabled(environmentEnablesLogging());
            return &instance;
        }();
        return *logger;
    }
};

ObRef<KVLogger> KVLogger::sharedInstance() {
    return ObRef<KVLogger>(&KVLoggerInstance::get());
}

const char* KVLogger::className() const noexcept {
    return "KVLogger";
}
