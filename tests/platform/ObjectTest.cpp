#include "tessiva/object/Ob.h"

#include <gtest/gtest.h>

namespace {
constinit ObConstantString greeting{"hello"};

TEST(ObjectSmoke, StringsCompareByValue) {
    ObRef<ObString> made = ObString::make("hello");
    EXPECT_TRUE(made->isEqual(&greeting));
    EXPECT_EQ(made->hash(), greeting.hash());
    EXPECT_EQ(ObFormat("%@ %d", made, 3)->text(), "hello 3");
}
} // namespace
