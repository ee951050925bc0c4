// SPDX-License-Identifier: MIT
// Dictionaries: entries in insertion order, found through an open-addressing
// index of positions, so that a lookup is one hash and a short probe.
#include "tessiva/object/ObDictionary.h"

#include "ContainerHash.h"
#include "Description.h"
#include "ExactKind.h"
#include "GraphEquality.h"
#include "KeyedHash.h"
#include "tessiva/object/ObException.h"
#include "tessiva/object/ObFormat.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObString.h"

#include <bit>
#include <limits>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace {
using tessiva::detail::isExactly;

// A key's placement in the index is a value only this process can work out,
// so that the keys a peer sends cannot be aimed at one probe run (KeyedHash.h
// argues it): first the key's hash under the process's keyed mix, which keeps
// distinct hashes distinct; and for a string whose hash another key in that
// run already has, SipHash of its text. Equal keys get equal placements.
ObUInteger placement(const ObObject& key) noexcept {
    return tessiva::detail::keyedMix(key.hash());
}

// The string a key is, or null: only strings get the second placement.
const ObString* stringKey(const ObObject& key) noexcept {
    const std::type_info& type = typeid(key);
    if (isExactly<ObConstantString>(type) || isExactly<ObString>(type))
        return static_cast<const ObString*>(&key);
    if (isExactly<ObNumber>(type))
        return nullptr;
    return dynamic_cast<const ObString*>(&key);
}

ObUInteger textPlacement(const ObString& key) noexcept {
    return tessiva::detail::keyedHashBytes(key.text());
}

// The home slot of a placement in an index of `capacity` (a power of two)
// slots: its top bits, which depend on every bit of the hash.
ObUInteger homeSlot(ObUInteger placed, ObUInteger capacity) noexcept {
    const int shift = std::numeric_limits<ObUInteger>::digits - std::countr_zero(capacity);
    return placed >> shift;
}

// A scan of the run from the home slot of `placed`: the position of the key
// if it is stored there under `placed`; else emptySlot, the free slot that
// ends the run, and whether the run holds another key stored under the same
// placement (another key of the same hash).
struct Probe {
    std::uint32_t position;
    ObUInteger freeSlot;
    bool shared;
};

inline Probe probe(const std::vector<std::uint32_t>& slots,
                   const std::vector<ObUInteger>& placements,
                   const std::vector<ObDictionary::Entry>& entries, std::uint32_t emptySlot,
                   const ObObject& key, ObUInteger placed) noexcept {
    const ObUInteger mask = slots.size() - 1;
    bool shared = false;
    for (ObUInteger slot = homeSlot(placed, slots.size());; slot = (slot + 1) & mask) {
        const std::uint32_t position = slots[slot];
        if (position == emptySlot)
            return {emptySlot, slot, shared};
        if (placements[position] != placed)
            continue;
        // Identity first: keys are mostly the very constants a table holds.
        const ObObject* candidate = entries[position].first.get();
        if (candidate == &key || candidate->isEqual(&key))
            return {position, slot, shared};
        shared = true;
    }
}

// Where a key is, or would go, in a non-empty index: the scan from its first
// placement (`placed`), or, for a string whose run there holds another key of
// its hash, from its text's; with the placement that scan used.
struct Location {
    Probe probe;
    ObUInteger placed;
};

inline Location locate(const std::vector<std::uint32_t>& slots,
                       const std::vector<ObUInteger>& placements,
                       const std::vector<ObDictionary::Entry>& entries, std::uint32_t emptySlot,
                       const ObObject& key, ObUInteger placed) noexcept {
    Probe found = probe(slots, placements, entries, emptySlot, key, placed);
    if (found.position == emptySlot && found.shared) [[unlikely]] {
        if (const ObString* string = stringKey(key)) {
            placed = textPlacement(*string);
            found = probe(slots, placements, entries, emptySlot, key, placed);
        }
    }
    return {found, placed};
}

// What a dictionary filled one entry at a time makes room for first: the
// options and parameter dictionaries of a request hold about that many.
constexpr ObUInteger firstCapacity = 8;

void requirePresent(const char* className, const ObRef<ObObject>& key,
                    const ObRef<ObObject>& value) {
    if (!key)
        throw ObInvalidArgumentException(
            ObFormat("%s: attempt to insert an object under an absent key", className));
    if (!value)
        throw ObInvalidArgumentException(
            ObFormat("%s: attempt to insert an absent object for key %@", className, key));
}
} // namespace

ObRef<ObDictionary> ObDictionary::make(std::initializer_list<Entry> entries) {
    return make(std::vector<Entry>(entries));
}

ObRef<ObDictionary> ObDictionary::make(std::vector<Entry> entries) {
    for (const Entry& entry : entries)
        requirePresent("ObDictionary", entry.first, entry.second);
    auto dictionary = ObRef<ObDictionary>::adopt(new ObDictionary());
    dictionary->reserve(entries.size());
    for (Entry& entry : entries)
        dictionary->store(std::move(entry.first), std::move(entry.second));
    return dictionary;
}

ObRef<ObDictionary> ObDictionary::make() {
    return ObRef<ObDictionary>::adopt(new ObDictionary());
}

