// SPDX-License-Identifier: MIT
// The one way Tessiva's own code makes a KVErrorDomain error. Inline, over
// the public interface only, so that the daemon uses it as the library does.
#pragma once

#include "tessiva/brindle/KVErrorHelper.h"

#include <string_view>

namespace tessiva::detail {
// A KVErrorDomain error with the code and the message as its localized
// description (the only entry of its user info).
inline ObRef<ObError> kvError(ObInteger code, const ObRef<ObString>& message) {
    return ObError::make(KVErrorDomain, code,
                         ObDictionary::make({{ObLocalizedDescriptionKey, message}}));
}
inline ObRef<ObError> kvError(ObInteger code, std::string_view message) {
    return kvError(code, ObString::make(message));
}
} // namespace tessiva::detail
