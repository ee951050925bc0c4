// SPDX-License-Identifier: MIT
// The cases that bench/instructions.py measures, each side of each pair by
// its own name ("<pair>/ours", "<pair>/baseline").
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace tessiva::bench {

// Runs the case's operation the given number of times inside the measured
// loop and returns the loop's allocations; nothing when the case's set-up
// finds that its side does not do the work its partner does.
using InstructionCase = std::function<std::optional<std::uint64_t>(long operations)>;
using InstructionCases = std::map<std::string, InstructionCase>;

const InstructionCases& instructionCases();

// The bus codec's pair, in builds with D-Bus support (CodecCase.cpp).
void addCodecCases(InstructionCases& cases);

} // namespace tessiva::bench
