// SPDX-License-Identifier: MIT
// Leaks on purpose. The leak checks run it and expect to catch the leak, so a
// check that quietly stopped working fails instead of passing everything.
#include <cstdlib>

int main() {
    void* volatile leaked = std::malloc(64);
    leaked = nullptr;
    return leaked == nullptr ? 0 : 1;
}
