#include "logging/CallLog.h"

#include "tessiva/brindle/KVLogger.h"
#include "tessiva/os/ObLog.h"

namespace tessiva::detail {

void writeCallLog(const char* tag, const char* name, std::string_view argumentText) {
    if (!KVLogger::sharedInstance()->isLoggingEnabled())
        return;
    const ObRef<ObString> line = ObFormat("%s %@", name, argumentText);
    const ObRef<ObString> message = ObFormat("%@", line);
    ObLog("%s: %@", tag, message);
}

} // namespace tessiva::detail
