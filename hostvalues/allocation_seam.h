// For tests only: a hook that AllocateMemory asks before it allocates. It is
// a constant-initialised null pointer, so the library runs nothing at load
// and pays one relaxed load per allocation while nobody sets it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace qvt::seams {

// Answers true when the allocation of `size` bytes is to fail.
using AllocationFailure = bool (*)(int64_t size);
extern constinit std::atomic<AllocationFailure> gFailAllocation;

// Stands in for the platform's allocator behind AllocateMemory, FreeMemory
// and MemoryBlockQVT's Resize (with its contract), such as one that fences
// every allocation. Set before the first allocation, if at all.
struct Allocator {
    void *(*allocateZeroed)(std::size_t size);
    void (*free)(void *memory);
    void *(*reallocate)(void *memory, std::size_t size);
};
extern constinit std::atomic<const Allocator *> gAllocator;

}  // namespace qvt::seams
