// SPDX-License-Identifier: MIT
// The pieces of the delegate pair shared by the time and instruction
// benchmarks: a delegate that answers at once, the service's event, and the
// same delivery written out by hand.
#pragma once

#include "tessiva/VRUIDelegate.h"
#include "tessiva/kavelin/KVUIDelegate.h"
#include "tessiva/object/ObDictionary.h"

namespace tessiva::bench {

// Answers every event at once with consent given.
class ConsentingDelegate final : public VRUIDelegate {
public:
    ConsentingDelegate();
    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override;

private:
    const ObRef<ObDictionary> answer_;
};

// The ridge-scan event's three parameters, as the service sends them.
struct EventValues {
    ObRef<ObObject> status;
    ObRef<ObObject> identity;
    ObRef<ObObject> simpleStatus;

    static EventValues make();
    ObRef<ObDictionary> serviceParams() const;
};

// The service's reply handler, which only looks at what it receives.
KVUIReply serviceReply();

// The same delivery as the proxy's, with the renaming written out for this
// one event: the parameters under their VR names, the answer under its number.
void deliverByHand(VRUIDelegate& delegate, const EventValues& values, KVUIReply reply);

} // namespace tessiva::bench
