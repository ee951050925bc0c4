// SPDX-License-Identifier: MIT
// ObDictionary: an immutable map from keys to present objects, enumerated in
// insertion order, with keys compared by value (isEqual and hash).
#pragma once

#include "tessiva/object/ObRef.h"

#include <cstdint>
#include <initializer_list>
#include <utility>
#include <vector>

class ObMutableDictionary;

class TESSIVA_PLATFORM_API ObDictionary : public ObObject {
public:
    using Entry = std::pair<ObRef<ObObject>, ObRef<ObObject>>;
    using const_iterator = std::vector<Entry>::const_iterator;

    // Builds the dictionary in the order given; a repeated key keeps its first
    // place and takes the later value. An absent key or value raises
    // ObInvalidArgumentException.
    static ObRef<ObDictionary> make(std::initializer_list<Entry> entries);
    static ObRef<ObDictionary> make(std::vector<Entry> entries);
    // The empty dictionary.
    static ObRef<ObDictionary> make();

    ObUInteger count() const noexcept { return entries_.size(); }
    // The value under a key equal to the one given; absent when there is none
    // or the key is absent. One hash lookup.
    ObRef<ObObject> objectForKey(const ObObject* key) const noexcept;
    ObRef<ObObject> objectForKey(const ObRef<ObObject>& key) const noexcept {
        return objectForKey(key.get());
    }
    // As objectForKey, without taking a share of the value.
    ObObject* peekObjectForKey(const ObObject* key) const noexcept;

    // (key, value) pairs in enumeration order.
    const_iterator begin() const noexcept { return entries_.begin(); }
    const_iterator end() const noexcept { return entries_.end(); }

    // "{key = value; key = value}" in enumeration order; "{}" when empty;
    // cycles and very deep or long graphs are marked as ObArray's are.
    ObRef<ObString> description() const override;
    // From the count and the keys, whatever their order. Like the index, it
    // is keyed with a secret of the process, so it differs between processes.
    ObUInteger hash() const noexcept override;
    const char* className() const noexcept override;

protected:
    ObDictionary() noexcept = default;
    bool equals(const ObObject& other) const noexcept override;

    // Inserts or replaces; the caller has checked that both are present.
    void store(ObRef<ObObject> key, ObRef<ObObject> value);
    void remove(const ObObject* key) noexcept;
    void reserve(ObUInteger count);

private:
    friend class ObMutableDictionary;
    static constexpr std::uint32_t emptySlot = UINT32_MAX;

    // Internal helpers stay out of the exported surface, whatever the optimiser
    // decides to inline.
    // The key's position, or emptySlot; `placed` is its first placement.
    TESSIVA_PLATFORM_NO_EXPORT std::uint32_t findEntry(const ObObject* key,
                                                       ObUInteger placed) const noexcept;
    TESSIVA_PLATFORM_NO_EXPORT void rebuildIndex(ObUInteger minimumCapacity);

    std::vector<Entry> entries_;
    // The keys' placement values (keyed hashes), by position, so that probes
    // compare numbers first.
    std::vector<ObUInteger> hashes_;
    // Open-addressing index into entries_; its size is zero or a power of two.
    std::vector<std::uint32_t> slots_;
};

// ObMutableDictionary: a dictionary that can change. Not safe for concurrent
// use without the caller's own lock, like any other mutable container.
class TESSIVA_PLATFORM_API ObMutableDictionary : public ObDictionary {
public:
    static ObRef<ObMutableDictionary> make();

    // Inserts or replaces (a replaced key keeps its place). An absent key or
    // value raises ObInvalidArgumentException.
    void setObject_forKey(const ObRef<ObObject>& value, const ObRef<ObObject>& key);
    void removeObjectForKey(const ObRef<ObObject>& key) noexcept;
    // An immutable dictionary with the same entries.
    ObRef<ObDictionary> copy() const;

    const char* className() const noexcept override;

private:
    ObMutableDictionary() noexcept = default;
};
