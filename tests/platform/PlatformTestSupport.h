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

// A caller's subclass of the library's string, with a text form of its own:
// what the library's shortcuts for its own classes must not take it for.
class ShoutingString final : public ObString {
public:
    explicit ShoutingString(std::string_view text) noexcept : ObString(immortal, text) {}
    ObRef<ObString> description() const override { return ObString::make("LOUD"); }
};

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
