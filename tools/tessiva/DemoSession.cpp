// SPDX-License-Identifier: MIT
// The demo's main loop and its user-interface delegate.
#include "DemoSession.h"

#include "tessiva/VRConstants.h"
#include "tessiva/object/ObDictionary.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/os/ObSemaphore.h"

#include <iostream>
#include <memory>

namespace tessiva::tool {

void say(std::string_view line) {
    std::cout << line << std::endl;
}

void MainLoop::post(Work work) {
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(work));
    }
    queued_.notify_one();
}

void MainLoop::runAndWait(Work work) {
    // Shared, as the signal may still be on its way out when the wait returns.
    auto done = std::make_shared<ObSemaphore>();
    post([&work, done] {
        work();
        done->signal();
    });
    done->wait();
}

void MainLoop::runUntil(const std::function<bool()>& finished) {
    while (!finished()) {
        Work work;
        {
            std::unique_lock lock(mutex_);
            queued_.wait(lock, [this] { return !queue_.empty(); });
            work = std::move(queue_.front());
            queue_.pop_front();
        }
        work();
    }
}

void DemoDelegate::event_params_reply(const ObRef<ObString>& event,
                                      const ObRef<ObDictionary>& params, VRUIReply reply) {
    loop_.runAndWait([&] { handle(event, params, reply); });
}

void DemoDelegate::handle(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                          const VRUIReply& reply) {
    // An identity is random to the session: printed by its size alone.
    ObRef<ObDictionary> shown = params;
    if (params && params->objectForKey(VREventRidgeScanParamIdentity)) {
        ObRef<ObMutableDictionary> copy = ObMutableDictionary::make();
        for (const auto& [key, value] : *params)
            copy->setObject_forKey(key->isEqual(VREventRidgeScanParamIdentity)
                                       ? ObRef<ObObject>(ObString::make("<32 bytes>"))
                                       : value,
                                   key);
        shown = copy->copy();
    }
    say(ObFormat("    delegate: event %@ %@", event, shown)->text());
    const ObRef<ObNumber> active =
        ob_cast<ObNumber>(params ? params->objectForKey(VREventParamActive) : nullptr);
    if (!active || !active->boolValue()) {
        say(active ? "    delegate: the view may close; nothing to answer"
                   : "    delegate: a notice; nothing to answer");
        return;
    }
    if (answers_.empty()) {
        say("    delegate: no answer scripted; the event stays unanswered");
        return;
    }
    Answer answer = std::move(answers_.front());
    answers_.pop_front();
    answer(reply);
}

const char* DemoDelegate::className() const noexcept {
    return "DemoDelegate";
}

} // namespace tessiva::tool
