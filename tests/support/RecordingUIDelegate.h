// SPDX-License-Identifier: MIT
// RecordingUIDelegate: a VR user-interface delegate that keeps every event,
// with its reply, for the test to inspect and answer, from any thread.
#pragma once

#include "support/TestSupport.h"
#include "tessiva/VRUIDelegate.h"

namespace tessiva::test {

class RecordingUIDelegate final : public VRUIDelegate {
public:
    struct Event {
        ObRef<ObString> name;
        ObRef<ObDictionary> params;
        VRUIReply reply;
    };

    static ObRef<RecordingUIDelegate> make() { return ObMake<RecordingUIDelegate>(); }

    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override {
        events_.add({event, params, std::move(reply)});
    }
    std::vector<Event> events() const { return events_.items(); }
    // Waits until the event at `index` (from 0) has arrived.
    Event waitForEvent(std::size_t index) const { return events_.waitFor(index, "delegate event"); }

private:
    SharedList<Event> events_;
};

} // namespace tessiva::test
