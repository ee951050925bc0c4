// The simulated service: contexts by random handle, and its configuration.
#include "SimulatedService.h"

#include "../kavelin/ServiceChoice.h"
#include "ServiceErrors.h"
#include "SimulatedClient.h"
#include "tessiva/object/ObMake.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>

namespace tessiva::detail {
namespace {
OB_CONSTANT_STRING(defaultPasscodeText, KVSimulatedService::defaultPasscode);
OB_CONSTANT_STRING(unknownHandleMessage, "No context matches the handle.");

ObRef<ObString> passcodeFromEnvironment() {
    const char* value = std::getenv("TESSIVA_PASSCODE");
    if (value == nullptr || *value == '\0')
        return &defaultPasscodeText;
    return ObString::make(value);
}

ObRef<ObData> randomHandle() {
    std::random_device device;
    std::array<unsigned char, 16> bytes;
    for (std::size_t offset = 0; offset < bytes.size(); offset += sizeof(unsigned int)) {
        const unsigned int word = device();
        std::memcpy(bytes.data() + offset, &word, sizeof word);
    }
    return ObData::make(bytes.data(), bytes.size());
}

// Immortal, as contexts may be made from static destructors.
ObRef<ObString> processName() {
    static ObString* const name = ObString::make(program_invocation_short_name).leakRef();
    return name;
}
} // namespace

SimulatedService::SimulatedService()
    : contexts_(ObMutableDictionary::make()), passcode_(passcodeFromEnvironment()) {}

void SimulatedService::clientWithExternalizedContext_uiDelegate_reply(
    const ObRef<ObData>& context, const ObRef<KVUIDelegate>& uiDelegate, KVClientReply reply) {
    ObRef<SimulatedContext> found;
    if (!context) {
        found = newContext();
    } else {
        std::lock_guard lock(mutex_);
        found = ob_cast<SimulatedContext>(contexts_->objectForKey(context));
    }
    if (!found) {
        reply(nullptr, serviceError(KVErrorInvalidContext, &unknownHandleMessage));
        return;
    }
    reply(ObMake<SimulatedClient>(ObRef<SimulatedService>(this), found, uiDelegate), nullptr);
}

ObRef<SimulatedContext> SimulatedService::newContext() {
    std::lock_guard lock(mutex_);
    ObRef<ObData> handle = randomHandle();
    // Sixteen random bytes do not repeat in practice; make sure all the same.
    while (contexts_->objectForKey(handle))
        handle = randomHandle();
    ObRef<SimulatedContext> context = ObMake<SimulatedContext>(handle, processName());
    contexts_->setObject_forKey(context, handle);
    return context;
}

void SimulatedService::setPasscode(const ObRef<ObString>& passcode) {
    std::lock_guard lock(mutex_);
    passcode_ = passcode ? passcode : ObRef<ObString>(&defaultPasscodeText);
}

ObRef<ObString> SimulatedService::passcode() {
    std::lock_guard lock(mutex_);
    return passcode_;
}

void SimulatedService::setACLRule(KVACLRule rule) {
    std::lock_guard lock(mutex_);
    aclRule_ = std::move(rule);
}

KVACLRule SimulatedService::aclRule() {
    std::lock_guard lock(mutex_);
    return aclRule_;
}

void SimulatedService::forget(const SimulatedContext& context) {
    std::lock_guard lock(mutex_);
    contexts_->removeObjectForKey(context.handle());
}

const char* SimulatedService::className() const noexcept {
    return "KVSimulatedService";
}
} // namespace tessiva::detail

namespace {
// Read once: a process runs with a service or without one for its whole life.
bool environmentDisablesService() {
    return tessiva::detail::configuredService() == tessiva::detail::ServiceChoice::None;
}
} // namespace

ObRef<KVSimulatedService> KVSimulatedService::make() {
    return ObMake<tessiva::detail::SimulatedService>();
}

ObRef<KVSimulatedService> KVSimulatedService::defaultService() {
    // Never destroyed, like the backend seam, so that static destructors
    // elsewhere may still ask for clients.
    static KVSimulatedService* const service =
        environmentDisablesService() ? nullptr : make().leakRef();
    return ObRef<KVSimulatedService>(service);
}

KVSimulatedService::~KVSimulatedService() = default;
