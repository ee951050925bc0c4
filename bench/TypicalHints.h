// SPDX-License-Identifier: MIT
// The typical hints of an evaluation, and the options dictionary a caller
// talking to the service directly would build by hand for the same request.
#pragma once

#include "tessiva/object/ObArray.h"
#include "tessiva/object/ObDictionary.h"

namespace tessiva::bench {

// The caller's value objects, shared by the hints and the hand-built options
// so that both sides pass the very same values.
struct HintValues {
    ObRef<ObObject> timeout;        // 30 seconds
    ObRef<ObObject> maxFailures;    // 3
    ObRef<ObObject> callerPID;      // this process
    ObRef<ObArray> eventFilter;     // the passcode event, by its exported name
    ObRef<ObObject> nonInteractive; // false
    ObRef<ObObject> appAction;      // the action's title

    static HintValues make();
};

// { Timeout, MaxPasscodeFailures, CallerPID, EventFilter: [EventPasscode],
//   NonInteractive, AppAction }, keyed by the exported constants as a caller
// writes them.
ObRef<ObDictionary> typicalHints(const HintValues& values);

// What optionsFromVRHints makes of typicalHints, built directly:
// { 1001, 1004, 1002, 1007: { EventPasscode: {} }, 1000, 2 }, in that order.
ObRef<ObMutableDictionary> handBuiltOptions(const HintValues& values);

} // namespace tessiva::bench
