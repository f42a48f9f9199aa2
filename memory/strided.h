// Moving data between two blocks with a change of layout: runs of bytes or
// bits gathered from a fixed distance, and bits widened to bytes. Nothing is
// compared with a block's size; the ranges are the caller's to keep inside.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// The receiver is the destination. `stepCount` is the distance from one run
// to the next in the source, with its sign.
bool CopyNthBytesQVT(REALobject block, REALobject source, RBInteger sourceOffsetBytes,
                     RBInteger destinationOffsetBytes, RBInteger byteCount, RBInteger stepCount,
                     RBInteger numberOfSteps);
// The receiver is the destination. `stepCount` is the gap skipped after each
// run; destination bytes are written whole, with 0 in the bits not copied.
bool CopyNthBitsQVT(REALobject block, REALobject source, RBInteger sourceOffsetBits,
                    RBInteger destinationOffsetBits, RBInteger bitCount, RBInteger stepCount,
                    RBInteger numberOfSteps);
// The receiver is the source, read in whole groups of 4 bytes. Values beyond
// a byte spill into the following bytes of the same group of four.
bool ExpandBitsQVT(REALobject block, REALobject dest, RBInteger sourceByteCount, RBInteger lowValue,
                   RBInteger highValue);

}  // namespace qvt
