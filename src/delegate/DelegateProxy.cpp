// DelegateProxy: renames events and parameters on the way to the caller's
// delegate, and response keys on the way back.
#include "tessiva/DelegateProxy.h"

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

// Numbers below this have a key made once, with the tables.
constexpr ObInteger smallNumberCount = 8;
using SmallNumbers = std::array<ObNumber*, smallNumberCount>;

struct ProxyTables {
    const ObDictionary* eventMap;         // event number -> VR event name
    const ObDictionary* eventParamMap;    // parameter number -> VR parameter name
    const ObDictionary* eventResponseMap; // VR response key -> response number
    // The keys eventMap holds for the numbers it names, and equal keys for the
    // other small numbers, so that looking up an event makes no number.
    SmallNumbers eventNumbers;
};

using NumberedNames = std::vector<std::pair<ObInteger, ObString*>>;

const ObDictionary* numberToName(const NumberedNames& rows, const SmallNumbers* keys = nullptr) {
    std::vector<ObDictionary::Entry> entries;
    for (const auto& [number, name] : rows) {
        ObRef<ObObject> key;
        if (keys != nullptr && number >= 0 && number < smallNumberCount)
            key = (*keys)[static_cast<std::size_t>(number)];
        else
            key = ObNumber::make(number);
        entries.emplace_back(std::move(key), name);
    }
    return ObDictionary::make(std::move(entries)).leakRef();
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
    SmallNumbers eventNumbers{};
    for (ObInteger number = 0; number < smallNumberCount; ++number)
        eventNumbers[static_cast<std::size_t>(number)] = ObNumber::make(number).leakRef();
    return {numberToName(events, &eventNumbers), numberToName(parameters), responses, eventNumbers};
}

// The three tables are built together, once, and kept for the life of the
// process; afterwards they are only read.
const ProxyTables& proxyTables() {
    static ObOnceToken onceToken;
    static ProxyTables tables{};
    ObDispatchOnce(onceToken, [] { tables = buildTables(); });
    return tables;
}

ObRef<ObString> eventName(const ProxyTables& tables, const ObObject* eventNumber) {
    return ob_cast<ObString>(tables.eventMap->objectForKey(eventNumber));
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
    ObRef<ObNumber> madeNumber;
    const ObNumber* eventNumber = nullptr;
    if (event >= 0 && event < smallNumberCount) {
        eventNumber = tables.eventNumbers[static_cast<std::size_t>(event)];
    } else {
        madeNumber = ObNumber::make(event);
        eventNumber = madeNumber.get();
    }

    if (ObRef<ObString> vrEvent = eventName(tables, eventNumber)) {
        ObRef<ObMutableDictionary> vrParams;
        if (params) {
            vrParams = ObMutableDictionary::make();
            // A number outside the table yields an absent key, which the
            // dictionary refuses; that refusal is the intended failure.
            for (const auto& [key, value] : *params)
                vrParams->setObject_forKey(value, tables.eventParamMap->objectForKey(key));
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
        _vruiDelegate->event_params_reply(eventName(tables, key.get()),
                                          ObDictionary::make({{VREventParamAvailable, value}}),
                                          ignoreAnswer);
    }
}

const char* DelegateProxy::className() const noexcept {
    return "DelegateProxy";
}
