// Helpers shared by every suite: capturing sinks for the system and trace logs.
#pragma once

#include "tessiva/brindle/KVLogger.h"
#include "tessiva/object/Ob.h"
#include "tessiva/os/ObLog.h"
#include "tessiva/os/ObTraceLog.h"

#include <mutex>
#include <string>
#include <vector>

namespace tessiva::test {

// Records every line written to the system log while installed.
class CapturingLogSink final : public ObLogSink {
public:
    void writeLine(ObLogPriority priority, std::string_view line) override;
    std::vector<std::string> lines() const;
    std::vector<ObLogPriority> priorities() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    std::vector<ObLogPriority> priorities_;
};

// Installs a fresh capturing log sink for the life of the object.
class LogCapture {
public:
    LogCapture();
    std::vector<std::string> lines() const { return sink_->lines(); }

private:
    ObRef<CapturingLogSink> sink_;
    ObScopedLogSink installed_;
};

// Switches KVLogger's logging for one scope and restores it at the end.
class ScopedLogging {
public:
    explicit ScopedLogging(bool enabled) : previous_(logger()->isLoggingEnabled()) {
        logger()->setLoggingEnabled(enabled);
    }
    ~ScopedLogging() { logger()->setLoggingEnabled(previous_); }
    ScopedLogging(const ScopedLogging&) = delete;
    ScopedLogging& operator=(const ScopedLogging&) = delete;

private:
    static ObRef<KVLogger> logger() { return KVLogger::sharedInstance(); }
    bool previous_;
};

// Records trace messages and keeps their payload callbacks for the test to run.
class CapturingTraceSink final : public ObTraceSink {
public:
    struct Message {
        std::string format;
        std::int32_t argument;
        ObTracePayload payload;
    };
    void write(const char* format, std::int32_t argument, ObTracePayload payload) override;
    std::vector<Message> messages() const;

private:
    mutable std::mutex mutex_;
    std::vector<Message> messages_;
};

} // namespace tessiva::test
