// SPDX-License-Identifier: MIT
// The simulated service: the shared machinery, its passcode and its ACL rule.
#include "SimulatedService.h"

#include "platform/kavelin/BackendRegistry.h"
#include "services/core/EvaluationOptions.h"
#include "tessiva/object/ObMake.h"

#include <cstdlib>

namespace tessiva::detail {
static_assert(KVSimulatedService::defaultMaxPasscodeFailures == defaultMaxPasscodeFailures);

namespace {
const BackendRegistration registration{
    "simulated", [] { return ObRef<KVClientBackend>(KVSimulatedService::defaultService()); }};
} // namespace

SimulatedService::SimulatedService()
    : passcodes_(ObMake<PasscodeVerifierSource>()),
      core_(ObMake<ServiceCore>(passcodes_, "SimulatedClient")) {
    if (std::optional<KVSimulatedReader> reader = KVSimulatedService::readerFromText(
            std::getenv("TESSIVA_READER") ? std::getenv("TESSIVA_READER") : ""))
        replaceReader(std::move(*reader));
}

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

void SimulatedService::replaceReader(KVSimulatedReader reader) {
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

void KVSimulatedService::setReader(KVSimulatedReader reader) {
    if (auto* service = dynamic_cast<tessiva::detail::SimulatedService*>(this))
        service->replaceReader(std::move(reader));
}

std::optional<KVSimulatedReader> KVSimulatedService::readerFromText(std::string_view text) {
    if (text.empty())
        return std::nullopt;
    auto split = [](std::string_view list, char separator) {
        std::vector<std::string> items;
        while (!list.empty()) {
            const std::size_t end = std::min(list.find(separator), list.size());
            items.emplace_back(list.substr(0, end));
            list.remove_prefix(std::min(end + 1, list.size()));
        }
        return items;
    };
    KVSimulatedReader reader;
    reader.present = true;
    const std::size_t colon = text.find(':');
    const std::string_view fingers = text.substr(0, colon);
    if (fingers == "busy")
        reader.busy = true;
    else if (fingers != "none")
        reader.enrolledFingers = split(fingers, ',');
    if (colon != std::string_view::npos) {
        for (const std::string& scan : split(text.substr(colon + 1), ',')) {
            const std::size_t equals = scan.find('=');
            char* end = nullptr;
            const long status = std::strtol(scan.c_str(), &end, 10);
            if (end == scan.c_str() || (*end != '\0' && *end != '='))
                return std::nullopt;
            reader.scans.push_back(
                {ObInteger(status), equals == std::string::npos ? "" : scan.substr(equals + 1)});
        }
    }
    return reader;
}

KVSimulatedService::~KVSimulatedService() = default;
