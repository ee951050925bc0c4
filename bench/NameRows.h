// SPDX-License-Identifier: MIT
// The distinct texts of each name table with their numbers: the rows of the
// standard hash maps that the name translations are measured against.
#pragma once

#include "tessiva/object/ObDefines.h"

#include <utility>
#include <vector>

namespace tessiva::bench {

using NameRows = std::vector<std::pair<const char*, ObInteger>>;

extern const NameRows policyRows;
extern const NameRows optionRows;
extern const NameRows eventRows;
extern const NameRows resultRows;

} // namespace tessiva::bench
