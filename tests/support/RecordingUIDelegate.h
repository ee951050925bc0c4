// RecordingUIDelegate: a VR user-interface delegate that keeps every event,
// with its reply, for the test to inspect and answer.
#pragma once

#include "tessiva/VRUIDelegate.h"

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

private:
    RecordingUIDelegate() = default;

    mutable std::mutex mutex_;
    std::vector<Event> events_;
};

} // namespace tessiva::test
