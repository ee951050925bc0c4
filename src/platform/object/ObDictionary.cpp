// Dictionaries: entries in insertion order, found through an open-addressing
// index of positions, so that a lookup is one hash and a short probe.
#include "tessiva/object/ObDictionary.h"

#include "ContainerHash.h"
#include "Description.h"
#include "GraphEquality.h"
#include "tessiva/object/ObException.h"
#include "tessiva/object/ObFormat.h"

#include <bit>
#include <limits>
#include <string>

namespace {
// The home slot of a hash in an index of `capacity` (a power of two) slots.
// Hashes often differ only in their high bits (addresses, multiples of a power
// of two), so the slot comes from the top bits of a Fibonacci product, which
// depend on every bit of the hash, rather than from its low bits.
ObUInteger homeSlot(ObUInteger hash, ObUInteger capacity) noexcept {
    constexpr ObUInteger golden = sizeof(ObUInteger) == 8
                                      ? static_cast<ObUInteger>(0x9E3779B97F4A7C15ULL)
                                      : static_cast<ObUInteger>(0x9E3779B9UL);
    const int shift = std::numeric_limits<ObUInteger>::digits - std::countr_zero(capacity);
    return (hash * golden) >> shift;
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
inline std::uint32_t ObDictionary::findEntry(const ObObject* key, ObUInteger hash) const noexcept {
    if (slots_.empty())
        return emptySlot;
    const ObUInteger mask = slots_.size() - 1;
    for (ObUInteger slot = homeSlot(hash, slots_.size());; slot = (slot + 1) & mask) {
        const std::uint32_t position = slots_[slot];
        if (position == emptySlot)
            return emptySlot;
        // Identity first: keys are mostly the very constants a table holds.
        const ObObject* candidate = entries_[position].first.get();
        if (hashes_[position] == hash && (candidate == key || candidate->isEqual(key)))
            return position;
    }
}

ObObject* ObDictionary::peekObjectForKey(const ObObject* key) const noexcept {
    if (key == nullptr)
        return nullptr;
    const std::uint32_t position = findEntry(key, key->hash());
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
    const ObUInteger mask = capacity - 1;
    for (std::uint32_t position = 0; position < entries_.size(); ++position) {
        ObUInteger slot = homeSlot(hashes_[position], capacity);
        while (slots_[slot] != emptySlot)
            slot = (slot + 1) & mask;
        slots_[slot] = position;
    }
}

void ObDictionary::store(ObRef<ObObject> key, ObRef<ObObject> value) {
    const ObUInteger hash = key->hash();
    const std::uint32_t position = findEntry(key.get(), hash);
    if (position != emptySlot) {
        entries_[position].second = std::move(value);
        return;
    }
    // A dictionary filled one entry at a time starts with room for a few,
    // rather than growing its three arrays at one, two, four and eight.
    if (entries_.capacity() == 0)
        reserve(firstCapacity);
    entries_.emplace_back(std::move(key), std::move(value));
    hashes_.push_back(hash);
    if (entries_.size() * 2 > slots_.size()) {
        rebuildIndex(entries_.size());
        return;
    }
    const ObUInteger mask = slots_.size() - 1;
    ObUInteger slot = homeSlot(hash, slots_.size());
    while (slots_[slot] != emptySlot)
        slot = (slot + 1) & mask;
    slots_[slot] = static_cast<std::uint32_t>(entries_.size() - 1);
}

void ObDictionary::remove(const ObObject* key) noexcept {
    if (key == nullptr)
        return;
    const std::uint32_t position = findEntry(key, key->hash());
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
    // The keys' hashes are at hand and equal dictionaries have equal keys in
    // any order, so their sum is both cheap and consistent with equals.
    ObUInteger sum = 0;
    for (const ObUInteger keyHash : hashes_)
        sum += keyHash;
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
