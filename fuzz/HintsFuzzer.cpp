// SPDX-License-Identifier: MIT
// Hints dictionaries of any shape, through the hints translation and the two
// structured-hint conversions it uses.
#include "FuzzCheck.h"
#include "ObjectGraphDecoder.h"
#include "tessiva/KVLegacyHelper.h"

#include <algorithm>
#include <array>
#include <string>
#include <typeinfo>
#include <vector>

using namespace tessiva::fuzz;

namespace {

// The translation looks two levels into a hints dictionary; bigger graphs
// only cost time to make and free.
constexpr std::size_t maxWeight = 64;
constexpr ObInteger eventProcessingOption = 1007;
constexpr std::array<ObInteger, 14> optionNumbers = {2, 1002, 1007, 1004, 1003, 1000, 1001,
                                                     1, 1005, 1006, 1008, 1012, 1013, 1014};

// What an object of the decoder's graphs is, told apart by the address of its
// type alone: a kind test per object ran dynamic_cast, whose type-name
// comparisons libFuzzer traces, and cost more than the translation under test.
// A class the decoder never makes stops the run, so the walk cannot quietly
// skip a container.
enum class Role { Leaf, Array, Dictionary, Error };

Role roleOf(const ObObject& object) {
    const std::type_info* const type = &typeid(object);
    if (type == &typeid(ObArray))
        return Role::Array;
    if (type == &typeid(ObDictionary) || type == &typeid(ObMutableDictionary) ||
        type == &typeid(CallerDictionary))
        return Role::Dictionary;
    if (type == &typeid(ObError))
        return Role::Error;
    FUZZ_CHECK(type == &typeid(ObString) || type == &typeid(ObConstantString) ||
                   type == &typeid(CallerString) || type == &typeid(ObNumber) ||
                   type == &typeid(ObData) || type == &typeid(CallerObject),
               "an object of a class the walk does not know", object.className());
    return Role::Leaf;
}

// The object as a string when it is one, by the same test.
const ObString* asString(const ObObject* object) {
    if (object == nullptr || roleOf(*object) != Role::Leaf)
        return nullptr;
    const std::type_info* const type = &typeid(*object);
    return type == &typeid(ObString) || type == &typeid(ObConstantString) ||
                   type == &typeid(CallerString)
               ? static_cast<const ObString*>(object)
               : nullptr;
}

// True when `message` is `prefix` followed by the text of one of the
// dictionary's string keys in single quotes, as the %@ of a string prints it.
bool namesStringKey(std::string_view message, std::string_view prefix,
                    const ObDictionary& dictionary) {
    if (!message.starts_with(prefix) || !message.ends_with('\'') ||
        message.size() < prefix.size() + 1)
        return false;
    const std::string_view name = message.substr(prefix.size(), message.size() - prefix.size() - 1);
    for (const auto& entry : dictionary) {
        if (const ObString* key = asString(entry.first.get());
            key != nullptr && key->text() == name)
            return true;
    }
    return false;
}

// Every text a translation error can carry, given where its name came from.
bool isKnownMessage(const std::string& message, const ObRef<ObObject>& hints) {
    static const std::string_view fixed[] = {
        "Hint dictionary keys must be of class ObString.",
        "VRHintEventProcessing value must be of type ObDictionary.",
        "VREventProcessing dictionary keys must be ObString",
        "VREventProcessing dictionary keys must be ObDictionary",
        "VRHintEventProcessingGetRemoteViewController value must be of type ObNumber.",
        "VRHintEventFilter value must be of type ObArray.",
        "VRHintEventFilter array must contain ObString items.",
    };
    if (std::find(std::begin(fixed), std::end(fixed), message) != std::end(fixed))
        return true;
    // An unknown name is one of the caller's own string keys: a hint at the
    // top, or an event inside a dictionary value (the processing hint's).
    const ObDictionary* dictionary = ob_cast_raw<ObDictionary>(hints);
    if (dictionary == nullptr)
        return false;
    if (namesStringKey(message, "Unknown hint: '", *dictionary))
        return true;
    for (const auto& [key, value] : *dictionary) {
        if (value != nullptr && roleOf(*value) == Role::Dictionary &&
            namesStringKey(message, "Unknown event: '", static_cast<const ObDictionary&>(*value)))
            return true;
    }
    return false;
}

// What an `_error` operation gave: a result, or the error it reported.
struct Outcome {
    ObRef<ObMutableDictionary> result;
    ObRef<ObError> error;
};

// The contract of every `_error` operation, whatever its input: the result is
// absent exactly when an error is reported, the same with and without the
// out-parameter, and the error is a parameter error the library can make.
template <class Translate>
Outcome checkErrorContract(Translate translate, const ObRef<ObObject>& messageSource,
                           std::string_view name) {
    // Left in the out-parameter to show that success clears it; made once.
    static ObError* const stale = ObError::make(ObString::make("stale"), 1, nullptr).leakRef();
    ObRef<ObError> error(stale);
    ObRef<ObMutableDictionary> result = translate(&error);
    FUZZ_CHECK((result == nullptr) == (error != nullptr), name, "result and error disagree");
    FUZZ_CHECK((translate(nullptr) == nullptr) == (result == nullptr), name,
               "the out-parameter changes the outcome");
    if (error) {
        FUZZ_CHECK(error->domain()->isEqual(KVErrorDomain) &&
                       error->code() == KVErrorInvalidParameter,
                   name, printed(error));
        FUZZ_CHECK(isKnownMessage(messageOf(error), messageSource), name, messageOf(error));
    }
    return {std::move(result), std::move(error)};
}

// A successful event-processing dictionary: from the processing form, event
// numbers to at most the one parameter 0; from the filter form, the caller's
// own strings to empty dictionaries.
void checkEventProcessing(const ObRef<ObDictionary>& result, bool fromFilter) {
    for (const auto& [key, value] : *result) {
        const ObDictionary* parameters = ob_cast_raw<ObDictionary>(value);
        FUZZ_CHECK(parameters != nullptr, "event processing value", printed(value));
        if (fromFilter) {
            FUZZ_CHECK(ob_cast_raw<ObString>(key) != nullptr && parameters->count() == 0,
                       "event filter entry", printed(result));
            continue;
        }
        const ObNumber* event = ob_cast_raw<ObNumber>(key);
        FUZZ_CHECK(event != nullptr && event->integerValue() >= 1 && event->integerValue() <= 4,
                   "event processing key", printed(key));
        FUZZ_CHECK(parameters->count() == 0 ||
                       (parameters->count() == 1 && ob_cast_raw<ObNumber>(parameters->objectForKey(
                                                        ObNumber::make(0))) != nullptr),
                   "event processing parameters", printed(value));
    }
}

void checkOptions(const ObRef<ObDictionary>& hints, const ObRef<ObMutableDictionary>& options) {
    FUZZ_CHECK(options->count() <= (hints ? hints->count() : 0), "more options than hints");
    for (const auto& [key, value] : *options) {
        const ObNumber* number = ob_cast_raw<ObNumber>(key);
        FUZZ_CHECK(number != nullptr && std::find(optionNumbers.begin(), optionNumbers.end(),
                                                  number->integerValue()) != optionNumbers.end(),
                   "option number", printed(key));
    }
    if (!hints)
        return;
    // Ordinary hints pass their value on as the very object; the structured
    // ones share 1007, where the last visited wins.
    bool lastStructuredIsFilter = false;
    for (const auto& [key, value] : *hints) {
        const ObRef<ObString> name = ob_cast<ObString>(key);
        FUZZ_CHECK(name != nullptr, "a hint key that is no string was accepted", printed(key));
        const ObInteger number = KVLegacyHelper::optionFromVRHint_error(name, nullptr);
        if (number == eventProcessingOption || name->text() == "EventFilter")
            lastStructuredIsFilter = number != eventProcessingOption;
        else
            FUZZ_CHECK(options->objectForKey(ObNumber::make(number)) == value,
                       "hint value not passed on", printed(key));
    }
    if (const ObRef<ObObject> processing =
            options->objectForKey(ObNumber::make(eventProcessingOption)))
        checkEventProcessing(ob_cast<ObDictionary>(processing), lastStructuredIsFilter);
}

// Every object of a graph, containers followed by their entries in order:
// equal before and after exactly when no container changed.
std::vector<const ObObject*> shape(const ObRef<ObObject>& root) {
    std::vector<const ObObject*> objects, pending{root.get()};
    objects.reserve(maxWeight);
    while (!pending.empty()) {
        const ObObject* object = pending.back();
        pending.pop_back();
        objects.push_back(object);
        if (object == nullptr)
            continue;
        switch (roleOf(*object)) {
        case Role::Array:
            for (const ObRef<ObObject>& item : static_cast<const ObArray&>(*object))
                pending.push_back(item.get());
            break;
        case Role::Dictionary:
            for (const auto& [key, value] : static_cast<const ObDictionary&>(*object)) {
                pending.push_back(key.get());
                pending.push_back(value.get());
            }
            break;
        case Role::Error:
            pending.push_back(static_cast<const ObError&>(*object).userInfo().get());
            break;
        case Role::Leaf:
            break;
        }
    }
    return objects;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ObjectGraphDecoder decoder(data, size, maxWeight);
    // Mostly a dictionary of some class, else any object, which the hints
    // translation sees as absent and the structured conversions take as it is.
    const ObRef<ObObject> root =
        decoder.boolean() ? ObRef<ObObject>(decoder.dictionary()) : decoder.object();
    const ObRef<ObDictionary> hints = ob_cast<ObDictionary>(root);
    const std::vector<const ObObject*> before = shape(root);
    // Not printed: the translation never prints its input, printing took over
    // a third of the time, and the format harness prints graphs of every shape.

    const auto [options, reported] = checkErrorContract(
        [&](ObRef<ObError>* error) {
            return KVLegacyHelper::optionsFromVRHints_error(hints, error);
        },
        hints, "optionsFromVRHints_error");
    if (options)
        checkOptions(hints, options);

    // The raising form raises exactly when the other reports, with that error.
    try {
        const ObRef<ObMutableDictionary> raised = KVLegacyHelper::optionsFromVRHints(hints);
        FUZZ_CHECK(raised != nullptr && reported == nullptr, "optionsFromVRHints returned",
                   printed(raised));
    } catch (const KVException& exception) {
        FUZZ_CHECK(reported != nullptr && messageOf(exception.error()) == messageOf(reported),
                   "optionsFromVRHints raised", exception.what());
    }

    // The structured conversions take any object at all; an unknown event
    // name comes from the processing value's own keys.
    const ObRef<ObDictionary> asProcessingHint =
        root ? ObDictionary::make({{VRHintEventProcessing, root}}) : nullptr;
    if (const auto processed =
            checkErrorContract(
                [&](ObRef<ObError>* error) {
                    return KVLegacyHelper::_eventProcessingFromVREventProcessing_error(root, error);
                },
                asProcessingHint, "_eventProcessingFromVREventProcessing_error")
                .result)
        checkEventProcessing(processed, false);
    if (const auto filtered =
            checkErrorContract(
                [&](ObRef<ObError>* error) {
                    return KVLegacyHelper::_eventProcessingFromVREventFilter_error(root, error);
                },
                nullptr, "_eventProcessingFromVREventFilter_error")
                .result)
        checkEventProcessing(filtered, true);

    FUZZ_CHECK(shape(root) == before, "the input changed", printed(root));
    return 0;
}
