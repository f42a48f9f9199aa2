// Picking bits out of a block by a byte mask, and moving the bits two blocks
// have in common into a third. Each returns its result block: the caller's
// Dest, which must hold the processed length, or a new block of exactly
// that length; nil after a raise or for an empty block.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// result = receiver & m over the whole receiver, m the low 8 bits of `mask`.
REALobject ExtractBitsQVT(REALobject source, RBInteger mask, REALobject dest);
// Over the shorter of the two blocks: result = t, receiver &= ~t and
// second &= ~t, with t = receiver & second (& m).
REALobject AndBitsQVT(REALobject source, REALobject second, REALobject dest);
REALobject AndBitsQVT(REALobject source, REALobject second, RBInteger mask, REALobject dest);

}  // namespace qvt
