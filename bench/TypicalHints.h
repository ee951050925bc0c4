// The typical hints of an evaluation, and the options dictionary a caller
// talking to the service directly would build by hand for the same request.
#pragma once

#include "tessiva/object/ObDictionary.h"

namespace tessiva::bench {

// The caller's value objects, shared by the hints and the hand-built options
// so that both sides pass the very same values.
struct HintValues {
    ObRef<ObObject> timeout;        // 30 seconds
    ObRef<ObObject> nonInteractive; // false
    ObRef<ObObject> fallback;       // the fallback button's title
    ObRef<ObObject> maxFailures;    // 3
    ObRef<ObObject> callerPID;      // this process

    static HintValues make();
};

// { Timeout, NonInteractive, Cancel2, MaxPasscodeFailures,
//   EventProcessing: { EventPasscode: {} }, CallerPID }, keyed by the
// exported constants as a caller writes them.
ObRef<ObDictionary> typicalHints(const HintValues& values);

// What optionsFromVRHints makes of typicalHints, built directly:
// { 1001, 1000, 1, 1004, 1007: { 2: {} }, 1002 }, in that order.
ObRef<ObMutableDictionary> handBuiltOptions(const HintValues& values);

} // namespace tessiva::bench
