// SPDX-License-Identifier: MIT
// The replaced global allocation functions and their counters. Each thread
// counts in a slot of its own, on its own cache line, so that counting adds
// no sharing between threads that would distort the two-thread benchmarks.
#include "AllocationCounter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

struct alignas(64) Slot {
    std::atomic<std::uint64_t> allocations{0};
    std::atomic<bool> taken{false};
};

// A thread takes a free slot on its first allocation and gives it back when
// it ends, so that the threads a benchmark run starts and ends reuse a few
// slots instead of running out. Counts stay in the slot, so that process
// totals only ever grow. Should more threads live at once than there are
// slots, the extra ones share the last, which stays right, only slower.
constexpr std::size_t slotCount = 64;
Slot slots[slotCount];

Slot* takeSlot() noexcept {
    for (Slot& slot : slots) {
        bool expected = false;
        if (slot.taken.compare_exchange_strong(expected, true, std::memory_order_acquire))
            return &slot;
    }
    return &slots[slotCount - 1];
}

// Constant-initialised, so that it is usable inside operator new at any time;
// its destructor, registered on first use, frees no memory through operator
// delete.
struct SlotOfThread {
    Slot* slot = nullptr;
    ~SlotOfThread() {
        if (slot != nullptr && slot != &slots[slotCount - 1])
            slot->taken.store(false, std::memory_order_release);
    }
};
thread_local SlotOfThread ownSlot;

Slot& slotOfThisThread() noexcept {
    if (ownSlot.slot == nullptr)
        ownSlot.slot = takeSlot();
    return *ownSlot.slot;
}

void* allocate(std::size_t size) noexcept {
    slotOfThisThread().allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) noexcept {
    slotOfThisThread().allocations.fetch_add(1, std::memory_order_relaxed);
    const auto align = static_cast<std::size_t>(alignment);
    // aligned_alloc wants a size that is a multiple of the alignment.
    const std::size_t rounded = (size + align - 1) / align * align;
    return std::aligned_alloc(align, rounded == 0 ? align : rounded);
}

void* allocateOrThrow(std::size_t size) {
    if (void* memory = allocate(size))
        return memory;
    throw std::bad_alloc();
}

void* allocateAlignedOrThrow(std::size_t size, std::align_val_t alignment) {
    if (void* memory = allocateAligned(size, alignment))
        return memory;
    throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocateAlignedOrThrow(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocateAlignedOrThrow(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocateAligned(size, alignment);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(memory);
}

namespace tessiva::bench {

std::uint64_t threadAllocations() noexcept {
    return slotOfThisThread().allocations.load(std::memory_order_relaxed);
}

std::uint64_t processAllocations() noexcept {
    std::uint64_t total = 0;
    for (const Slot& slot : slots)
        total += slot.allocations.load(std::memory_order_relaxed);
    return total;
}

AllocationProbe::AllocationProbe(benchmark::State& state, AllocationScope scope) noexcept
    : state_(state), scope_(scope), start_(read()) {}

void AllocationProbe::finish() {
    state_.counters["allocs/op"] = benchmark::Counter(static_cast<double>(read() - start_),
                                                      benchmark::Counter::kAvgIterations);
}

std::uint64_t AllocationProbe::read() const noexcept {
    return scope_ == AllocationScope::Thread ? threadAllocations() : processAllocations();
}

} // namespace tessiva::bench
