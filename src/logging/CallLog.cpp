#include "logging/CallLog.h"

#include "tessiva/brindle/KVLogger.h"
#include "tessiva/os/ObLog.h"

namespace tessiva::detail {
namespace {
struct ThreadBuffer {
    std::string text;
    bool taken = false;
};
thread_local ThreadBuffer threadBuffer;
} // namespace

ArgumentTextBuffer::ArgumentTextBuffer() {
    ThreadBuffer& buffer = threadBuffer;
    ownsThreadBuffer_ = !buffer.taken;
    if (ownsThreadBuffer_) {
        buffer.taken = true;
        buffer.text.clear();
        text_ = &buffer.text;
    } else {
        text_ = &nested_;
    }
    text_->reserve(argumentTextCapacity);
}

ArgumentTextBuffer::~ArgumentTextBuffer() {
    if (!ownsThreadBuffer_)
        return;
    ThreadBuffer& buffer = threadBuffer;
    // An unusually long text gives its room back rather than keep it.
    if (buffer.text.capacity() > 4 * argumentTextCapacity)
        std::string().swap(buffer.text);
    buffer.taken = false;
}

void writeCallLog(const char* tag, const char* name, std::string_view argumentText) {
    if (!KVLogger::sharedInstance()->isLoggingEnabled())
        return;
    const ObRef<ObString> line = ObFormat("%s %@", name, argumentText);
    const ObRef<ObString> message = ObFormat("%@", line);
    ObLog("%s: %@", tag, message);
}

} // namespace tessiva::detail
