// SPDX-License-Identifier: MIT
// Errors and the user-info key of their human-readable text.
#include "tessiva/object/ObError.h"

#include "tessiva/object/ObFormat.h"

namespace {
OB_CONSTANT_STRING(localizedDescriptionKey, "ObLocalizedDescription");
}

ObString* const ObLocalizedDescriptionKey = &localizedDescriptionKey;

ObRef<ObError> ObError::make(const ObRef<ObString>& domain, ObInteger code,
                             const ObRef<ObDictionary>& userInfo) {
    return ObRef<ObError>::adopt(new ObError(domain, code, userInfo));
}

ObRef<ObString> ObError::localizedDescription() const {
    if (userInfo_) {
        if (auto text = ob_cast<ObString>(userInfo_->objectForKey(ObLocalizedDescriptionKey)))
            return text;
    }
    return ObFormat("The operation could not be completed. (%@ error %ld.)", domain_, code_);
}

ObRef<ObString> ObError::description() const {
    return ObFormat("Error Domain=%@ Code=%ld \"%@\"", domain_, code_, localizedDescription());
}

const char* ObError::className() const noexcept {
    return "ObError";
}
