// The threads Tessiva's services do their waiting on.
#pragma once

#include <functional>

namespace tessiva::detail {
// Runs the work on a new thread of its own, which nobody waits for: the work
// must own everything it touches, so that it may outlive the service and even
// static destruction, and a thread still waiting at process end ends with it.
void runOnServiceThread(std::function<void()> work);
} // namespace tessiva::detail
