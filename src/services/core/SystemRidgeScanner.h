// The reader of the system service: the machine's fingerprint reader, as its
// fingerprint service offers it. One definition links in: a build without
// fingerprint support has the one in NoSystemRidgeScanner.cpp.
#pragma once

#include "RidgeScanner.h"

namespace tessiva::detail {
// The scanner the system service asks; never absent. Called once per service.
ObRef<RidgeScanner> systemRidgeScanner();
} // namespace tessiva::detail
