// SPDX-License-Identifier: MIT
// The demo's main thread and the caller's user-interface delegate.
//
// The service raises events and replies on threads of its own. Like a real
// user interface, the demo hands all of it to one main thread, which prints
// and answers in turn; the delegate waits until its event has been handled,
// so the session prints in the order things happen.
#pragma once

#include "tessiva/VRUIDelegate.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace tessiva::tool {

class MainLoop {
public:
    using Work = std::function<void()>;

    // From any other thread: queues the work for the main thread.
    void post(Work work);
    // From any other thread: queues the work and returns once it has run.
    void runAndWait(Work work);
    // On the main thread: runs queued work, in order, until `finished`.
    void runUntil(const std::function<bool()>& finished);

private:
    std::mutex mutex_;
    std::condition_variable queued_;
    std::deque<Work> queue_;
};

// Prints each event as the caller sees it, under its VR name, and answers an
// active one with the next scripted answer.
class DemoDelegate final : public VRUIDelegate {
public:
    // Runs on the main thread; prints what it answers, then answers.
    using Answer = std::function<void(const VRUIReply& reply)>;

    explicit DemoDelegate(MainLoop& loop) noexcept : loop_(loop) {}

    // Main thread only, while no evaluation runs.
    void script(std::deque<Answer> answers) { answers_ = std::move(answers); }

    void event_params_reply(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                            VRUIReply reply) override;
    const char* className() const noexcept override;

private:
    void handle(const ObRef<ObString>& event, const ObRef<ObDictionary>& params,
                const VRUIReply& reply);

    MainLoop& loop_;
    // Read and written on the main thread only.
    std::deque<Answer> answers_;
};

// One line of the session on standard output, flushed so that it keeps its
// place among the log lines on standard error.
void say(std::string_view line);

} // namespace tessiva::tool
