// SPDX-License-Identifier: MIT
// Helpers shared by every suite: a list threads append to, and capturing sinks
// for the system and trace logs.
#pragma once

#include "support/Deadline.h"
#include "tessiva/brindle/KVLogger.h"
#include "tessiva/object/Ob.h"
#include "tessiva/os/ObLog.h"
#include "tessiva/os/ObTraceLog.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tessiva::test {

// Items appended from any thread; readers get copies.
template <class Item> class SharedList {
    mutable std::mutex mutex_;
    mutable std::condition_variable added_;
    std::vector<Item> items_;

public:
    void add(Item item) {
        std::lock_guard lock(mutex_);
        items_.push_back(std::move(item));
        added_.notify_all();
    }
    std::vector<Item> items() const {
        std::lock_guard lock(mutex_);
        return items_;
    }
    // Waits until the item at `index` (from 0) is there.
    Item waitFor(std::size_t index, const char* what = "an item") const {
        std::unique_lock lock(mutex_);
        if (!added_.wait_until(lock, deadlineFromNow(), [&] { return items_.size() > index; }))
            throw WaitTimedOut(std::string(what) + " number " + std::to_string(index));
        return items_[index];
    }
};

// Installs a sink that records every line written to the system log, with
// its priority, for the life of the object.
class LogCapture {
    struct Sink final : ObLogSink {
        SharedList<std::string> lines;
        SharedList<ObLogPriority> priorities;
        void writeLine(ObLogPriority priority, std::string_view line) override {
            lines.add(std::string(line));
            priorities.add(priority);
        }
    };
    ObRef<Sink> sink_ = ObMake<Sink>();
    ObScopedLogSink installed_{sink_};

public:
    std::vector<std::string> lines() const { return sink_->lines.items(); }
    std::vector<ObLogPriority> priorities() const { return sink_->priorities.items(); }
};

// Records trace messages and keeps their payload callbacks for the test to run.
class CapturingTraceSink final : public ObTraceSink {
public:
    struct Message {
        std::string format;
        std::int32_t argument;
        ObTracePayload payload;
    };
    void write(const char* format, std::int32_t argument, ObTracePayload payload) override {
        messages_.add({format, argument, std::move(payload)});
    }
    std::vector<Message> messages() const { return messages_.items(); }

private:
    SharedList<Message> messages_;
};

} // namespace tessiva::test
