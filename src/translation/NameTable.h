// SPDX-License-Identifier: MIT
// NameTable: a process-wide table from VR names to service numbers, built on
// first use under its own guard and only read afterwards.
#pragma once

#include "tessiva/brindle/KVErrorHelper.h"
#include "tessiva/object/ObError.h"
#include "tessiva/object/ObString.h"
#include "tessiva/os/ObOnce.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace tessiva::detail {

// One machine word's worth of bytes, from any alignment.
template <class Word> Word loadWord(const char* bytes) noexcept {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// Equal lengths and bytes, compared in words: names are short, and a call
// to memcmp would cost more than the comparison.
inline bool sameText(const ObString& a, const ObString& b) noexcept {
    const ObUInteger length = a.length();
    if (length != b.length())
        return false;
    const char* x = a.cString();
    const char* y = b.cString();
    if (length >= 8) {
        // Whole words, then the last word, which may overlap the one before.
        for (ObUInteger i = 0; i + 8 < length; i += 8) {
            if (loadWord<std::uint64_t>(x + i) != loadWord<std::uint64_t>(y + i))
                return false;
        }
        return loadWord<std::uint64_t>(x + length - 8) == loadWord<std::uint64_t>(y + length - 8);
    }
    if (length >= 4)
        return loadWord<std::uint32_t>(x) == loadWord<std::uint32_t>(y) &&
               loadWord<std::uint32_t>(x + length - 4) == loadWord<std::uint32_t>(y + length - 4);
    for (ObUInteger i = 0; i < length; ++i) {
        if (x[i] != y[i])
            return false;
    }
    return true;
}

class NameTable {
public:
    using Row = std::pair<ObString*, ObInteger>;
    // Reads the rows when the table is built, so that exported constants
    // contribute the values they hold at that moment. A text given twice
    // keeps the later number.
    using Rows = std::vector<Row> (*)();

    // A table searches layouts of up to 2^maxSlotBits slots for one that gives
    // every text a slot of its own, and probes from the home slot otherwise.
    constexpr NameTable(Rows rows, const char* unknownNameFormat,
                        unsigned maxSlotBits = 10) noexcept
        : rows_(rows), unknownNameFormat_(unknownNameFormat), maxSlotBits_(maxSlotBits) {}

    // The number for the name, or 0 for an unknown or absent name. Names are
    // told apart by their text alone, whatever their class.
    ObInteger number(const ObString* name) {
        const Slot* slots = slots_.load(std::memory_order_acquire);
        if (slots == nullptr) [[unlikely]]
            slots = builtSlots();
        if (name == nullptr)
            return 0;
        // The string's stored hash, read without a virtual call.
        const ObUInteger hash = name->ObString::hash();
        const Slot& slot = slots[(hash >> shift_) & mask_];
        // Every known text has a slot of its own, so one slot decides, unless
        // the layout had to fall back to probing.
        if (slot.name == name || (slot.hash == hash && sameText(*slot.name, *name)))
            return slot.number;
        return probing_ ? probe(name, hash) : 0;
    }

    // As number(); a given out-parameter receives absent, or the parameter
    // error made from the unknown-name format.
    ObInteger translate(const ObRef<ObString>& name, ObRef<ObError>* error) {
        const ObInteger found = number(name.get());
        if (found == 0)
            return unknown(name, error);
        if (error != nullptr && *error)
            *error = nullptr;
        return found;
    }

    // As number(), raising the parameter error for an unknown or absent name;
    // 0 should raising ever return.
    ObInteger translateOrRaise(const ObRef<ObString>& name) {
        const ObInteger found = number(name.get());
        if (found == 0)
            raiseUnknown(name);
        return found;
    }

private:
    // An empty slot holds a string no row has, numbered 0, so that a lookup
    // landing there needs no test of its own.
    struct Slot {
        const ObString* name;
        ObUInteger hash;
        ObInteger number;
    };

    // Builds the table on first use; returns its slots.
    const Slot* builtSlots();
    void build();
    ObInteger probe(const ObString* name, ObUInteger hash) const noexcept;
    // The failure paths, out of line: 0, and the error when one is wanted.
    ObInteger unknown(const ObRef<ObString>& name, ObRef<ObError>* error) const;
    void raiseUnknown(const ObRef<ObString>& name) const;

    Rows rows_;
    const char* unknownNameFormat_;
    unsigned maxSlotBits_;
    ObOnceToken once_;
    // Published by build() after the layout below; never released.
    std::atomic<const Slot*> slots_ = nullptr;
    ObUInteger mask_ = 0;
    unsigned shift_ = 0;
    bool probing_ = false;
};

} // namespace tessiva::detail
