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
RBInteger FindByteQVT(REALobject block, REALarray values, RBInteger startByteOffset);

// Offsets and counts are taken on trust: the range must lie inside the block.
RBInteger FindByteQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, RBInteger byteValue);
RBInteger FindNotByteQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes,
                         RBInteger byteValue);
bool BytesEqualQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, REALobject destBlk,
                   RBInteger destOfs);
// Raises only for negative numbers.
bool BytesZeroQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes);

// Clipped to the block when its size is known.
RBInteger FindStringQVT(REALobject block, RBInteger srcOfs, RBInteger maxBytes, REALstring target);
RBInteger FindBytesQVT(REALobject block, RBInteger srcOfs, RBInteger maxBytes, REALobject target,
                      RBInteger targOfs, RBInteger targLen);

}  // namespace qvt
