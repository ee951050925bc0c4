// SPDX-License-Identifier: MIT
// Built without fprintd support, the client says so and never claims to
// have a reader.
#include "services/fprint/FprintScanner.h"

#include <gtest/gtest.h>

namespace tessiva::test {
namespace {
using namespace tessiva::detail;

TEST(NoFprintSupport, ThereIsNeverAReader) {
    const ObRef<RidgeScanner> scanner = makeFprintScanner();
    const ReaderState state = scanner->state("someone");
    EXPECT_EQ(state.problem, ReaderProblem::noReader);
    EXPECT_EQ(state.message, "built without fprintd support");
    ScanStop stop;
    const ScanOutcome outcome = scanner->scan(
        "someone", [](const ScanReport&) { ADD_FAILURE() << "a status"; }, stop);
    EXPECT_EQ(outcome.problem, ReaderProblem::noReader);
    EXPECT_EQ(outcome.message, "built without fprintd support");
    EXPECT_FALSE(outcome.stopped);
}
} // namespace
} // namespace tessiva::test
