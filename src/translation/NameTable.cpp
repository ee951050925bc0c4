// SPDX-License-Identifier: MIT
// Building the name tables' slot arrays, and the error for a name they do
// not hold.
#include "translation/NameTable.h"

#include "tessiva/object/ObFormat.h"

#include <climits>
#include <cstddef>
#include <cstdint>

namespace tessiva::detail {
namespace {

OB_CONSTANT_STRING(noName, "(no name)");

constexpr unsigned hashBits = sizeof(ObUInteger) * CHAR_BIT;

// The rows with one row per text, in first-seen order, each text with its
// last number.
std::vector<NameTable::Row> distinctTexts(const std::vector<NameTable::Row>& rows) {
    std::vector<NameTable::Row> distinct;
    distinct.reserve(rows.size());
    for (const NameTable::Row& row : rows) {
        const ObString& text = *row.first;
        bool seen = false;
        for (NameTable::Row& kept : distinct) {
            if (kept.first->ObString::hash() == text.ObString::hash() &&
                sameText(*kept.first, text)) {
                kept.second = row.second;
                seen = true;
                break;
            }
        }
        if (!seen)
            distinct.push_back(row);
    }
    return distinct;
}

// Whether (hash >> shift) & mask differs for every hash; `used` holds a bit
// per slot.
bool givesEachItsOwnSlot(const std::vector<ObUInteger>& hashes, unsigned shift, ObUInteger mask,
                         std::vector<std::uint64_t>& used) {
    for (ObUInteger word = 0; word <= mask / 64; ++word)
        used[word] = 0;
    for (const ObUInteger hash : hashes) {
        const ObUInteger index = (hash >> shift) & mask;
        const std::uint64_t bit = std::uint64_t{1} << (index % 64);
        if ((used[index / 64] & bit) != 0)
            return false;
        used[index / 64] |= bit;
    }
    return true;
}

} // namespace

const NameTable::Slot* NameTable::builtSlots() {
    ObDispatchOnce(once_, [this] { build(); });
    return slots_.load(std::memory_order_acquire);
}

void NameTable::build() {
    const std::vector<Row> rows = distinctTexts(rows_());
    // At most half full: a fuller table rarely has a layout to find.
    unsigned bits = 0;
    while ((ObUInteger{1} << bits) < 2 * rows.size())
        ++bits;
    std::vector<ObUInteger> hashes;
    hashes.reserve(rows.size());
    for (const Row& row : rows)
        hashes.push_back(row.first->ObString::hash());
    // The smallest table, and in it the first stretch of hash bits, that
    // gives every text a slot of its own.
    std::vector<std::uint64_t> used((ObUInteger{1} << maxSlotBits_) / 64 + 1);
    bool found = false;
    for (; bits <= maxSlotBits_ && !found; ++bits) {
        for (unsigned shift = 0; shift + bits <= hashBits && !found; ++shift) {
            if (givesEachItsOwnSlot(hashes, shift, (ObUInteger{1} << bits) - 1, used)) {
                shift_ = shift;
                mask_ = (ObUInteger{1} << bits) - 1;
                found = true;
            }
        }
    }
    // No layout within the size limit: probe from the home slot.
    if (!found) {
        probing_ = true;
        shift_ = 0;
        for (bits = 0; (ObUInteger{1} << bits) < 2 * rows.size();)
            ++bits;
        mask_ = (ObUInteger{1} << bits) - 1;
    }
    auto* slots = new Slot[mask_ + 1];
    for (ObUInteger i = 0; i <= mask_; ++i)
        slots[i] = {&noName, noName.ObString::hash(), 0};
    for (const Row& row : rows) {
        const ObUInteger hash = row.first->ObString::hash();
        ObUInteger index = (hash >> shift_) & mask_;
        while (slots[index].name != &noName)
            index = (index + 1) & mask_;
        slots[index] = {row.first, hash, row.second};
    }
    slots_.store(slots, std::memory_order_release);
}

ObInteger NameTable::probe(const ObString* name, ObUInteger hash) const noexcept {
    for (ObUInteger index = (((hash >> shift_) & mask_) + 1) & mask_;;
         index = (index + 1) & mask_) {
        const Slot& slot = slots_.load(std::memory_order_relaxed)[index];
        if (slot.name == &noName)
            return 0;
        if (slot.name == name || (slot.hash == hash && sameText(*slot.name, *name)))
            return slot.number;
    }
}

ObInteger NameTable::unknown(const ObRef<ObString>& name, ObRef<ObError>* error) const {
    if (error != nullptr)
        *error = KVErrorHelper::parameterErrorWithMessage(ObFormat(unknownNameFormat_, name));
    return 0;
}

void NameTable::raiseUnknown(const ObRef<ObString>& name) const {
    ObRef<ObError> error;
    unknown(name, &error);
    KVErrorHelper::raiseException(error);
}

} // namespace tessiva::detail
