// RecordingUIDelegate: a VR user-interface delegate that keeps every event,
// with its reply, for the test to inspect and answer, from any thread.
#pragma once

#include "tessiva/VRUIDelegate.h"

#include <condition_variable>
#include <mutex>
#include <vector>

namespace tessiva::test {

class RecordingUIDelegate final : public VRUIDelegate {
public:
    struct Event {
        ObRef<ObString> name;
        ObRef<ObDictionary> params;
        VRUIReply reply;
    };

    static ObRef<RecordingUIDelegate> make();

    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override;
    std::vector<Event> events() const;
    // Waits, without time-out, until the event at `index` (counting from 0)
    // has arrived, and gives it.
    Event waitForEvent(std::size_t index) const;

private:
    RecordingUIDelegate() = default;

    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<Event> events_;
};

} // namespace tessiva::test
