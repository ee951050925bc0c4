// SPDX-License-Identifier: MIT
// Values and checks shared by the translation suites.
#pragma once

#include "platform/PlatformTestSupport.h"
#include "tessiva/brindle/KVErrorHelper.h"

#include <string>

namespace tessiva::test {

// What a translation gave back, as one text: the result's text form, or
// "error: <message>" for a service parameter error with no result. Anything
// else (both, neither, another kind of error) reads as "inconsistent".
inline std::string outcome(const ObRef<ObDictionary>& result, const ObRef<ObError>& error) {
    if (result && !error)
        return std::string(result->description()->text());
    if (!result && error && error->domain()->isEqual(KVErrorDomain) &&
        error->code() == KVErrorInvalidParameter)
        return "error: " + std::string(error->localizedDescription()->text());
    return "inconsistent";
}

} // namespace tessiva::test
