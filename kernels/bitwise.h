// AND, OR and exclusive OR of two blocks over the shorter one's length,
// into the caller's Dest or a new block, which is returned; nil after a
// raise or for an empty block. Dest may be either operand.
#pragma once

#include "abi/plugin_abi.h"

namespace qvt {

REALobject BitwiseAndQVT(REALobject source, REALobject second, REALobject dest);
REALobject BitwiseOrQVT(REALobject source, REALobject second, REALobject dest);
REALobject BitwiseXOrQVT(REALobject source, REALobject second, REALobject dest);

}  // namespace qvt
