// Helpers for the platform suites: short strings, an object that counts its
// lifetime, and threads released together.
#pragma once

#include "support/RunTogether.h"
#include "tessiva/object/ObString.h"

#include <atomic>

namespace tessiva::test {

inline ObRef<ObString> str(std::string_view text) {
    return ObString::make(text);
}

struct LifetimeCounters {
    std::atomic<int> constructed{0};
    std::atomic<int> destroyed{0};
};

// Pins lifetimes by what happened rather than by peeking at counts.
class CountedObject : public ObObject {
public:
    CountedObject(LifetimeCounters& counters, int value) : counters_(counters), value_(value) {
        ++counters_.constructed;
    }
    ~CountedObject() override { ++counters_.destroyed; }
    int value() const noexcept { return value_; }

private:
    LifetimeCounters& counters_;
    int value_;
};

} // namespace tessiva::test
