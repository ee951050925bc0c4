// SPDX-License-Identifier: MIT
// DelegateProxy: renames events and parameters on the way to the caller's
// delegate, and response keys on the way back.
#include "tessiva/DelegateProxy.h"

#include "platform/object/ExactKind.h"
#include "tessiva/VRConstants.h"
#include "tessiva/object/ObException.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/os/ObOnce.h"

#include <array>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace {

// Numbers below this are looked up by index, without a dictionary.
constexpr ObInteger smallNumberCount = 8;

// A table from numbers to VR names: the dictionary, for every key, and the
// same names by index for the small numbers (absent where it has none).
struct NumberedNameTable {
    const ObDictionary* map;
    std::array<ObString*, smallNumberCount> small;

    // What map->objectForKey(key) names, without a dictionary lookup for a
    // plain small number, whose equality is its value's.
    ObString* nameFor(const ObObject* key) const noexcept {
        if (key != nullptr && tessiva::detail::isExactly<ObNumber>(typeid(*key))) {
            const ObInteger number = static_cast<const ObNumber*>(key)->integerValue();
            if (number >= 0 && number < smallNumberCount)
                return small[static_cast<std::size_t>(number)];
        }
        return tessiva::detail::kindOf<ObString>(map->peekObjectForKey(key));
    }
    ObString* nameFor(ObInteger number) const noexcept {
        if (number >= 0 && number < smallNumberCount)
            return small[static_cast<std::size_t>(number)];
        return tessiva::detail::kindOf<ObString>(
            map->peekObjectForKey(ObNumber::make(number).get()));
    }
};

struct ProxyTables {
    NumberedNameTable eventMap;           // event number -> VR event name
    NumberedNameTable eventParamMap;      // parameter number -> VR parameter name
    const ObDictionary* eventResponseMap; // VR response key -> response number
};

using NumberedNames = std::vector<std::pair<ObInteger, ObString*>>;

NumberedNameTable numberToName(const NumberedNames& rows) {
    std::vector<ObDictionary::Entry> entries;
    NumberedNameTable table{nullptr, {}};
    for (const auto& [number, name] : rows) {
        entries.emplace_back(ObNumber::make(number), name);
        if (number >= 0 && number < smallNumberCount)
            table.small[static_cast<std::size_t>(number)] = name;
    }
    table.map = ObDictionary::make(std::move(entries)).leakRef();
    return table;
}

// Reads the constants now, so the tables hold the values they have when built.
ProxyTables buildTables() {
    const NumberedNames events = {
        {1, VREventRidgeScan},
        {2, VREventPasscode},
        {3, VREventConsent},
        {4, VREventPassphrase},
    };
    const NumberedNames parameters = {
        {0, VREventParamActive},
        {4, VRHintEventParamRemoteViewControllerName},
        {3, VRHintEventParamRemoteViewControllerBundleID},
        {2, VREventRidgeScanParamIdentity},
        {1, VREventRidgeScanParamStatus},
        {5, VREventRidgeScanParamSimpleStatus},
    };
    // "Passcode" is left out on purpose: an answer using it is refused.
    const ObDictionary* responses =
        ObDictionary::make({{VREventConsentResponse, ObNumber::make(0)}}).leakRef();
    return {numberToName(events), numberToName(parameters), responses};
}

// The three tables are built together, once, and kept for the life of the
// process; afterwards they are only read.
const ProxyTables& proxyTables() {
    static ObOnceToken onceToken;
    static ProxyTables tables{};
    ObDispatchOnce(onceToken, [] { tables = buildTables(); });
    return tables;
}

// The caller's answer in the service's numbers; always a dictionary, even
// for an absent answer.
ObRef<ObDictionary> translateAnswer(const ProxyTables& tables, const ObRef<ObDictionary>& answer) {
    ObRef<ObMutableDictionary> translated = ObMutableDictionary::make();
    if (answer) {
        for (const auto& [key, value] : *answer) {
            ObRef<ObObject> number = tables.eventResponseMap->objectForKey(key);
            if (!number)
                throw ObInvalidArgumentException(ObFormat("Unknown response key: %@", key));
            translated->setObject_forKey(value, number);
        }
    }
    return translated;
}

void ignoreAnswer(ObRef<ObDictionary>, ObRef<ObError>) {}

} // namespace

DelegateProxy::DelegateProxy(ObRef<VRUIDelegate> delegate) noexcept
    : _vruiDelegate(std::move(delegate)) {}

DelegateProxy::~DelegateProxy() = default;

ObRef<DelegateProxy> DelegateProxy::initWithVRUIDelegate(const ObRef<VRUIDelegate>& delegate) {
    return ObRef<DelegateProxy>::adopt(new DelegateProxy(delegate));
}

void DelegateProxy::event_params_reply(ObInteger event, const ObRef<ObDictionary>& params,
                                       KVUIReply reply) {
    const ProxyTables& tables = proxyTables();
    if (ObRef<ObString> vrEvent = tables.eventMap.nameFor(event)) {
        ObRef<ObMutableDictionary> vrParams;
        if (params) {
            vrParams = ObMutableDictionary::make();
            // A number outside the table yields an absent key, which the
            // dictionary refuses; that refusal is the intended failure.
            for (const auto& [key, value] : *params)
                vrParams->setObject_forKey(
                    value, ObRef<ObObject>(tables.eventParamMap.nameFor(key.get())));
        }
        // Shared so that every copy of the caller's reply answers through the
        // one service reply, however late and from whichever thread.
        auto serviceReply = std::make_shared<const KVUIReply>(std::move(reply));
        VRUIReply vrReply = [serviceReply, &tables](ObRef<ObDictionary> answer,
                                                    ObRef<ObError> error) {
            (*serviceReply)(translateAnswer(tables, answer), std::move(error));
        };
        if (_vruiDelegate)
            _vruiDelegate->event_params_reply(vrEvent, vrParams, std::move(vrReply));
        return;
    }

    if (!params || !_vruiDelegate)
        return;
    for (const auto& [key, value] : *params) {
        _vruiDelegate->event_params_reply(tables.eventMap.nameFor(key.get()),
                                          ObDictionary::make({{VREventParamAvailable, value}}),
                                          ignoreAnswer);
    }
}

const char* DelegateProxy::className() const noexcept {
    return "DelegateProxy";
}
