// SPDX-License-Identifier: MIT
// Events of any number with parameters of any shape through the delegate
// proxy, and answers of any shape back through its reply.
#include "FuzzCheck.h"
#include "ObjectGraphDecoder.h"
#include "tessiva/DelegateProxy.h"

#include <string>
#include <string_view>
#include <vector>

using namespace tessiva::fuzz;

namespace {

// The proxy renames keys and passes values on untouched, so values need only
// be of every kind, not big; each parameter and answer is bounded on its own.
constexpr std::size_t maxWeight = 32;

// The VR names of events 1 to 4 and of parameters 0 to 5.
const char* const eventNames[] = {"EventRidgescan", "EventPasscode", "EventConsent",
                                  "EventPassphrase"};
const char* const parameterNames[] = {"Active",
                                      "Status",
                                      "Identity",
                                      "EventParamRemoteViewControllerBundleID",
                                      "EventParamRemoteViewControllerName",
                                      "SimpleStatus"};

// The name at a key's number in `names`, or none for any other key.
template <std::size_t N>
const char* nameAt(const char* const (&names)[N], ObInteger first, const ObObject* key) {
    const ObNumber* number = dynamic_cast<const ObNumber*>(key);
    if (number == nullptr || number->integerValue() < first ||
        number->integerValue() >= first + static_cast<ObInteger>(N))
        return nullptr;
    return names[number->integerValue() - first];
}
const char* eventName(const ObObject* key) {
    return nameAt(eventNames, 1, key);
}
const char* parameterName(const ObObject* key) {
    return nameAt(parameterNames, 0, key);
}

class RecordingDelegate final : public VRUIDelegate {
public:
    struct Call {
        ObRef<ObString> event;
        ObRef<ObDictionary> params;
        VRUIReply reply;
    };
    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        calls.push_back({event, params, std::move(reply)});
    }
    std::vector<Call> calls;
};

// Keys are mostly numbers near the proxy's, so that both renaming and refusal
// are reached; values are anything present.
ObRef<ObDictionary> numberedDictionary(ObjectGraphDecoder& decoder) {
    if (decoder.bytes().ConsumeIntegralInRange(0, 7) == 0)
        return nullptr;
    ObRef<ObMutableDictionary> made = ObMutableDictionary::make();
    for (std::size_t i = decoder.count(8); i > 0 && !decoder.exhausted(); --i) {
        ObRef<ObObject> key =
            decoder.bytes().ConsumeBool()
                ? ObRef<ObObject>(ObNumber::make(decoder.bytes().ConsumeIntegralInRange(-1, 7)))
                : decoder.presentObject();
        made->setObject_forKey(decoder.presentObject(), key);
    }
    return made;
}

ObRef<ObDictionary> answer(ObjectGraphDecoder& decoder) {
    switch (decoder.bytes().ConsumeIntegralInRange(0, 3)) {
    case 0:
        return nullptr;
    case 1:
        return ObDictionary::make({{VREventConsentResponse, decoder.presentObject()}});
    case 2:
        return ObDictionary::make({{VRResponsePasscode, decoder.presentObject()}});
    default:
        return decoder.dictionary();
    }
}

// The first key of an answer that the proxy cannot name, if any.
ObRef<ObObject> unknownResponseKey(const ObRef<ObDictionary>& answer) {
    if (answer) {
        for (const auto& [key, value] : *answer) {
            if (!key->isEqual(VREventConsentResponse))
                return key;
        }
    }
    return nullptr;
}

