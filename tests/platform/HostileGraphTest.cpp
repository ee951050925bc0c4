// SPDX-License-Identifier: MIT
// Object graphs a hostile caller may build: containers that hold themselves,
// nesting a million levels deep, and containers as dictionary keys.
#include "platform/PlatformTestSupport.h"

#include <functional>
#include <gtest/gtest.h>
#include <pthread.h>
#include <set>
#include <string>

namespace {
using namespace tessiva::test;

// Runs `work` on a thread with an ordinary 8 MiB stack and waits for it.
void onOrdinaryStack(std::function<void()> work) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 8 << 20), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void* argument) -> void* {
                      (*static_cast<std::function<void()>*>(argument))();
                      return nullptr;
                  },
                  &work),
              0);
    pthread_attr_destroy(&attributes);
    pthread_join(thread, nullptr);
}

ObRef<ObArray> nested(std::size_t levels, const ObRef<ObObject>& innermost) {
    ObRef<ObArray> chain = array({innermost});
    for (std::size_t level = 1; level < levels; ++level)
        chain = array({chain});
    return chain;
}

std::string text(const ObRef<ObObject>& object) {
    return std::string(ObFormat("%@", object)->text());
}

TEST(HostileGraphs, ContainersThatHoldThemselvesPrintCompareAndHash) {
    const ObRef<ObMutableDictionary> direct = ObMutableDictionary::make();
    direct->setObject_forKey(direct, str("self"));
    EXPECT_EQ(text(direct), "{self = <cycle>}");

    // Through an array, and through a caller's class whose description()
    // formats its contents: the same walk spans both.
    const ObRef<ObMutableDictionary> indirect = ObMutableDictionary::make();
    indirect->setObject_forKey(array({num(1), indirect}), str("items"));
    EXPECT_EQ(text(indirect), "{items = (1, <cycle>)}");
    EXPECT_EQ(text(array({indirect})), "({items = (1, <cycle>)})");

    // Two distinct graphs of the same shape are equal; a different leaf is not.
    const ObRef<ObMutableDictionary> twin = ObMutableDictionary::make();
    twin->setObject_forKey(array({num(1), twin}), str("items"));
    const ObRef<ObMutableDictionary> other = ObMutableDictionary::make();
    other->setObject_forKey(array({num(2), other}), str("items"));
    EXPECT_TRUE(indirect->isEqual(twin));
    EXPECT_FALSE(indirect->isEqual(other));
    EXPECT_EQ(indirect->hash(), twin->hash());

    // A reference cycle leaks unless the caller breaks it.
    for (const auto& held : {direct, indirect, twin, other})
        held->removeObjectForKey(held == direct ? str("self") : str("items"));
}

TEST(HostileGraphs, AMillionLevelsPrintCompareHashAndReleaseOnAnOrdinaryStack) {
    constexpr std::size_t levels = 1'000'000;
    onOrdinaryStack([] {
        ObRef<ObArray> deep = nested(levels, str("leaf"));
        const ObRef<ObArray> twin = nested(levels, str("leaf"));
        const ObRef<ObArray> different = nested(levels, str("LEAF"));

        const std::string opened(256, '('), closed(256, ')'); // the 257th is cut
        EXPECT_EQ(text(deep), opened + "<...>" + closed);
        EXPECT_TRUE(deep->isEqual(twin));
        EXPECT_FALSE(deep->isEqual(different));
        EXPECT_EQ(deep->hash(), twin->hash());
        // A dictionary's value comparison walks the same list.
        EXPECT_TRUE(dict({{str("k"), deep}})->isEqual(dict({{str("k"), twin}})));
        deep = nullptr;
    });
}

TEST(HostileGraphs, TextFormsOfHugeGraphsEndAtTheLengthBound) {
    // 2^40 leaves if printed in full.
    ObRef<ObArray> doubling = array({str("leaf"), str("leaf")});
    for (int level = 0; level < 40; ++level)
        doubling = array({doubling, doubling});
    const std::string printed = text(doubling);
    EXPECT_LT(printed.size(), (std::size_t{1} << 20) + 2048);
    EXPECT_NE(printed.find("<...>"), std::string::npos);
    EXPECT_EQ(printed.substr(printed.size() - 8), ", <...>)");
}

TEST(HostileGraphs, ContainerKeysHashByContentsConsistentlyWithEquality) {
    // 20,000 one-item arrays and 20,000 one-entry dictionaries as keys,
    // each found again through an equal key made apart.
    constexpr ObInteger keys = 20'000;
    const ObRef<ObMutableDictionary> table = ObMutableDictionary::make();
    std::set<ObUInteger> arrayHashes, dictionaryHashes;
    for (ObInteger index = 0; index < keys; ++index) {
        table->setObject_forKey(num(index), array({num(index)}));
        table->setObject_forKey(num(-index), dict({{num(index), str("v")}}));
        arrayHashes.insert(array({num(index)})->hash());
        dictionaryHashes.insert(dict({{num(index), str("v")}})->hash());
    }
    EXPECT_EQ(table->count(), static_cast<ObUInteger>(2 * keys));
    EXPECT_EQ(arrayHashes.size(), static_cast<std::size_t>(keys));
    EXPECT_EQ(dictionaryHashes.size(), static_cast<std::size_t>(keys));
    for (ObInteger index = 0; index < keys; index += 997) {
        EXPECT_TRUE(table->objectForKey(array({num(index)}))->isEqual(num(index)));
        EXPECT_TRUE(table->objectForKey(dict({{num(index), str("v")}}))->isEqual(num(-index)));
    }
}

} // namespace
