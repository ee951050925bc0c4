// SPDX-License-Identifier: MIT
// The per-thread work list behind container equality.
#include "GraphEquality.h"

#include "FastThreadLocal.h"

#include <cstdint>
#include <functional>
#include <unordered_set>

namespace tessiva::detail {
namespace {
// Ordinary graphs finish long before this many pairs; past it, pairs are
// remembered, so that graphs which hold themselves finish too.
constexpr std::size_t pairsBeforeMemo = 4096;

struct PairHash {
    std::size_t operator()(const std::pair<const ObObject*, const ObObject*>& pair) const noexcept {
        return std::hash<const void*>()(pair.first) * 31 + std::hash<const void*>()(pair.second);
    }
};

TESSIVA_FAST_THREAD_LOCAL std::vector<std::pair<const ObObject*, const ObObject*>>* runningList =
    nullptr;
} // namespace

EqualityWalk::EqualityWalk() noexcept : outermost_(runningList == nullptr) {
    if (outermost_)
        runningList = &pending_;
}

EqualityWalk::~EqualityWalk() {
    if (outermost_)
        runningList = nullptr;
}

bool EqualityWalk::compare(const ObObject& item, const ObObject& other) noexcept {
    if (&item == &other)
        return true;
    // The outermost compares directly: an item that is a container only
    // queues its own items, so the stack never grows past two levels.
    if (outermost_)
        return item.isEqual(&other);
    runningList->emplace_back(&item, &other);
    return true;
}

bool EqualityWalk::finish() noexcept {
    if (!outermost_)
        return true;
    // A pair met again is equal unless another pair proves otherwise: its
    // items were queued when it was first met.
    std::unordered_set<std::pair<const ObObject*, const ObObject*>, PairHash> seen;
    std::size_t compared = 0;
    while (!pending_.empty()) {
        const auto pair = pending_.back();
        pending_.pop_back();
        if (++compared > pairsBeforeMemo && !seen.insert(pair).second)
            continue;
        if (!pair.first->isEqual(pair.second))
            return false;
    }
    return true;
}

EqualityWalk::Pause::Pause() noexcept : saved_(std::exchange(runningList, nullptr)) {}

EqualityWalk::Pause::~Pause() {
    runningList = saved_;
}

} // namespace tessiva::detail
