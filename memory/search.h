// Searching a block for bytes and comparing ranges of bytes. Positions count
// from the start of the block. -1 means nothing found; -2 that the arguments
// allowed no search (FindStringQVT and FindBytesQVT only).
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

inline constexpr intptr_t kNotFound = -1;
inline constexpr intptr_t kBadSearchArguments = -2;

// The earliest position from `startByteOffset` holding any of the values;
// raises on a nil array or block and on an offset outside the block.
intptr_t FindByteQVT(REALobject block, REALarray values, intptr_t startByteOffset);

// Offsets and counts are taken on trust: the range must lie inside the block.
intptr_t FindByteQVT(REALobject block, intptr_t srcOfs, intptr_t numBytes, intptr_t byteValue);
intptr_t FindNotByteQVT(REALobject block, intptr_t srcOfs, intptr_t numBytes, intptr_t byteValue);
bool BytesEqualQVT(REALobject block, intptr_t srcOfs, intptr_t numBytes, REALobject destBlk,
                   intptr_t destOfs);
// Raises only for negative numbers.
bool BytesZeroQVT(REALobject block, intptr_t srcOfs, intptr_t numBytes);

// Clipped to the block when its size is known.
intptr_t FindStringQVT(REALobject block, intptr_t srcOfs, intptr_t maxBytes, REALstring target);
intptr_t FindBytesQVT(REALobject block, intptr_t srcOfs, intptr_t maxBytes, REALobject target,
                      intptr_t targOfs, intptr_t targLen);

}  // namespace qvt
