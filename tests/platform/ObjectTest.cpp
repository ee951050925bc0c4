// Object identity, value equality, kind-of tests, lifetimes and the
// compile-time promises of the object API.
#include "platform/PlatformTestSupport.h"
#include "tessiva/object/Ob.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace {
using namespace tessiva::test;

// Fails to compile unless a constant string is constant-initialised.
OB_CONSTANT_STRING(greeting, "hello");

template <class T>
concept NumberFrom = requires(T value) {
    ObNumber::make(value);
};
template <class T>
concept BoolFrom = requires(T value) {
    ObNumber::makeBool(value);
};

static_assert(NumberFrom<ObInteger> && NumberFrom<int>);
static_assert(!NumberFrom<bool> && !NumberFrom<char> && !NumberFrom<const char*>);
static_assert(BoolFrom<bool> && !BoolFrom<int>);
static_assert(!std::is_convertible_v<ObRef<ObString>, ObString*> &&
              !std::is_convertible_v<ObRef<ObString>, ObObject*> &&
              !std::is_convertible_v<ObRef<ObString>, bool>);
static_assert(std::is_convertible_v<ObString*, ObRef<ObObject>>);

ObRef<ObData> bytes(std::initializer_list<unsigned char> list) {
    return ObData::make(list.begin(), list.size());
}

TEST(ObjectEquality, DistinctObjectsCompareByContents) {
    const ObRef<ObString> k = ObString::make("k");
    const struct {
        const char* name;
        ObRef<ObObject> a, b;
        bool equal;
    } cases[] = {
        {"made and constant string", ObString::make("hello"), &greeting, true},
        {"two made strings", k, ObString::make("k"), true},
        {"different strings", k, ObString::make("K"), false},
        {"two numbers", ObNumber::make(-7), ObNumber::make(-7), true},
        {"different numbers", ObNumber::make(1), ObNumber::make(2), false},
        {"one and true", ObNumber::make(1), ObNumber::makeBool(true), true},
        {"zero and false", ObNumber::make(0), ObNumber::makeBool(false), true},
        {"two data", bytes({1, 2}), bytes({1, 2}), true},
        {"arrays", ObArray::make({k}), ObArray::make({ObString::make("k")}), true},
        {"dictionaries", ObDictionary::make({{k, ObNumber::make(1)}}),
         ObDictionary::make({{ObString::make("k"), ObNumber::makeBool(true)}}), true},
        {"string and number", ObString::make("1"), ObNumber::make(1), false},
        {"string and data", ObString::make("A"), bytes({0x41}), false},
        {"empty array and dictionary", ObArray::make({}), ObDictionary::make(), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.a->isEqual(c.b), c.equal);
        EXPECT_EQ(c.b->isEqual(c.a), c.equal);
        EXPECT_TRUE(!c.equal || c.a->hash() == c.b->hash());
        EXPECT_FALSE(c.a->isEqual(nullptr));
    }
}

TEST(ObjectEquality, OneAndTrueAreOneDictionaryKey) {
    auto dictionary = ObMutableDictionary::make();
    dictionary->setObject_forKey(ObString::make("integer"), ObNumber::make(1));
    dictionary->setObject_forKey(ObString::make("boolean"), ObNumber::makeBool(true));
    EXPECT_EQ(dictionary->description()->text(), "{1 = boolean}");
}

TEST(ObjectKindOf, CastsFollowTheClassHierarchy) {
    const ObRef<ObObject> mutableDictionary = ObMutableDictionary::make();
    const ObRef<ObObject> constant(&greeting);
    EXPECT_EQ(ob_cast<ObDictionary>(mutableDictionary), mutableDictionary);
    EXPECT_EQ(ob_cast<ObMutableDictionary>(mutableDictionary), mutableDictionary);
    EXPECT_EQ(ob_cast<ObString>(constant), constant);
    EXPECT_EQ(ob_cast<ObConstantString>(constant), constant);

    EXPECT_EQ(ob_cast<ObMutableDictionary>(ObRef<ObObject>(ObDictionary::make())), nullptr);
    EXPECT_EQ(ob_cast<ObString>(mutableDictionary), nullptr);
    EXPECT_EQ(ob_cast<ObNumber>(ObRef<ObObject>(ObString::make("1"))), nullptr);
    EXPECT_EQ(ob_cast<ObString>(ObRef<ObObject>()), nullptr);
    EXPECT_EQ(ob_cast<ObObject>(ObRef<ObString>()), nullptr);
}

// Exact classes are recognised by type first; a subclass still passes every
// kind-of test through its ancestry and compares by its text both ways.
TEST(ObjectKindOf, SubclassesOfTheLibrarysClassesStillPass) {
    ShoutingString shouting("quiet");
    const ObRef<ObObject> subclassed(&shouting);
    EXPECT_EQ(ob_cast<ObString>(subclassed).get(), &shouting);
    EXPECT_EQ(ob_cast_raw<ObString>(subclassed), &shouting);
    EXPECT_EQ(ob_cast<ObNumber>(subclassed), nullptr);
    EXPECT_TRUE(subclassed->isEqual(str("quiet")));
    EXPECT_TRUE(str("quiet")->isEqual(subclassed));
    EXPECT_FALSE(str("Quiet")->isEqual(subclassed));
    EXPECT_EQ(ObDictionary::make({{subclassed, str("v")}})
                  ->objectForKey(str("quiet"))
                  ->description()
                  ->text(),
              "v");
}

TEST(ObjectLifetime, LastReleaseDestroysExactlyOnce) {
    LifetimeCounters counters;
    {
        ObRef<CountedObject> first = ObMake<CountedObject>(counters, 1);
        const ObRef<CountedObject>& self = first;
        first = self; // while it holds the only share
        ObRef<CountedObject> copy = first;
        ObRef<CountedObject> moved = std::move(copy);
        EXPECT_EQ(copy, nullptr);
        first = moved;
        ObRef<ObObject> cast = ob_cast<ObObject>(moved); // shares ownership
        moved = nullptr;
        first = ObRef<CountedObject>();
        EXPECT_EQ(counters.destroyed, 0);
        EXPECT_EQ(ob_cast<CountedObject>(cast)->value(), 1);
        cast = ObMake<CountedObject>(counters, 2); // drops the last share of the first
        EXPECT_EQ(counters.destroyed, 1);
    }
    EXPECT_EQ(counters.constructed, 2);
    EXPECT_EQ(counters.destroyed, 2);
}

// Constants live in ObImmortal storage so that threads outliving main() never
// meet a destroyed one; leaving the storage's scope must not end the object.
constinit int probeDestructions = 0;
struct DestructionProbe {
    constexpr DestructionProbe() noexcept = default;
    ~DestructionProbe() { ++probeDestructions; }
};

TEST(ObjectLifetime, ImmortalStorageNeverDestroysItsObject) {
    { [[maybe_unused]] ObImmortal<DestructionProbe> storage{}; }
    EXPECT_EQ(probeDestructions, 0);
}

} // namespace
