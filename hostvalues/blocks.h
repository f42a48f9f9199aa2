// Making host memory blocks, and reading one's pointer and size without a
// nil test of the caller's own. Every block returned carries one reference
// for the caller.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// The largest size NewBlock asks the host for.
inline constexpr int64_t kLargestBlockSize = 0x7FFFFFFE;

// Null for a nil block.
void *GetBlockPtr(REALobject block);
// 0 for a nil block; negative where the host does not know the size.
int64_t GetBlockSize(REALobject block);

// An empty block of `size` bytes; nil, silently, for a size outside
// 0 .. kLargestBlockSize or when the host has none to give.
REALobject NewBlock(int64_t size);

// A block over memory the host does not own, of unknown size; nil for null.
REALobject WrapPtr(const void *memory);

// A new block holding a copy of `size` bytes from `source`. Nil without a
// word for a null source or a size below 1; when the block can't be had,
// OutOfMemoryException and nil.
REALobject REALBuildMemoryblock(const void *source, int64_t size);

}  // namespace qvt
