// SPDX-License-Identifier: MIT
// The dispatch behind appendDescription, the bounds on a text form, and the
// text form of an integer.
#include "Description.h"

#include "ExactKind.h"
#include "FastThreadLocal.h"
#include "tessiva/object/ObNumber.h"
#include "tessiva/object/ObString.h"

#include <typeinfo>
#include <utility>

namespace tessiva::detail {
namespace {

// The containers being written on this thread. One walk spans the
// description() calls of other classes made inside it, so a cycle or a deep
// chain through them is bounded too.
struct DescriptionWalk {
    // Open containers, all kinds.
    std::size_t depth = 0;
    // The open ones among them that may hold themselves, outermost first. The
    // library's exact immutable containers never can: their items exist
    // before they do, so every cycle passes through a mutable container or
    // another class, and only those need looking for.
    std::size_t held = 0;
    // The size of the buffer past which containers stop.
    std::size_t limit = 0;
    const ObObject* ancestors[maxDescriptionDepth];
};

TESSIVA_FAST_THREAD_LOCAL DescriptionWalk* currentWalk = nullptr;

// The writers pass the buffer and the walk down as arguments, which keeps
// the common case, a shallow graph, as cheap as writing without bounds.
void writeNonLeaf(std::string& out, DescriptionWalk& walk, const ObObject& object,
                  const std::type_info& type);
void writeForeign(std::string& out, DescriptionWalk& walk, const ObObject& object);

// Strings and numbers, most of what containers hold, are written in the
// container's own loop rather than through a call each.
[[gnu::always_inline]] inline void writeItem(std::string& out, DescriptionWalk& walk,
                                             const ObObject& object) {
    const std::type_info& type = typeid(object);
    if (isExactly<ObConstantString>(type) || isExactly<ObString>(type))
        out += static_cast<const ObString&>(object).text();
    else if (isExactly<ObNumber>(type))
        appendIntegerDescription(out, static_cast<const ObNumber&>(object).integerValue());
    else
        writeNonLeaf(out, walk, object, type);
}

// False, with the marker written in the container's place, when it is one of
// its own ancestors or lies too deep.
template <bool mayHoldItself>
bool enter(std::string& out, DescriptionWalk& walk, const ObObject& container) {
    if constexpr (mayHoldItself) {
        for (std::size_t index = 0; index < walk.held; ++index) {
            if (walk.ancestors[index] == &container) {
                out += cycleMarker;
                return false;
            }
        }
    }
    if (walk.depth == maxDescriptionDepth) {
        out += cutMarker;
        return false;
    }
    ++walk.depth;
    if constexpr (mayHoldItself)
        walk.ancestors[walk.held++] = &container;
    return true;
}

template <bool mayHoldItself> void leave(DescriptionWalk& walk) noexcept {
    --walk.depth;
    if constexpr (mayHoldItself)
        --walk.held;
}

// Before an item after the first: false, with the marker written, once the
// text has grown past the bound. A container past the bound still writes its
// first item, so the text stays bounded by the length and depth together.
bool roomFor(std::string& out, const DescriptionWalk& walk) {
    if (out.size() < walk.limit)
        return true;
    out += cutMarker;
    return false;
}

template <bool mayHoldItself>
void writeArray(std::string& out, DescriptionWalk& walk, const ObArray& array) {
    if (!enter<mayHoldItself>(out, walk, array))
        return;
    out += '(';
    for (auto item = array.begin(), end = array.end(); item != end;) {
        writeItem(out, walk, **item);
        if (++item == end)
            break;
        out += ", ";
        if (!roomFor(out, walk))
            break;
    }
    out += ')';
    leave<mayHoldItself>(walk);
}

template <bool mayHoldItself>
void writeDictionary(std::string& out, DescriptionWalk& walk, const ObDictionary& dictionary) {
    if (!enter<mayHoldItself>(out, walk, dictionary))
        return;
    out += '{';
    for (auto entry = dictionary.begin(), end = dictionary.end(); entry != end;) {
        writeItem(out, walk, *entry->first);
        out += " = ";
        writeItem(out, walk, *entry->second);
        if (++entry == end)
            break;
        out += "; ";
        if (!roomFor(out, walk))
            break;
    }
    out += '}';
    leave<mayHoldItself>(walk);
}

void writeNonLeaf(std::string& out, DescriptionWalk& walk, const ObObject& object,
                  const std::type_info& type) {
    if (isExactly<ObDictionary>(type))
        writeDictionary<false>(out, walk, static_cast<const ObDictionary&>(object));
    else if (isExactly<ObMutableDictionary>(type))
        writeDictionary<true>(out, walk, static_cast<const ObDictionary&>(object));
    else if (isExactly<ObArray>(type))
        writeArray<false>(out, walk, static_cast<const ObArray&>(object));
    else
        writeForeign(out, walk, object);
}

// Another class's description() may format its contents with "%@": the walk
// is made this thread's current one while it runs, so that those contents
// count towards the same depth and ancestors.
void writeForeign(std::string& out, DescriptionWalk& walk, const ObObject& object) {
    struct Current {
        explicit Current(DescriptionWalk* walk) noexcept
            : saved(std::exchange(currentWalk, walk)) {}
        ~Current() { currentWalk = saved; }
        DescriptionWalk* const saved;
    } current(&walk);
    const std::size_t limit = walk.limit;
    out += object.description()->text();
    walk.limit = limit;
}

// Runs `write(walk)` with the walk of a description() under way on this
// thread, or with a new one; either way the text written here is bounded from
// its own start.
template <class Write> void withWalk(std::string& out, Write write) {
    if (DescriptionWalk* walk = currentWalk) {
        walk->limit = out.size() + maxDescriptionLength;
        write(*walk);
        return;
    }
    DescriptionWalk walk;
    walk.limit = out.size() + maxDescriptionLength;
    write(walk);
}

} // namespace

void appendDescription(std::string& out, const ObObject& object) {
    withWalk(out, [&](DescriptionWalk& walk) { writeItem(out, walk, object); });
}

void appendArrayDescription(std::string& out, const ObArray& array) {
    // Also the text of subclasses, which may hold themselves.
    withWalk(out, [&](DescriptionWalk& walk) { writeArray<true>(out, walk, array); });
}

void appendDictionaryDescription(std::string& out, const ObDictionary& dictionary) {
    withWalk(out, [&](DescriptionWalk& walk) { writeDictionary<true>(out, walk, dictionary); });
}

void appendMultiDigitInteger(std::string& out, ObInteger value) {
    appendDecimal(out, value);
}

} // namespace tessiva::detail
