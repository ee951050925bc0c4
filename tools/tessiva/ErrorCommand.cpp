// SPDX-License-Identifier: MIT
// tessiva error CODE [MESSAGE]: the VR error a service error becomes.
#include "Command.h"
#include "Escaped.h"
#include "tessiva/KVLegacyHelper.h"
#include "tessiva/brindle/KVErrorHelper.h"

#include <charconv>
#include <iostream>

namespace tessiva::tool {
namespace {

ObInteger codeFrom(std::string_view text) {
    ObInteger code = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), code);
    if (failure != std::errc() || end != text.data() + text.size())
        throw UsageError("CODE must be an integer of at most 64 bits, not '" + std::string(text) +
                         "'");
    return code;
}

} // namespace

int runError(Arguments arguments) {
    expectArgumentCount(arguments, 1, 2, "error CODE [MESSAGE]");
    const ObInteger code = codeFrom(arguments[0]);
    // Without a message the error has no user info, as a bare service error.
    ObRef<ObDictionary> userInfo;
    if (arguments.size() == 2)
        userInfo = ObDictionary::make({{ObLocalizedDescriptionKey, ObString::make(arguments[1])}});

    const ObRef<ObError> vrError =
        KVLegacyHelper::vrErrorFromKVError(ObError::make(KVErrorDomain, code, userInfo));
    std::cout << "domain:  " << vrError->domain()->text() << '\n'
              << "code:    " << vrError->code() << '\n'
              << "message: " << escaped(vrError->localizedDescription()->text()) << '\n';
    return exitSuccess;
}

} // namespace tessiva::tool
