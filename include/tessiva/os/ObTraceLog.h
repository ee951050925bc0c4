// SPDX-License-Identifier: MIT
// The system trace log: messages with one integer argument and a payload
// that is collected by calling back into the writer.
#pragma once

#include "tessiva/object/ObRef.h"
#include "tessiva/os/ObAtomicRef.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// The string-keyed message a payload callback fills in.
class TESSIVA_PLATFORM_API ObTraceMessage {
public:
    // Sets a string entry; a key set twice keeps its place and the later value.
    void setString(const char* key, const char* value);
    const std::vector<std::pair<std::string, std::string>>& entries() const noexcept {
        return entries_;
    }

private:
    std::vector<std::pair<std::string, std::string>> entries_;
};

using ObTracePayload = std::function<void(ObTraceMessage&)>;

class TESSIVA_PLATFORM_API ObTraceSink : public ObObject {
public:
    // An ordinary-level message: a format with one "%d", its argument, and a
    // payload callback the sink may call when, and if, it collects a payload.
    virtual void write(const char* format, std::int32_t argument, ObTracePayload payload) = 0;

protected:
    // Out of line, so the library holds the vtable and type information.
    ~ObTraceSink() override;
};

// Writes a message to the installed sink. The default sink formats the
// message, collects the payload at once and writes both to the system log at
// Debug priority, as "message {key=value, key=value}".
TESSIVA_PLATFORM_API void ObTraceLogWrite(const char* format, std::int32_t argument,
                                          ObTracePayload payload);

// Installs a sink (absent restores the default); returns the one it replaces.
TESSIVA_PLATFORM_API ObRef<ObTraceSink> ObSetTraceSink(const ObRef<ObTraceSink>& sink);
using ObScopedTraceSink = ObScopedInstall<ObTraceSink, &ObSetTraceSink>;
