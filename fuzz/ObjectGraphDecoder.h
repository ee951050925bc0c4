// SPDX-License-Identifier: MIT
// ObjectGraphDecoder: turns a fuzzer's bytes into values of the object library,
// so that every harness reaches Tessiva with graphs no caller test thought of:
// wrong types, equal but distinct strings, callers' own subclasses, deep
// nesting and large counts. Every graph is a tree over shared leaves, and its
// size is bounded by a few hundred objects, so one input runs in well under a
// millisecond: many small graphs find more than a few large ones, and the
// object library's own suite covers the hostile sizes.
#pragma once

#include "tessiva/VRConstants.h"
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/Ob.h"

#include <cstddef>
#include <cstdint>
#include <fuzzer/FuzzedDataProvider.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tessiva::fuzz {

// The text behind a CallerString, set up before the string that points into it.
struct CallerText {
    std::string text;
};

// A caller's own string class: an ObString that is not one of the library's.
// Like every constant string it ignores reference counting, so the decoder
// that made it owns it and must outlive every graph that holds it.
class CallerString final : private CallerText, public ObString {
public:
    explicit CallerString(std::string value)
        : CallerText{std::move(value)}, ObString(immortal, CallerText::text) {}
    const char* className() const noexcept override { return "CallerString"; }
};

// A caller's own dictionary class.
class CallerDictionary final : public ObDictionary {
public:
    void add(ObRef<ObObject> key, ObRef<ObObject> value) {
        store(std::move(key), std::move(value));
    }
    const char* className() const noexcept override { return "CallerDictionary"; }
};

// An object of a class the library has never heard of. It prints without
// its address, so that printing a graph twice gives the same text.
class CallerObject final : public ObObject {
public:
    ObRef<ObString> description() const override { return ObString::make("<CallerObject>"); }
    const char* className() const noexcept override { return "CallerObject"; }
};

// Every name of the VR vocabulary, and near misses of the names the library
// compares by text.
inline std::vector<ObRef<ObString>> vocabulary() {
    std::vector<ObRef<ObString>> words = {
        VRPolicyDeviceOwnerAuthenticated,
        VRResultTagUsedRidgeScan,
        VRResultTagUsedPasscode,
        VRResultTagRidgeScanIdentity,
        VRResultTagUsedYesNo,
        VRResultTagUsedPassphrase,
        VRHintNotInteractive,
        VRHintAppAction,
        VRHintTimeout,
        VRHintCallerPID,
        VRHintUserFallback,
        VRHintMaxRidgeScanFailures,
        VRHintMaxPasscodeFailures,
        VRHintLightPasscodeScreen,
        VRHintPresentationStyle,
        VRHintTransitionStyle,
        VRHintEventProcessingGetRemoteViewController,
        VRHintEventParamRemoteViewControllerBundleID,
        VRHintEventParamRemoteViewControllerName,
        VRHintPassphraseFirst,
        VRHintPINTitle,
        VRHintPINLength,
        VRHintEventFilter,
        VRHintEventProcessing,
        VREventRidgeScan,
        VREventPasscode,
        VREventConsent,
        VREventPassphrase,
        VREventUserCancel2,
        VREventRidgeScanParamStatus,
        VREventRidgeScanParamIdentity,
        VREventRidgeScanParamSimpleStatus,
        VREventParamAvailable,
        VREventParamActive,
        VREventConsentResponse,
        VRResponsePasscode,
        VRClientRequestStopEvents,
        VRClientRequestParamEvent,
        VRClientRequestParamError,
        VRClientRequestEnterPassword,
        VRClientRequestParamPassword,
        VRClientRequestErrorRetryTime,
        VRErrorDomain,
        KVErrorDomain,
        ObLocalizedDescriptionKey,
    };
    for (std::string_view text :
         {"DeviceOwnerAuthenticated", "DeviceOwnerAuthenticatedWithBiometrics",
          "DeviceOwnerConsentRidgescanPreferred", "HumanPresence", "eventFilter", "EVENTFILTER",
          "EventFilter ", "stopEvents", "Timeout\n", "%@", "%s%d%ld%%"})
        words.push_back(ObString::make(text));
    return words;
}

class ObjectGraphDecoder {
public:
    // At most this many nested containers; deeper requests make leaves.
    static constexpr int maxDepth = 32;
    // By default at most this many objects in a graph, counting a shared one
    // each time it appears: that bounds the text of any description.
    static constexpr std::size_t defaultMaxWeight = 256;
    // At most this many copies in a large container.
    static constexpr std::size_t maxCopies = 64;

