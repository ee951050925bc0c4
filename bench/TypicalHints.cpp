// SPDX-License-Identifier: MIT
#include "TypicalHints.h"

#include "tessiva/VRConstants.h"
#include "tessiva/object/ObNumber.h"

#include <unistd.h>

namespace tessiva::bench {

HintValues HintValues::make() {
    return {ObNumber::make(30),
            ObNumber::make(3),
            ObNumber::make(static_cast<ObInteger>(getpid())),
            ObArray::make({VREventPasscode}),
            ObNumber::makeBool(false),
            ObString::make("Unlock")};
}

ObRef<ObDictionary> typicalHints(const HintValues& values) {
    return ObDictionary::make({
        {VRHintTimeout, values.timeout},
        {VRHintMaxPasscodeFailures, values.maxFailures},
        {VRHintCallerPID, values.callerPID},
        {VRHintEventFilter, values.eventFilter},
        {VRHintNotInteractive, values.nonInteractive},
        {VRHintAppAction, values.appAction},
    });
}

ObRef<ObMutableDictionary> handBuiltOptions(const HintValues& values) {
    // The filter passes the caller's own event name on as the key.
    ObRef<ObMutableDictionary> processing = ObMutableDictionary::make();
    processing->setObject_forKey(ObDictionary::make(), VREventPasscode);

    ObRef<ObMutableDictionary> options = ObMutableDictionary::make();
    options->setObject_forKey(values.timeout, ObNumber::make(1001));
    options->setObject_forKey(values.maxFailures, ObNumber::make(1004));
    options->setObject_forKey(values.callerPID, ObNumber::make(1002));
    options->setObject_forKey(processing, ObNumber::make(1007));
    options->setObject_forKey(values.nonInteractive, ObNumber::make(1000));
    options->setObject_forKey(values.appAction, ObNumber::make(2));
    return options;
}

} // namespace tessiva::bench
