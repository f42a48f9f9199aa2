// Reversing the order of bits or bytes of a block in place. Bits are counted
// as everywhere: bit k lies in byte k / 8 at mask 1 << (7 - k % 8).
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// The ranges are the caller's to keep inside the block: only a nil receiver
// is refused.
void MirrorBitsQVT(REALobject block, RBInteger offsetBit, RBInteger lengthBit);
void MirrorBytesQVT(REALobject block, RBInteger offsetByte, RBInteger lengthByte);
void MirrorBitsInBytesQVT(REALobject block, RBInteger offsetByte, RBInteger lengthByte);

// Reverses `length` bytes from `start`; `length` must be above 0.
void MirrorByteRange(uint8_t *start, intptr_t length);

}  // namespace qvt
