#include "hostvalues/allocation.h"

#include <cstring>

#include "hostvalues/allocation_seam.h"
#include "hostvalues/platform_memory.h"

namespace qvt {

namespace seams {
constinit std::atomic<AllocationFailure> gFailAllocation{nullptr};
}  // namespace seams

void *AllocateMemory(int64_t size) {
    if (size <= 0 || size > 0x7FFFFFFF) return nullptr;
    if (auto fail = seams::gFailAllocation.load(std::memory_order_relaxed); fail && fail(size)) {
        return nullptr;
    }
    return platform::AllocateZeroed(static_cast<std::size_t>(size));
}

void FreeMemory(void *memory) { platform::Free(memory); }

void ClearMemory(void *memory, int64_t count) { SetMemory(memory, 0, count); }

void SetMemory(void *memory, uint8_t value, int64_t count) {
    if (count > 0) std::memset(memory, value, static_cast<std::size_t>(count));
}

}  // namespace qvt
