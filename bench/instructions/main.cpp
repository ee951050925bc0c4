// SPDX-License-Identifier: MIT
// tessiva_instructions: one side of one measured pair, run under callgrind by
// bench/instructions.py.
//
//   tessiva_instructions CASE OPERATIONS   prints "allocations <count>"
//   tessiva_instructions --list            prints every case's name
//
// Exits 2 on bad usage and 3 when a case's two sides do not do the same work.
#include "InstructionCases.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

int main(int argc, char** argv) {
    using namespace tessiva::bench;
    const InstructionCases& cases = instructionCases();
    if (argc == 2 && std::string_view(argv[1]) == "--list") {
        for (const auto& [name, run] : cases)
            std::printf("%s\n", name.c_str());
        return 0;
    }
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s CASE OPERATIONS | --list\n", argv[0]);
        return 2;
    }
    const auto found = cases.find(argv[1]);
    if (found == cases.end()) {
        std::fprintf(stderr, "%s: no case %s\n", argv[0], argv[1]);
        return 2;
    }
    const std::optional<std::uint64_t> allocations = found->second(std::atol(argv[2]));
    if (!allocations) {
        std::fprintf(stderr, "%s: %s: the two sides do not do the same work\n", argv[0], argv[1]);
        return 3;
    }
    std::printf("allocations %llu\n", static_cast<unsigned long long>(*allocations));
    return 0;
}
