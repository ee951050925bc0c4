// The errors of Tessiva's services.
#include "ServiceErrors.h"

#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVServiceErrors.h"

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(invalidatedMessage, "The context was invalidated.");
} // namespace

ObRef<ObError> serviceError(ObInteger code, const ObRef<ObString>& message) {
    return ObError::make(KVErrorDomain, code,
                         ObDictionary::make({{ObLocalizedDescriptionKey, message}}));
}

ObRef<ObError> invalidatedContextError() {
    return serviceError(KVErrorInvalidContext, &invalidatedMessage);
}
} // namespace tessiva::detail
