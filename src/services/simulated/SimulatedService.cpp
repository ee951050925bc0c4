// The simulated service: the shared machinery, its passcode and its ACL rule.
#include "SimulatedService.h"

#include "platform/kavelin/BackendRegistry.h"
#include "services/core/EvaluationOptions.h"
#include "tessiva/object/ObMake.h"

namespace tessiva::detail {
static_assert(KVSimulatedService::defaultMaxPasscodeFailures == defaultMaxPasscodeFailures);

namespace {
const BackendRegistration registration{
    "simulated", [] { return ObRef<KVClientBackend>(KVSimulatedService::defaultService()); }};
} // namespace

SimulatedService::SimulatedService()
    : passcodes_(ObMake<PasscodeVerifierSource>()),
      core_(ObMake<ServiceCore>(passcodes_, "SimulatedClient")) {}

void SimulatedService::clientWithExternalizedContext_uiDelegate_reply(
    const ObRef<ObData>& context, const ObRef<KVUIDelegate>& uiDelegate, KVClientReply reply) {
    core_->clientWithExternalizedContext_uiDelegate_reply(context, uiDelegate, std::move(reply));
}

void SimulatedService::setPasscode(const ObRef<ObString>& passcode) {
    passcodes_->setPasscode(passcode);
}

ObRef<ObString> SimulatedService::passcode() {
    return passcodes_->passcode();
}

void SimulatedService::setACLRule(KVACLRule rule) {
    core_->setACLRule(std::move(rule));
}

void SimulatedService::setReader(KVSimulatedReader reader) {
    passcodes_->scanner()->setReader(std::move(reader));
}

const char* SimulatedService::className() const noexcept {
    return "KVSimulatedService";
}
} // namespace tessiva::detail

ObRef<KVSimulatedService> KVSimulatedService::make() {
    return ObMake<tessiva::detail::SimulatedService>();
}

ObRef<KVSimulatedService> KVSimulatedService::defaultService() {
    // Never destroyed, like the backend seam, so that static destructors
    // elsewhere may still ask for clients.
    static KVSimulatedService* const service =
        tessiva::detail::environmentNamesNoService() ? nullptr : make().leakRef();
    return ObRef<KVSimulatedService>(service);
}

KVSimulatedService::~KVSimulatedService() = default;
