// Service threads: one detached std::thread per piece of work.
#include "ServiceThread.h"

#include <thread>

namespace tessiva::detail {
void runOnServiceThread(std::function<void()> work) {
    std::thread(std::move(work)).detach();
}
} // namespace tessiva::detail
