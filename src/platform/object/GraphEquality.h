// SPDX-License-Identifier: MIT
// Value equality of containers without recursion: the pairs of items still to
// compare wait in one work list per thread, so graphs of any depth compare on
// an ordinary stack.
#pragma once

#include "tessiva/object/ObObject.h"

#include <utility>
#include <vector>

namespace tessiva::detail {

// Made by a container's equals() for the duration of its comparison. The
// outermost one on a thread compares its own items at once and then drains
// the list; one made inside it (by an item that is a container) queues its
// items there and leaves the verdict to the outermost.
class EqualityWalk {
public:
    EqualityWalk() noexcept;
    ~EqualityWalk();
    EqualityWalk(const EqualityWalk&) = delete;
    EqualityWalk& operator=(const EqualityWalk&) = delete;

    // False when the two items already differ; true when they are equal or
    // their comparison is queued.
    bool compare(const ObObject& item, const ObObject& other) noexcept;
    // The verdict on everything compared or queued so far.
    bool finish() noexcept;

    // Suspends the running walk while a dictionary looks a key up, since
    // that lookup needs a whole answer at once.
    class Pause {
    public:
        Pause() noexcept;
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;

    private:
        std::vector<std::pair<const ObObject*, const ObObject*>>* saved_;
    };

private:
    std::vector<std::pair<const ObObject*, const ObObject*>> pending_;
    bool outermost_;
};

} // namespace tessiva::detail
