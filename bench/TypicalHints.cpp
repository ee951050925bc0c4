#include "TypicalHints.h"

#include "tessiva/VRConstants.h"
#include "tessiva/object/ObNumber.h"

#include <unistd.h>

namespace tessiva::bench {

HintValues HintValues::make() {
    return {ObNumber::make(30), ObNumber::makeBool(false), ObString::make("Use Passcode"),
            ObNumber::make(3), ObNumber::make(static_cast<ObInteger>(getpid()))};
}

ObRef<ObDictionary> typicalHints(const HintValues& values) {
    return ObDictionary::make({
        {VRHintTimeout, values.timeout},
        {VRHintNotInteractive, values.nonInteractive},
        {VRHintUserFallback, values.fallback},
        {VRHintMaxPasscodeFailures, values.maxFailures},
        {VRHintEventProcessing, ObDictionary::make({{VREventPasscode, ObDictionary::make()}})},
        {VRHintCallerPID, values.callerPID},
    });
}

ObRef<ObMutableDictionary> handBuiltOptions(const HintValues& values) {
    ObRef<ObMutableDictionary> processing = ObMutableDictionary::make();
    processing->setObject_forKey(ObDictionary::make(), ObNumber::make(2));

    ObRef<ObMutableDictionary> options = ObMutableDictionary::make();
    options->setObject_forKey(values.timeout, ObNumber::make(1001));
    options->setObject_forKey(values.nonInteractive, ObNumber::make(1000));
    options->setObject_forKey(values.fallback, ObNumber::make(1));
    options->setObject_forKey(values.maxFailures, ObNumber::make(1004));
    options->setObject_forKey(processing, ObNumber::make(1007));
    options->setObject_forKey(values.callerPID, ObNumber::make(1002));
    return options;
}

} // namespace tessiva::bench
