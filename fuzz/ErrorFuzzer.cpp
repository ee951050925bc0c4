// SPDX-License-Identifier: MIT
// Errors of any domain, code and user info through the error translation, and
// errors the library makes with any code and message.
#include "FuzzCheck.h"
#include "ObjectGraphDecoder.h"
#include "tessiva/KVLegacyHelper.h"

#include <string>
#include <utility>

using namespace tessiva::fuzz;

namespace {

// Errors are translated and printed without looking into their user info
// beyond its description key; bigger graphs only cost time to make and free.
constexpr std::size_t maxWeight = 32;
// Errors checked per input: a few rounds reach what the translation does with
// hit counts libFuzzer tells apart; a long input's further rounds add time,
// not paths.
constexpr int maxRounds = 8;

// The service's codes and the VR codes they become; any other code becomes 0.
constexpr std::pair<ObInteger, ObInteger> errorTable[] = {
    {-1002, -1000}, {-1, -1},       {-1007, -1006}, {-1005, -1003}, {-1004, -1002}, {-5, -7},
    {-4, -3},       {-1003, -1001}, {-6, -8},       {-7, -9},       {-2, -2},       {-3, -1007},
    {-1009, -1010}, {-1008, -1005}, {-1001, -6},    {-1000, -6},
};

ObInteger vrCodeFor(ObInteger serviceCode) {
    for (const auto& [service, vr] : errorTable) {
        if (service == serviceCode)
            return vr;
    }
    return 0;
}

ObRef<ObString> domain(ObjectGraphDecoder& decoder) {
    switch (decoder.bytes().ConsumeIntegralInRange(0, 4)) {
    case 0:
        return KVErrorDomain;
    case 1:
        return ObString::make(KVErrorDomain->text());
    case 2:
        return VRErrorDomain;
    case 3:
        return nullptr;
    default:
        return decoder.string();
    }
}

// User info of every kind localizedDescription meets: half the time any
// dictionary or none, else one holding the description key (the constant or
// an equal copy) with a value of any class.
ObRef<ObDictionary> userInfo(ObjectGraphDecoder& decoder) {
    if (decoder.boolean())
        return decoder.dictionary();
    const ObRef<ObString> key = decoder.boolean()
                                    ? ObRef<ObString>(ObLocalizedDescriptionKey)
                                    : ObString::make(ObLocalizedDescriptionKey->text());
    const ObRef<ObObject> value =
        decoder.boolean() ? ObRef<ObObject>(decoder.string()) : decoder.presentObject();
    return ObDictionary::make({{key, value}});
}

// An error's text: the string under the description key, else the default
// sentence naming the domain and code; and its text form. Both are spelled
// out here rather than through the formatter the library uses.
void checkDescription(const ObRef<ObError>& error) {
    const ObRef<ObString> text = error->localizedDescription();
    const ObRef<ObObject> given =
        error->userInfo() ? error->userInfo()->objectForKey(ObLocalizedDescriptionKey) : nullptr;
    const std::string_view domain = error->domain() ? error->domain()->text() : "(null)";
    const Decimal code(error->code());
    if (ob_cast_raw<ObString>(given) != nullptr) {
        FUZZ_CHECK(text == given, "the description key's string was not used", printed(error));
    } else {
        FUZZ_CHECK(isSpelledAs(text->text(), {"The operation could not be completed. (", domain,
                                              " error ", code, ".)"}),
                   "default description", text->text());
    }
    FUZZ_CHECK(isSpelledAs(error->description()->text(),
                           {"Error Domain=", domain, " Code=", code, " \"", text->text(), "\""}),
               "text form", printed(error));
}

void checkTranslation(const ObRef<ObError>& error) {
    const ObRef<ObError> translated = KVLegacyHelper::vrErrorFromKVError(error);
    if (!error) {
        FUZZ_CHECK(translated == nullptr, "absent did not stay absent");
        return;
    }
    if (!error->domain() || !error->domain()->isEqual(KVErrorDomain)) {
        FUZZ_CHECK(translated == error, "an error of another domain was not passed on",
                   printed(error));
        checkDescription(error);
        return;
    }
    FUZZ_CHECK(translated != nullptr && translated != error, "a service error was not translated");
    FUZZ_CHECK(translated->domain()->isEqual(VRErrorDomain), "translated domain",
               printed(translated));
    FUZZ_CHECK(translated->code() == vrCodeFor(error->code()), "translated code",
               printed(translated));
    FUZZ_CHECK(translated->userInfo() == error->userInfo(), "translated user info",
               printed(translated->userInfo()));
    // The original's text is the same user info's under another domain and
    // code; the other branch looks at errors of every domain.
    checkDescription(translated);
}

// A parameter error the library makes for a caller reaches the caller as
// VR code -1005, the message untouched.
void checkParameterError(const ObRef<ObString>& message) {
    const ObRef<ObError> made = KVErrorHelper::parameterErrorWithMessage(message);
    const ObRef<ObError> translated = KVLegacyHelper::vrErrorFromKVError(made);
    FUZZ_CHECK(translated->code() == -1005 && translated->userInfo()->count() == 1,
               "parameter error", printed(translated));
    const ObRef<ObString> text = translated->localizedDescription();
    FUZZ_CHECK(message ? text == message : text->text().empty(), "parameter error message",
               printed(translated));
    // The exception that carries an error gives its text as the reason; here
    // the text is given, so no default sentence is formatted once more.
    const KVException exception(translated);
    FUZZ_CHECK(exception.reason() == text && exception.name()->text() == "KVException", "exception",
               exception.what());
}

void checkMadeError(ObInteger code, const ObRef<ObString>& message) {
    const ObRef<ObError> made = KVLegacyHelper::vrErrorWithCode_andMessage(code, message);
    FUZZ_CHECK(made != nullptr && made->domain()->isEqual(VRErrorDomain) && made->code() == code,
               "made error", printed(made));
    const ObRef<ObDictionary> userInfo = made->userInfo();
    FUZZ_CHECK(userInfo != nullptr && userInfo->count() == 1, "made user info", printed(userInfo));
    const ObRef<ObObject> text = userInfo->objectForKey(ObLocalizedDescriptionKey);
    FUZZ_CHECK(message ? text == message : printed(text).empty(), "made message", printed(text));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ObjectGraphDecoder decoder(data, size, maxWeight);
    for (int round = 0; round < maxRounds && !decoder.exhausted(); ++round) {
        const ObInteger code = decoder.boolean()
                                   ? errorTable[decoder.count(std::size(errorTable) - 1)].first
                                   : decoder.integer();
        // One path a round, chosen by the input.
        if (decoder.boolean()) {
            checkTranslation(decoder.boolean()
                                 ? ObError::make(domain(decoder), code, userInfo(decoder))
                                 : decoder.error());
            continue;
        }
        const ObRef<ObString> message = decoder.boolean() ? decoder.string() : nullptr;
        if (decoder.boolean())
            checkMadeError(code, message);
        else
            checkParameterError(message);
    }
    return 0;
}
