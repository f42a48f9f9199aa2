// Zero-filled memory of 1 to 0x7FFFFFFF bytes, and plain fills.
#pragma once

#include <cstdint>

namespace qvt {

// Null for a size of 0 or below, above 0x7FFFFFFF, or when memory runs out.
void *AllocateMemory(int64_t size);
void FreeMemory(void *memory);
void ClearMemory(void *memory, int64_t count);
void SetMemory(void *memory, uint8_t value, int64_t count);

// Gives AllocateMemory back to FreeMemory at the end of a scope.
struct FreeMemoryDeleter {
    void operator()(void *memory) const { FreeMemory(memory); }
};

}  // namespace qvt
