// SPDX-License-Identifier: MIT
// Races on purpose. The ThreadSanitizer run expects to catch the race, so a
// race check that quietly stopped working fails instead of passing everything.
#include <thread>

namespace {
int shared = 0;
}

int main() {
    std::thread other([] { ++shared; });
    ++shared;
    other.join();
    return shared == 2 ? 0 : 1;
}
