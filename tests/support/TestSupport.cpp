#include "support/TestSupport.h"

namespace tessiva::test {

void CapturingLogSink::writeLine(ObLogPriority priority, std::string_view line) {
    std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
    priorities_.push_back(priority);
}

std::vector<std::string> CapturingLogSink::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

std::vector<ObLogPriority> CapturingLogSink::priorities() const {
    std::lock_guard lock(mutex_);
    return priorities_;
}

LogCapture::LogCapture() : sink_(ObMake<CapturingLogSink>()), installed_(sink_) {}

void CapturingTraceSink::write(const char* format, std::int32_t argument, ObTracePayload payload) {
    std::lock_guard lock(mutex_);
    messages_.push_back({format, argument, std::move(payload)});
}

std::vector<CapturingTraceSink::Message> CapturingTraceSink::messages() const {
    std::lock_guard lock(mutex_);
    return messages_;
}

} // namespace tessiva::test
