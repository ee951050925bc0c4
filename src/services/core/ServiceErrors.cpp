// SPDX-License-Identifier: MIT
// The errors of Tessiva's services.
#include "ServiceErrors.h"

#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/kavelin/KVServiceErrors.h"

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(invalidatedMessage, "The context was invalidated.");
} // namespace

ObRef<ObError> invalidatedContextError() {
    return kvError(KVErrorInvalidContext, &invalidatedMessage);
}
} // namespace tessiva::detail
