#include "credential/SyncCall.h"

#include "tessiva/object/Ob.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {
using tessiva::detail::waitForErrorReply;

TEST(SyncCall, AnExceptionLeavesWithoutWaitingOrWritingTheError) {
    const ObRef<ObError> stale = ObError::make(ObString::make("stale"), 1, nullptr);
    ObRef<ObError> error = stale;
    EXPECT_THROW(waitForErrorReply([](auto) { throw std::runtime_error("refused"); }, &error),
                 std::runtime_error);
    EXPECT_EQ(error, stale);
}
} // namespace