// Inline: it is the whole of a lookup, which tables do on every translation.
inline std::uint32_t ObDictionary::findEntry(const ObObject* key,
                                             ObUInteger placed) const noexcept {
    if (slots_.empty())
        return emptySlot;
    return locate(slots_, hashes_, entries_, emptySlot, *key, placed).probe.position;
}

ObObject* ObDictionary::peekObjectForKey(const ObObject* key) const noexcept {
    if (key == nullptr)
        return nullptr;
    const std::uint32_t position = findEntry(key, placement(*key));
    return position == emptySlot ? nullptr : entries_[position].second.get();
}

ObRef<ObObject> ObDictionary::objectForKey(const ObObject* key) const noexcept {
    return ObRef<ObObject>(peekObjectForKey(key));
}

void ObDictionary::reserve(ObUInteger count) {
    entries_.reserve(count);
    hashes_.reserve(count);
    if (count * 2 > slots_.size())
        rebuildIndex(count);
}

void ObDictionary::rebuildIndex(ObUInteger minimumCapacity) {
    ObUInteger capacity = 8;
    while (capacity < minimumCapacity * 2)
        capacity *= 2;
    // A copy: binding the constant itself to assign's reference would emit it
    // as a dynamic symbol in some builds and not in others.
    slots_.assign(capacity, std::uint32_t{emptySlot});
    // Placed anew in order, so that the first key of a hash takes the first
    // placement, as when the entries were stored, even after a removal.
    for (std::uint32_t position = 0; position < entries_.size(); ++position) {
        const ObObject& key = *entries_[position].first;
        const Location free = locate(slots_, hashes_, entries_, emptySlot, key, placement(key));
        slots_[free.probe.freeSlot] = position;
        hashes_[position] = free.placed;
    }
}

void ObDictionary::store(ObRef<ObObject> key, ObRef<ObObject> value) {
    const ObUInteger indexSize = slots_.size();
    Location location{{emptySlot, 0, false}, placement(*key)};
    if (indexSize != 0) {
        location = locate(slots_, hashes_, entries_, emptySlot, *key, location.placed);
        if (location.probe.position != emptySlot) {
            entries_[location.probe.position].second = std::move(value);
            return;
        }
    }
    // A dictionary filled one entry at a time starts with room for a few,
    // rather than growing its three arrays at one, two, four and eight.
    if (entries_.capacity() == 0)
        reserve(firstCapacity);
    entries_.emplace_back(std::move(key), std::move(value));
    hashes_.push_back(location.placed);
    if (entries_.size() * 2 > slots_.size()) {
        rebuildIndex(entries_.size());
        return;
    }
    // An index made just now holds nothing, and the home slot is free.
    const ObUInteger slot = slots_.size() == indexSize ? location.probe.freeSlot
                                                       : homeSlot(location.placed, slots_.size());
    slots_[slot] = static_cast<std::uint32_t>(entries_.size() - 1);
}

void ObDictionary::remove(const ObObject* key) noexcept {
    if (key == nullptr)
        return;
    const std::uint32_t position = findEntry(key, placement(*key));
    if (position == emptySlot)
        return;
    // Removal is rare: closing the gap keeps the order, and the index is
    // simply rebuilt over the remaining positions.
    entries_.erase(entries_.begin() + position);
    hashes_.erase(hashes_.begin() + position);
    rebuildIndex(entries_.size());
}

ObRef<ObString> ObDictionary::description() const {
    std::string text;
    tessiva::detail::appendDictionaryDescription(text, *this);
    return ObString::make(text);
}

ObUInteger ObDictionary::hash() const noexcept {
    // Equal dictionaries have equal keys in any order, so the sum of their
    // first placements is consistent with equals (which of two keys of one
    // hash took the second depends on the order they came in).
    ObUInteger sum = 0;
    for (const Entry& entry : entries_)
        sum += placement(*entry.first);
    return tessiva::detail::mixHash(entries_.size(), sum);
}

const char* ObDictionary::className() const noexcept {
    return "ObDictionary";
}

bool ObDictionary::equals(const ObObject& other) const noexcept {
    const auto* dictionary = dynamic_cast<const ObDictionary*>(&other);
    if (dictionary == nullptr || dictionary->count() != count())
        return false;
    tessiva::detail::EqualityWalk walk;
    for (const Entry& entry : entries_) {
        const ObObject* value;
        {
            const tessiva::detail::EqualityWalk::Pause lookup;
            value = dictionary->peekObjectForKey(entry.first.get());
        }
        if (value == nullptr || !walk.compare(*entry.second, *value))
            return false;
    }
    return walk.finish();
}

ObRef<ObMutableDictionary> ObMutableDictionary::make() {
    return ObRef<ObMutableDictionary>::adopt(new ObMutableDictionary());
}

void ObMutableDictionary::setObject_forKey(const ObRef<ObObject>& value,
                                           const ObRef<ObObject>& key) {
    requirePresent("ObMutableDictionary", key, value);
    store(key, value);
}

void ObMutableDictionary::removeObjectForKey(const ObRef<ObObject>& key) noexcept {
    remove(key.get());
}

ObRef<ObDictionary> ObMutableDictionary::copy() const {
    auto copied = ObRef<ObDictionary>::adopt(new ObDictionary());
    copied->entries_ = entries_;
    copied->hashes_ = hashes_;
    copied->slots_ = slots_;
    return copied;
}

const char* ObMutableDictionary::className() const noexcept {
    return "ObMutableDictionary";
}
