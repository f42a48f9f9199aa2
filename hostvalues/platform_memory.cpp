#include "hostvalues/platform_memory.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <cstdlib>
#endif

namespace qvt::platform {

#if defined(_WIN32)

void *AllocateZeroed(std::size_t size) { return GlobalAlloc(GMEM_ZEROINIT, size); }

void Free(void *memory) {
    if (memory) GlobalFree(memory);
}

void *Reallocate(void *memory, std::size_t size) {
    return GlobalReAlloc(memory, size, GMEM_MOVEABLE);
}

#else

void *AllocateZeroed(std::size_t size) { return std::calloc(1, size); }

void Free(void *memory) { std::free(memory); }

void *Reallocate(void *memory, std::size_t size) { return std::realloc(memory, size); }

#endif

}  // namespace qvt::platform
