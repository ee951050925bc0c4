// SPDX-License-Identifier: MIT
// ObLog: lines written to the system log, through a replaceable sink.
//
// The default sink writes with syslog(3). Setting the environment variable
// TESSIVA_LOG_STDERR to 1 before the first line routes lines to standard
// error instead. A test or host application can install its own sink.
#pragma once

#include "tessiva/object/ObFormat.h"
#include "tessiva/os/ObAtomicRef.h"

#include <string_view>

enum class ObLogPriority : int { Debug = 0, Info = 1, Notice = 2, Error = 3 };

class TESSIVA_PLATFORM_API ObLogSink : public ObObject {
public:
    // Called from any thread, possibly from several at once.
    virtual void writeLine(ObLogPriority priority, std::string_view line) = 0;

protected:
    // Out of line, so the library holds the vtable and type information.
    ~ObLogSink() override;
};

// Writes one line to the installed sink, or to the default one.
TESSIVA_PLATFORM_API void ObLogWrite(ObLogPriority priority, std::string_view line);

// Installs a sink (absent restores the default); returns the one it replaces.
// Thread-safe; a line being written keeps the sink it started with alive.
TESSIVA_PLATFORM_API ObRef<ObLogSink> ObSetLogSink(const ObRef<ObLogSink>& sink);
using ObScopedLogSink = ObScopedInstall<ObLogSink, &ObSetLogSink>;

// Formats a line (see ObFormat) and writes it at Notice priority.
template <class... Arguments> void ObLog(std::string_view format, const Arguments&... arguments) {
    const ObRef<ObString> line = ObFormat(format, arguments...);
    ObLogWrite(ObLogPriority::Notice, line->text());
}
