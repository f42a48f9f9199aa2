#include "hostvalues/platform_memory.h"

#include "hostvalues/allocation_seam.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <cstdlib>
#endif

namespace qvt {

namespace seams {
constinit std::atomic<const Allocator *> gAllocator{nullptr};
}  // namespace seams

namespace platform {

namespace {

#if defined(_WIN32)

void *SystemAllocateZeroed(std::size_t size) { return GlobalAlloc(GMEM_ZEROINIT, size); }

void SystemFree(void *memory) {
    if (memory) GlobalFree(memory);
}

void *SystemReallocate(void *memory, std::size_t size) {
    return GlobalReAlloc(memory, size, GMEM_MOVEABLE);
}

#else

void *SystemAllocateZeroed(std::size_t size) { return std::calloc(1, size); }

void SystemFree(void *memory) { std::free(memory); }

void *SystemReallocate(void *memory, std::size_t size) { return std::realloc(memory, size); }

#endif

constexpr seams::Allocator kSystem{&SystemAllocateZeroed, &SystemFree, &SystemReallocate};

const seams::Allocator &Current() {
    const seams::Allocator *replacement = seams::gAllocator.load(std::memory_order_relaxed);
    return replacement != nullptr ? *replacement : kSystem;
}

}  // namespace

void *AllocateZeroed(std::size_t size) { return Current().allocateZeroed(size); }

void Free(void *memory) { Current().free(memory); }

void *Reallocate(void *memory, std::size_t size) { return Current().reallocate(memory, size); }

}  // namespace platform

}  // namespace qvt
