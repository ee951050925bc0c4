#include "support/RecordingUIDelegate.h"

namespace tessiva::test {

ObRef<RecordingUIDelegate> RecordingUIDelegate::make() {
    return ObRef<RecordingUIDelegate>::adopt(new RecordingUIDelegate());
}

void RecordingUIDelegate::event_params_reply(const ObRef<ObString>& event,
                                             const ObRef<ObDictionary>& params, VRUIReply reply) {
    {
        std::lock_guard lock(mutex_);
        events_.push_back({event, params, std::move(reply)});
    }
    arrived_.notify_all();
}

std::vector<RecordingUIDelegate::Event> RecordingUIDelegate::events() const {
    std::lock_guard lock(mutex_);
    return events_;
}

RecordingUIDelegate::Event RecordingUIDelegate::waitForEvent(std::size_t index) const {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [&] { return events_.size() > index; });
    return events_[index];
}

} // namespace tessiva::test
