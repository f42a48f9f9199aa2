// The platform's allocator for memory that can be given back and resized.
#pragma once

#include <cstddef>

namespace qvt::platform {

// GlobalAlloc with GMEM_ZEROINIT on Windows; a zero-filled allocation elsewhere.
void *AllocateZeroed(std::size_t size);
// GlobalFree on Windows; free elsewhere.
void Free(void *memory);
// GlobalReAlloc with GMEM_MOVEABLE on Windows; realloc elsewhere. Bytes
// gained are not cleared. Null on failure, the old memory left as it was.
void *Reallocate(void *memory, std::size_t size);

}  // namespace qvt::platform
