// SPDX-License-Identifier: MIT
// ObError: an error with a domain, a code and a user-info dictionary.
#pragma once

#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObString.h"

// The user-info key of an error's human-readable text.
extern TESSIVA_PLATFORM_API ObString* const ObLocalizedDescriptionKey;

class TESSIVA_PLATFORM_API ObError : public ObObject {
public:
    static ObRef<ObError> make(const ObRef<ObString>& domain, ObInteger code,
                               const ObRef<ObDictionary>& userInfo);

    const ObRef<ObString>& domain() const noexcept { return domain_; }
    ObInteger code() const noexcept { return code_; }
    // The very dictionary the error was made with; may be absent.
    const ObRef<ObDictionary>& userInfo() const noexcept { return userInfo_; }
    // The string under ObLocalizedDescriptionKey, or, when there is none,
    // "The operation could not be completed. (<domain> error <code>.)".
    ObRef<ObString> localizedDescription() const;

    // Error Domain=<domain> Code=<code> "<localized description>"
    ObRef<ObString> description() const override;
    const char* className() const noexcept override;

private:
    ObError(ObRef<ObString> domain, ObInteger code, ObRef<ObDictionary> userInfo) noexcept
        : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

    ObRef<ObString> domain_;
    ObInteger code_;
    ObRef<ObDictionary> userInfo_;
};
