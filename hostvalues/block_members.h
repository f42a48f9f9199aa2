// A second way to blocks: through the public members of the host's class
// MemoryBlock instead of the plug-in interface's block entries. Each does
// the job of its namesake in blocks.h.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// A new block by its constructor; nil unless the host then reports at least
// `size` bytes.
REALobject NewBlockByConstructor(int64_t size);
// A block over `memory` by conversion from Ptr; nil for null.
REALobject WrapPtrByConversion(const void *memory);
// The block's address by conversion to Ptr; null for nil.
void *GetBlockPtrByConversion(REALobject block);
// The property Size; 0 for nil or when it can't be read.
int64_t GetBlockSizeByProperty(REALobject block);

}  // namespace qvt
