// SPDX-License-Identifier: MIT
// A service's contexts by random handle, and its ACL rule.
#include "ServiceCore.h"

#include "ServiceClient.h"
#include "ServiceErrors.h"
#include "platform/object/RandomBytes.h"
#include "tessiva/object/ObMake.h"

#include <array>
#include <cerrno>

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(unknownHandleMessage, "No context matches the handle.");

ObRef<ObData> randomHandle() {
    std::array<unsigned char, 16> bytes;
    fillRandomBytes(bytes.data(), bytes.size());
    return ObData::make(bytes.data(), bytes.size());
}

// Immortal, as contexts may be made from static destructors.
ObRef<ObString> processName() {
    static ObString* const name = ObString::make(program_invocation_short_name).leakRef();
    return name;
}
} // namespace

ServiceCore::ServiceCore(ObRef<VerifierSource> verifiers, const char* clientClassName)
    : verifiers_(std::move(verifiers)), clientClassName_(clientClassName),
      contexts_(ObMutableDictionary::make()) {}

void ServiceCore::clientWithExternalizedContext_uiDelegate_reply(
    const ObRef<ObData>& context, const ObRef<KVUIDelegate>& uiDelegate, KVClientReply reply) {
    ObRef<ServiceContext> found;
    if (!context) {
        found = newContext();
    } else {
        std::lock_guard lock(mutex_);
        found = ob_cast<ServiceContext>(contexts_->objectForKey(context));
    }
    if (!found) {
        reply(nullptr, kvError(KVErrorInvalidContext, &unknownHandleMessage));
        return;
    }
    reply(ObMake<ServiceClient>(ObRef<ServiceCore>(this), found, uiDelegate), nullptr);
}

ObRef<ServiceContext> ServiceCore::newContext() {
    std::lock_guard lock(mutex_);
    ObRef<ObData> handle = randomHandle();
    // Sixteen random bytes do not repeat in practice; make sure all the same.
    while (contexts_->objectForKey(handle))
        handle = randomHandle();
    ObRef<ServiceContext> context = ObMake<ServiceContext>(handle, processName());
    contexts_->setObject_forKey(context, handle);
    return context;
}

void ServiceCore::setACLRule(KVACLRule rule) {
    std::lock_guard lock(mutex_);
    aclRule_ = std::move(rule);
}

KVACLRule ServiceCore::aclRule() {
    std::lock_guard lock(mutex_);
    return aclRule_;
}

void ServiceCore::forget(const ServiceContext& context) {
    std::lock_guard lock(mutex_);
    contexts_->removeObjectForKey(context.handle());
}

const char* ServiceCore::className() const noexcept {
    return "ServiceCore";
}
} // namespace tessiva::detail
