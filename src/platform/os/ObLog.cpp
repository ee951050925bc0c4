// SPDX-License-Identifier: MIT
// The system log: syslog(3) by default, standard error on request, or an
// installed sink.
#include "tessiva/os/ObLog.h"

#include "EnvironmentFlag.h"
#include "Seam.h"
#include "tessiva/object/ObMake.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <syslog.h>

namespace {
int syslogPriority(ObLogPriority priority) {
    switch (priority) {
    case ObLogPriority::Debug:
        return LOG_DEBUG;
    case ObLogPriority::Info:
        return LOG_INFO;
    case ObLogPriority::Notice:
        return LOG_NOTICE;
    case ObLogPriority::Error:
        return LOG_ERR;
    }
    return LOG_NOTICE;
}

class SystemLogSink final : public ObLogSink {
public:
    SystemLogSink() { toStandardError_ = tessiva::detail::environmentFlag("TESSIVA_LOG_STDERR"); }

    void writeLine(ObLogPriority priority, std::string_view line) override {
        if (toStandardError_) {
            // One write per line, so that lines from several threads never interleave.
            std::string text(line);
            text += '\n';
            std::fwrite(text.data(), 1, text.size(), stderr);
            return;
        }
        syslog(syslogPriority(priority), "%.*s", static_cast<int>(line.size()), line.data());
    }

private:
    bool toStandardError_ = false;
};

tessiva::detail::Seam<ObLogSink>& logSeam() {
    static auto* seam = new tessiva::detail::Seam<ObLogSink>(ObMake<SystemLogSink>());
    return *seam;
}
} // namespace

void ObLogWrite(ObLogPriority priority, std::string_view line) {
    // The default sink is always there; the test only tells the optimiser so.
    if (const ObRef<ObLogSink> sink = logSeam().current())
        sink->writeLine(priority, line);
}

ObRef<ObLogSink> ObSetLogSink(const ObRef<ObLogSink>& sink) {
    return logSeam().install(sink);
}

ObLogSink::~ObLogSink() = default;
