// Moving bytes inside a block, between blocks, and between a block and raw
// memory. Every move behaves like memmove: overlapping ranges end up with the
// bytes the source held before the call. Offsets and counts are taken on
// trust; nothing is raised.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

void CopyBytesQVT(REALobject block, intptr_t srcOfs, intptr_t numBytes, intptr_t destOfs);
// Nothing happens when either block is nil or has no memory.
void CopyBytesQVT(REALobject block, intptr_t srcOfs, intptr_t numBytes, REALobject destBlk,
                  intptr_t destOfs);
void CopyBytesToMacPtrQVT(REALobject block, intptr_t srcOfs, intptr_t numBytes, void *destPtr);
void CopyBytesFromMacPtrQVT(REALobject block, void *srcPtr, intptr_t numBytes, intptr_t destOfs);

// Handles don't exist here: these accept anything and touch nothing.
void CopyBytesToMacHandleQVT(REALobject block, intptr_t srcOfs, intptr_t numBytes,
                             intptr_t destHandle);
void CopyBytesFromMacHandleQVT(REALobject block, intptr_t srcHandle, intptr_t numBytes,
                               intptr_t destOfs);

}  // namespace qvt