// Each answer through a VR reply reaches the service as the same entries under
// response numbers, with the error unchanged, or is refused with the message
// naming its first unknown key, and then nothing reaches the service.
void answerThrough(const VRUIReply& reply, ObjectGraphDecoder& decoder,
                   const std::vector<std::pair<ObRef<ObDictionary>, ObRef<ObError>>>& forwarded,
                   bool forwards) {
    const ObRef<ObDictionary> given = answer(decoder);
    const ObRef<ObError> error = decoder.error();
    const std::size_t before = forwarded.size();
    if (!forwards) {
        // An availability report's reply ignores whatever it is given.
        reply(given, error);
        FUZZ_CHECK(forwarded.size() == before, "an availability report was answered");
        return;
    }
    const ObRef<ObObject> unknown = unknownResponseKey(given);
    try {
        reply(given, error);
        FUZZ_CHECK(unknown == nullptr, "an unknown response key was forwarded", printed(given));
    } catch (const ObInvalidArgumentException& exception) {
        // The reason, not what(): a key's text may hold a NUL.
        FUZZ_CHECK(unknown != nullptr && isFilledWith(exception.reason()->text(),
                                                      "Unknown response key: %@", unknown),
                   "answer refused", exception.reason()->text());
        FUZZ_CHECK(forwarded.size() == before, "a refused answer was forwarded");
        return;
    }
    FUZZ_CHECK(forwarded.size() == before + 1, "the answer was not forwarded once");
    const auto& [dictionary, forwardedError] = forwarded.back();
    FUZZ_CHECK(dictionary != nullptr && forwardedError == error, "forwarded answer",
               printed(dictionary));
    const ObRef<ObObject> response = given ? given->objectForKey(VREventConsentResponse) : nullptr;
    FUZZ_CHECK(dictionary->count() == (response ? 1u : 0u) &&
                   dictionary->objectForKey(ObNumber::make(0)) == response,
               "forwarded answer", printed(dictionary));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ObjectGraphDecoder decoder(data, size, maxWeight);
    const ObInteger event = decoder.bytes().ConsumeBool()
                                ? decoder.bytes().ConsumeIntegralInRange<ObInteger>(-1, 10)
                                : decoder.integer();
    const ObRef<ObDictionary> params = numberedDictionary(decoder);
    const ObRef<RecordingDelegate> delegate = ObMake<RecordingDelegate>();
    const ObRef<DelegateProxy> proxy = DelegateProxy::initWithVRUIDelegate(delegate);

    std::vector<std::pair<ObRef<ObDictionary>, ObRef<ObError>>> forwarded;
    const KVUIReply serviceReply = [&](ObRef<ObDictionary> dictionary, ObRef<ObError> error) {
        forwarded.emplace_back(std::move(dictionary), std::move(error));
    };
    const bool named = event >= 1 && event <= 4;
    bool refusedParameter = false;
    if (named && params) {
        for (const auto& [key, value] : *params)
            refusedParameter = refusedParameter || parameterName(key.get()) == nullptr;
    }
    try {
        proxy->event_params_reply(event, params, serviceReply);
        FUZZ_CHECK(!refusedParameter, "a parameter the proxy cannot name was passed on");
    } catch (const ObInvalidArgumentException& exception) {
        // The renamed dictionary refuses the absent name of the parameter.
        FUZZ_CHECK(refusedParameter &&
                       std::string_view(exception.what()) ==
                           "ObMutableDictionary: attempt to insert an object under an absent key",
                   "parameters refused", exception.what());
        FUZZ_CHECK(delegate->calls.empty(), "the delegate was called before the refusal");
        return 0;
    }

    if (named) {
        FUZZ_CHECK(delegate->calls.size() == 1,
                   "a named event reached the delegate other than once");
        const RecordingDelegate::Call& call = delegate->calls.front();
        FUZZ_CHECK(call.event->text() == eventName(ObNumber::make(event).get()), "event name",
                   printed(call.event));
        FUZZ_CHECK((call.params == nullptr) == (params == nullptr), "params presence");
        if (params) {
            FUZZ_CHECK(call.params->count() == params->count(), "renamed params",
                       printed(call.params));
            for (const auto& [key, value] : *params)
                FUZZ_CHECK(call.params->objectForKey(ObString::make(parameterName(key.get()))) ==
                               value,
                           "renamed param value", printed(call.params));
        }
    } else {
        // Availability reports: one call per entry, none answered.
        FUZZ_CHECK(delegate->calls.size() == (params ? params->count() : 0),
                   "availability reports");
        const ObRef<ObDictionary> reports = params ? params : ObDictionary::make();
        std::size_t i = 0;
        for (const auto& [key, value] : *reports) {
            const RecordingDelegate::Call& call = delegate->calls[i++];
            const char* name = eventName(key.get());
            FUZZ_CHECK(name != nullptr ? call.event != nullptr && call.event->text() == name
                                       : call.event == nullptr,
                       "availability event name", printed(call.event));
            FUZZ_CHECK(call.params->count() == 1 &&
                           call.params->objectForKey(VREventParamAvailable) == value,
                       "availability params", printed(call.params));
        }
    }

    // The caller may answer as often as it likes.
    for (const RecordingDelegate::Call& call : delegate->calls) {
        for (std::size_t answers = decoder.count(3); answers > 0; --answers)
            answerThrough(call.reply, decoder, forwarded, named);
    }
    return 0;
}
