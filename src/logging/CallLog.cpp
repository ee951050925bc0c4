// SPDX-License-Identifier: MIT
#include "logging/CallLog.h"

#include "tessiva/brindle/KVLogger.h"
#include "tessiva/os/ObLog.h"

namespace tessiva::detail {
struct ArgumentTextBuffer::ThreadBuffer {
    std::string text;
    bool taken = false;
};

namespace {
thread_local ArgumentTextBuffer::ThreadBuffer threadBuffer;
} // namespace

ArgumentTextBuffer::ArgumentTextBuffer() : owned_(&threadBuffer) {
    if (owned_->taken) {
        owned_ = nullptr;
        text_ = &nested_.emplace();
        text_->reserve(argumentTextCapacity);
        return;
    }
    owned_->taken = true;
    text_ = &owned_->text;
    text_->clear();
    if (text_->capacity() < argumentTextCapacity)
        text_->reserve(argumentTextCapacity);
}

ArgumentTextBuffer::~ArgumentTextBuffer() {
    if (owned_ == nullptr)
        return;
    // An unusually long text gives its room back rather than keep it.
    if (owned_->text.capacity() > 4 * argumentTextCapacity)
        std::string().swap(owned_->text);
    owned_->taken = false;
}

void writeCallLog(const char* tag, const char* name, std::string_view argumentText) {
    if (!KVLogger::sharedInstance()->isLoggingEnabled())
        return;
    const ObRef<ObString> line = ObFormat("%s %@", name, argumentText);
    const ObRef<ObString> message = ObFormat("%@", line);
    ObLog("%s: %@", tag, message);
}

} // namespace tessiva::detail