    // A harness whose code looks only near the top of a graph may bound it
    // tighter: fewer objects to make and free per input.
    ObjectGraphDecoder(const std::uint8_t* data, std::size_t size,
                       std::size_t maxWeight = defaultMaxWeight)
        : bytes_(data, size), vocabulary_(sharedVocabulary()), maxWeight_(maxWeight) {}
    ObjectGraphDecoder(const ObjectGraphDecoder&) = delete;
    ObjectGraphDecoder& operator=(const ObjectGraphDecoder&) = delete;

    // Any object, absent included. Each graph asked for here, or with
    // dictionary() or error(), is bounded on its own.
    ObRef<ObObject> object() {
        weight_ = 0;
        return decode(0).object;
    }
    // A present object (the containers refuse absent ones).
    ObRef<ObObject> presentObject() {
        ObRef<ObObject> made = object();
        return made ? made : ObRef<ObObject>(ObNumber::make(integer()));
    }
    // Mostly a dictionary of some dictionary class; sometimes absent.
    ObRef<ObDictionary> dictionary() {
        weight_ = 0;
        return dictionary(0);
    }
    // A string of any kind: vocabulary, equal copy, caller's class or random.
    ObRef<ObString> string() { return ob_cast<ObString>(leaf(Kind::Word, 0)); }
    // Mostly an error of any domain, with any code and user info; sometimes absent.
    ObRef<ObError> error() {
        if (bytes_.ConsumeIntegralInRange(0, 7) == 0)
            return nullptr;
        weight_ = 0;
        return ob_cast<ObError>(leaf(Kind::Error, 0));
    }
    // Mostly small numbers, sometimes any.
    ObInteger integer() {
        if (bytes_.ConsumeBool())
            return bytes_.ConsumeIntegralInRange<ObInteger>(-1012, 1012);
        return bytes_.ConsumeIntegral<ObInteger>();
    }
    bool boolean() { return bytes_.ConsumeBool(); }
    std::size_t count(std::size_t maximum) {
        return bytes_.ConsumeIntegralInRange<std::size_t>(0, maximum);
    }
    bool exhausted() { return bytes_.remaining_bytes() == 0; }
    FuzzedDataProvider& bytes() { return bytes_; }

private:
    enum class Kind : unsigned char {
        Absent,
        Word,
        EqualCopy,
        RandomString,
        CallerString,
        Number,
        Boolean,
        Data,
        Error,
        CallerObject,
        Array,
        Dictionary,
        MutableDictionary,
        CallerDictionary,
        LargeArray,
        LargeDictionary,
        Last = LargeDictionary,
    };
    struct Decoded {
        ObRef<ObObject> object;
        std::size_t weight = 0;
    };

    Decoded decode(int depth) {
        const auto kind =
            static_cast<Kind>(bytes_.ConsumeIntegralInRange<int>(0, static_cast<int>(Kind::Last)));
        if (kind >= Kind::Array && depth < maxDepth && weight_ < maxWeight_)
            return container(kind, depth + 1);
        return {leaf(kind, depth + 1), 1};
    }

    ObRef<ObDictionary> dictionary(int depth) {
        static constexpr Kind kinds[] = {Kind::Dictionary, Kind::MutableDictionary,
                                         Kind::CallerDictionary, Kind::LargeDictionary};
        const std::size_t choice = bytes_.ConsumeIntegralInRange<std::size_t>(0, 4);
        if (choice == 4 || depth >= maxDepth)
            return nullptr;
        return ob_cast<ObDictionary>(container(kinds[choice], depth + 1).object);
    }

    ObRef<ObString> word() {
        return vocabulary_[bytes_.ConsumeIntegralInRange<std::size_t>(0, vocabulary_.size() - 1)];
    }

    ObRef<ObObject> leaf(Kind kind, int depth) {
        ++weight_;
        switch (kind) {
        case Kind::Absent:
            return nullptr;
        case Kind::Word:
            return word();
        case Kind::EqualCopy:
            return ObString::make(word()->text());
        case Kind::RandomString:
            return ObString::make(bytes_.ConsumeRandomLengthString(64));
        case Kind::CallerString: {
            std::string text = bytes_.ConsumeBool() ? std::string(word()->text())
                                                    : bytes_.ConsumeRandomLengthString(64);
            callerStrings_.push_back(std::make_unique<fuzz::CallerString>(std::move(text)));
            return ObRef<ObString>(callerStrings_.back().get());
        }
        case Kind::Number:
            return ObNumber::make(integer());
        case Kind::Boolean:
            return ObNumber::makeBool(bytes_.ConsumeBool());
        case Kind::Data: {
            const std::string bytes = bytes_.ConsumeRandomLengthString(32);
            return ObData::make(bytes.data(), bytes.size());
        }
        case Kind::Error: {
            ObString* const domains[] = {KVErrorDomain, VRErrorDomain, nullptr};
            ObRef<ObString> domain = domains[bytes_.ConsumeIntegralInRange(0, 2)];
            if (bytes_.ConsumeBool())
                domain = string();
            const ObInteger code = integer();
            return ObError::make(domain, code, dictionary(depth));
        }
        case Kind::CallerObject:
            return ObMake<fuzz::CallerObject>();
        default:
            return word();
        }
    }

