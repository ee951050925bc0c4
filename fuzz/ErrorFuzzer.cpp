// Errors of any domain, code and user info through the error translation, and
// errors the library makes with any code and message.
#include "FuzzCheck.h"
#include "ObjectGraphDecoder.h"
#include "tessiva/KVLegacyHelper.h"

#include <utility>

using namespace tessiva::fuzz;

namespace {

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

void checkTranslation(const ObRef<ObError>& error) {
    const ObRef<ObError> translated = KVLegacyHelper::vrErrorFromKVError(error);
    if (!error) {
        FUZZ_CHECK(translated == nullptr, "absent did not stay absent");
        return;
    }
    if (!error->domain() || !error->domain()->isEqual(KVErrorDomain)) {
        FUZZ_CHECK(translated == error, "an error of another domain was not passed on",
                   printed(error));
        return;
    }
    FUZZ_CHECK(translated != nullptr && translated != error, "a service error was not translated");
    FUZZ_CHECK(translated->domain()->isEqual(VRErrorDomain), "translated domain",
               printed(translated));
    FUZZ_CHECK(translated->code() == vrCodeFor(error->code()), "translated code",
               printed(translated));
    FUZZ_CHECK(translated->userInfo() == error->userInfo(), "translated user info",
               printed(translated->userInfo()));
    FUZZ_CHECK(printed(translated) ==
                   printed(ObError::make(VRErrorDomain, translated->code(), error->userInfo())),
               "translated text form", printed(translated));
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
    ObjectGraphDecoder decoder(data, size);
    while (!decoder.exhausted()) {
        const ObInteger code = decoder.boolean()
                                   ? errorTable[decoder.count(std::size(errorTable) - 1)].first
                                   : decoder.integer();
        checkTranslation(decoder.boolean()
                             ? ObError::make(domain(decoder), code, decoder.dictionary())
                             : decoder.error());
        checkMadeError(code, decoder.boolean() ? decoder.string() : nullptr);
    }
    return 0;
}
