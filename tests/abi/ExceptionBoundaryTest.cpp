// SPDX-License-Identifier: MIT
// Exceptions thrown inside the shared libraries, caught by type in this
// executable: the type information of the exception classes must be one
// across the boundary, hidden visibility and version scripts notwithstanding.
// Those thrown by libTessiva's own code are caught by type in the delegate
// and credential suites, which link it alike.
#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/Ob.h"

#include <exception>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <typeinfo>

namespace {

// Which handler took what `action` threw, as "<dynamic type> <name>: <reason>"
// (what() for a handler of std::exception), or why none did.
template <class Handled> std::string caughtAs(const std::function<void()>& action) {
    try {
        action();
    } catch (const Handled& exception) {
        const char* type = typeid(exception) == typeid(KVException)                  ? "KVException"
                           : typeid(exception) == typeid(ObInvalidArgumentException) ? "ObInvalid"
                                                                                     : "other";
        if constexpr (std::is_base_of_v<ObException, Handled>)
            return std::string(type) + " " + std::string(exception.name()->text()) + ": " +
                   std::string(exception.reason()->text());
        else
            return std::string(type) + " " + exception.what();
    } catch (...) {
        return "caught by no handler of that type";
    }
    return "nothing thrown";
}

// Raised with the very error given, which the exception carries across.
TEST(ExceptionBoundary, EachHandlerOfTheHierarchyCatchesAKVException) {
    const ObRef<ObError> error =
        KVErrorHelper::parameterErrorWithMessage(ObString::make("bad hint"));
    const auto raise = [&] { KVErrorHelper::raiseException(error); };
    EXPECT_EQ(caughtAs<KVException>(raise), "KVException KVException: bad hint");
    EXPECT_EQ(caughtAs<ObException>(raise), "KVException KVException: bad hint");
    EXPECT_EQ(caughtAs<std::exception>(raise), "KVException bad hint");
    EXPECT_EQ(caughtAs<ObInvalidArgumentException>(raise), "caught by no handler of that type");
    EXPECT_THAT(raise, testing::Throws<KVException>(testing::Property(&KVException::error, error)));
}

TEST(ExceptionBoundary, DictionaryInsertRaisesInvalidArgumentAcross) {
    const auto insertAbsent = [] {
        ObMutableDictionary::make()->setObject_forKey(nullptr, ObString::make("key"));
    };
    const std::string expected = "ObInvalid ObInvalidArgumentException: ObMutableDictionary: "
                                 "attempt to insert an absent object for key key";
    EXPECT_EQ(caughtAs<ObInvalidArgumentException>(insertAbsent), expected);
    EXPECT_EQ(caughtAs<ObException>(insertAbsent), expected);
    EXPECT_EQ(caughtAs<KVException>(insertAbsent), "caught by no handler of that type");
}

} // namespace
