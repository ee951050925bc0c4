// Arrays and dictionaries: order, lookups by value, copies, growth, refusals.
#include "platform/PlatformTestSupport.h"
#include "tessiva/object/Ob.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {
using tessiva::test::str;

TEST(Dictionary, KeepsInsertionOrderThroughReplaceAndRemove) {
    auto dictionary = ObMutableDictionary::make();
    for (const char* key : {"zeta", "alpha", "mid", "beta"})
        dictionary->setObject_forKey(str(key), str(key));
    dictionary->setObject_forKey(ObNumber::make(2), str("alpha"));
    dictionary->removeObjectForKey(str("mid"));
    dictionary->removeObjectForKey(str("absent"));
    dictionary->removeObjectForKey(nullptr);
    dictionary->setObject_forKey(str("again"), str("mid"));

    EXPECT_EQ(dictionary->description()->text(),
              "{zeta = zeta; alpha = 2; beta = beta; mid = again}");
    EXPECT_TRUE(dictionary->objectForKey(str("alpha"))->isEqual(ObNumber::make(2)));
    EXPECT_EQ(dictionary->objectForKey(str("gamma")), nullptr);
    EXPECT_EQ(dictionary->objectForKey(nullptr), nullptr);
    // A repeated key given to make keeps its first place and takes the later value.
    EXPECT_EQ(ObDictionary::make({{str("a"), str("1")}, {str("b"), str("2")}, {str("a"), str("3")}})
                  ->description()
                  ->text(),
              "{a = 3; b = 2}");
}

TEST(Dictionary, CopyIsImmutableAndIndependent) {
    auto original = ObMutableDictionary::make();
    original->setObject_forKey(str("v"), ObNumber::make(1));
    const ObRef<ObDictionary> copy = original->copy();
    original->setObject_forKey(str("w"), ObNumber::make(1));
    original->setObject_forKey(str("x"), ObNumber::make(2));

    EXPECT_EQ(ob_cast<ObMutableDictionary>(copy), nullptr);
    EXPECT_EQ(copy->description()->text(), "{1 = v}");
    EXPECT_EQ(copy->objectForKey(ObNumber::make(2)), nullptr);
    EXPECT_EQ(original->count(), 2u);
}

// Number keys that are multiples of 65536 share all their low bits.
TEST(Dictionary, FindsEveryKeyAfterGrowingAndShrinking) {
    constexpr ObInteger count = 1000;
    auto dictionary = ObMutableDictionary::make();
    for (ObInteger i = 0; i < count; ++i) {
        dictionary->setObject_forKey(ObNumber::make(i), str("key" + std::to_string(i)));
        dictionary->setObject_forKey(str(std::to_string(i)), ObNumber::make(i * 65536));
    }
    for (ObInteger i = 0; i < count; i += 2)
        dictionary->removeObjectForKey(ObNumber::make(i * 65536));
    ASSERT_EQ(dictionary->count(), ObUInteger{count + count / 2});
    for (ObInteger i = 0; i < count; ++i) {
        SCOPED_TRACE(i);
        auto number = ob_cast<ObNumber>(dictionary->objectForKey(str("key" + std::to_string(i))));
        ASSERT_TRUE(number);
        EXPECT_EQ(number->integerValue(), i);
        auto text = ob_cast<ObString>(dictionary->objectForKey(ObNumber::make(i * 65536)));
        EXPECT_EQ(text ? text->text() : "(removed)", i % 2 == 0 ? "(removed)" : std::to_string(i));
    }
}

TEST(Array, ReadsItemsInOrder) {
    auto array = ObArray::make({str("a"), ObNumber::make(5)});
    EXPECT_EQ(array->count(), 2u);
    EXPECT_EQ(array->objectAtIndex(1)->description()->text(), "5");
    EXPECT_EQ(array->objectAtIndex(2), nullptr);
    std::string seen;
    for (const ObRef<ObObject>& item : *array)
        seen += item->description()->text();
    EXPECT_EQ(seen, "a5");
}

TEST(Containers, RefuseAbsentKeysAndValues) {
    auto dictionary = ObMutableDictionary::make();
    const ObRef<ObObject> k = str("k"), v = str("v"), none;
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"ObMutableDictionary: attempt to insert an object under an absent key",
         [&] { dictionary->setObject_forKey(v, none); }},
        {"ObMutableDictionary: attempt to insert an absent object for key k",
         [&] { dictionary->setObject_forKey(none, k); }},
        {"ObDictionary: attempt to insert an object under an absent key",
         [&] {
             ObDictionary::make({{k, v}, {none, v}});
         }},
        {"ObDictionary: attempt to insert an absent object for key k",
         [&] {
             ObDictionary::make({{k, none}});
         }},
        {"ObArray: attempt to insert an absent object at index 1",
         [&] {
             ObArray::make({v, none, v});
         }},
    };
    for (const auto& [expected, insert] : cases) {
        SCOPED_TRACE(expected);
        try {
            insert();
            ADD_FAILURE() << "no exception";
        } catch (const ObInvalidArgumentException& exception) {
            EXPECT_EQ(exception.name()->text(), "ObInvalidArgumentException");
            EXPECT_STREQ(exception.what(), expected);
        }
    }
    EXPECT_EQ(dictionary->count(), 0u);
}
} // namespace
