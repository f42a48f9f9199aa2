// For tests only: a hook that AllocateMemory asks before it allocates. It is
// a constant-initialised null pointer, so the library runs nothing at load
// and pays one relaxed load per allocation while nobody sets it.
#pragma once

#include <atomic>
#include <cstdint>

namespace qvt::seams {

// Answers true when the allocation of `size` bytes is to fail.
using AllocationFailure = bool (*)(int64_t size);
extern constinit std::atomic<AllocationFailure> gFailAllocation;

}  // namespace qvt::seams