    // Containers take their entries from the bytes, skipping the absent ones
    // they would refuse; the large ones repeat one entry as often as the
    // weight left allows.
    Decoded container(Kind kind, int depth) {
        ++weight_;
        std::size_t weight = 1;
        const auto child = [&] {
            Decoded decoded = decode(depth);
            weight += decoded.weight;
            return std::move(decoded.object);
        };
        switch (kind) {
        case Kind::Array:
        case Kind::LargeArray: {
            std::vector<ObRef<ObObject>> items;
            if (kind == Kind::Array) {
                for (std::size_t i = count(8); i > 0 && !exhausted(); --i)
                    if (ObRef<ObObject> item = child())
                        items.push_back(std::move(item));
            } else if (const Decoded repeated = decode(depth); repeated.object) {
                const std::size_t copies = repeatCount(repeated.weight);
                items.assign(copies, repeated.object);
                weight += copies * repeated.weight;
            }
            return {ObArray::make(std::move(items)), weight};
        }
        case Kind::LargeDictionary: {
            ObRef<ObMutableDictionary> large = ObMutableDictionary::make();
            if (const Decoded repeated = decode(depth); repeated.object) {
                const std::size_t copies = repeatCount(repeated.weight + 1);
                for (std::size_t i = 0; i < copies; ++i)
                    large->setObject_forKey(repeated.object, positionKeys()[i]);
                weight += copies * (repeated.weight + 1);
            }
            return {large, weight};
        }
        default: {
            std::vector<ObDictionary::Entry> entries;
            for (std::size_t i = count(8); i > 0 && !exhausted(); --i) {
                ObRef<ObObject> key = child();
                ObRef<ObObject> value = child();
                if (key && value)
                    entries.emplace_back(std::move(key), std::move(value));
            }
            return {dictionaryOfKind(kind, std::move(entries)), weight};
        }
        }
    }

    ObRef<ObDictionary> dictionaryOfKind(Kind kind, std::vector<ObDictionary::Entry> entries) {
        if (kind == Kind::MutableDictionary) {
            ObRef<ObMutableDictionary> made = ObMutableDictionary::make();
            for (const auto& [key, value] : entries)
                made->setObject_forKey(value, key);
            return made;
        }
        if (kind == Kind::CallerDictionary) {
            ObRef<fuzz::CallerDictionary> made = ObMake<fuzz::CallerDictionary>();
            for (auto& [key, value] : entries)
                made->add(std::move(key), std::move(value));
            return made;
        }
        return ObDictionary::make(std::move(entries));
    }

    std::size_t repeatCount(std::size_t eachWeight) {
        const std::size_t left = weight_ < maxWeight_ ? maxWeight_ - weight_ : 0;
        const std::size_t copies = count(std::min<std::size_t>(maxCopies, left / eachWeight));
        weight_ += copies * eachWeight;
        return copies;
    }

    // The keys 0 to maxCopies - 1 of a large dictionary, made once for the
    // whole run rather than for every input.
    static const std::vector<ObRef<ObObject>>& positionKeys() {
        static const std::vector<ObRef<ObObject>>* const keys = [] {
            auto* made = new std::vector<ObRef<ObObject>>();
            for (std::size_t i = 0; i < maxCopies; ++i)
                made->push_back(ObNumber::make(static_cast<ObInteger>(i)));
            return made;
        }();
        return *keys;
    }

    // Made once for the whole run rather than for every input.
    static const std::vector<ObRef<ObString>>& sharedVocabulary() {
        static const std::vector<ObRef<ObString>>* const words =
            new std::vector<ObRef<ObString>>(fuzz::vocabulary());
        return *words;
    }

    FuzzedDataProvider bytes_;
    const std::vector<ObRef<ObString>>& vocabulary_;
    std::vector<std::unique_ptr<fuzz::CallerString>> callerStrings_;
    const std::size_t maxWeight_;
    // The weight of the graph being decoded, shared leaves counted each time.
    std::size_t weight_ = 0;
};

} // namespace tessiva::fuzz
