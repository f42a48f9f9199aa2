// Moving bytes inside a block, between blocks, and between a block and raw
// memory. Every move behaves like memmove: overlapping ranges end up with the
// bytes the source held before the call. Offsets and counts are taken on
// trust; nothing is raised.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

void CopyBytesQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, RBInteger destOfs);
// Nothing happens when either block is nil or has no memory.
void CopyBytesQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, REALobject destBlk,
                  RBInteger destOfs);
void CopyBytesToMacPtrQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, void *destPtr);
void CopyBytesFromMacPtrQVT(REALobject block, void *srcPtr, RBInteger numBytes, RBInteger destOfs);

// Handles don't exist here: these accept anything and touch nothing.
void CopyBytesToMacHandleQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes,
                             RBInteger destHandle);
void CopyBytesFromMacHandleQVT(REALobject block, RBInteger srcHandle, RBInteger numBytes,
                               RBInteger destOfs);

}  // namespace qvt
