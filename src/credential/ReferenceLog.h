// SPDX-License-Identifier: MIT
// Log lines of the credential reference's operations and of their replies.
#pragma once

#include "logging/CallLog.h"

#include <cstddef>
#include <string_view>

namespace tessiva::detail {

inline constexpr std::string_view replySuffix = " (reply)";

// An operation's log name, and the name its reply logs under: the same with
// " (reply)" appended. Both are worked out at compile time.
template <std::size_t N> struct OperationLogName {
    consteval explicit OperationLogName(const char (&name)[N]) {
        for (std::size_t i = 0; i < N - 1; ++i)
            entry[i] = reply[i] = name[i];
        for (std::size_t i = 0; i < replySuffix.size(); ++i)
            reply[N - 1 + i] = replySuffix[i];
    }

    char entry[N]{};
    char reply[N + replySuffix.size()]{};
};

template <std::size_t N, class... Arguments>
void logReferenceEntry(const OperationLogName<N>& operation, std::string_view format,
                       const Arguments&... arguments) {
    logCall(credentialReferenceTag, operation.entry, format, arguments...);
}

template <std::size_t N, class... Arguments>
void logReferenceReply(const OperationLogName<N>& operation, std::string_view format,
                       const Arguments&... arguments) {
    logCall(credentialReferenceTag, operation.reply, format, arguments...);
}

} // namespace tessiva::detail
