// SPDX-License-Identifier: MIT
// The trace log: by default each message and its payload become one debug
// line of the system log.
#include "tessiva/os/ObTraceLog.h"

#include "Seam.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObMake.h"
#include "tessiva/os/ObLog.h"

#include <string>

void ObTraceMessage::setString(const char* key, const char* value) {
    // A null key or value stands for the empty text; comparing a std::string
    // with a null pointer is undefined, so both become strings first.
    std::string keyText = key == nullptr ? std::string() : std::string(key);
    std::string valueText = value == nullptr ? std::string() : std::string(value);
    for (auto& entry : entries_) {
        if (entry.first == keyText) {
            entry.second = std::move(valueText);
            return;
        }
    }
    entries_.emplace_back(std::move(keyText), std::move(valueText));
}

namespace {
class SystemLogTraceSink final : public ObTraceSink {
public:
    void write(const char* format, std::int32_t argument, ObTracePayload payload) override {
        std::string line(ObFormat(format == nullptr ? "" : format, argument)->text());
        ObTraceMessage message;
        if (payload)
            payload(message);
        if (!message.entries().empty()) {
            line += " {";
            bool first = true;
            for (const auto& [key, value] : message.entries()) {
                line += first ? "" : ", ";
                first = false;
                line += key + "=" + value;
            }
            line += '}';
        }
        ObLogWrite(ObLogPriority::Debug, line);
    }
};

tessiva::detail::Seam<ObTraceSink>& traceSeam() {
    static auto* seam = new tessiva::detail::Seam<ObTraceSink>(ObMake<SystemLogTraceSink>());
    return *seam;
}
} // namespace

void ObTraceLogWrite(const char* format, std::int32_t argument, ObTracePayload payload) {
    // The default sink is always there; the test only tells the optimiser so.
    if (const ObRef<ObTraceSink> sink = traceSeam().current())
        sink->write(format, argument, std::move(payload));
}

ObRef<ObTraceSink> ObSetTraceSink(const ObRef<ObTraceSink>& sink) {
    return traceSeam().install(sink);
}

ObTraceSink::~ObTraceSink() = default;
