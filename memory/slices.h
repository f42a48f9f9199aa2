// Copies of parts of a block, joins, fills, and blocks made from raw memory.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

REALobject MidQVT(REALobject block, RBInteger offset);
REALobject MidQVT(REALobject block, RBInteger offset, RBInteger length);
REALobject LeftQVT(REALobject block, RBInteger length);
REALobject RightQVT(REALobject block, RBInteger length);
REALobject AppendQVT(REALobject block, REALobject other);
void FillBytesQVT(REALobject block, RBInteger offset, RBInteger count, RBInteger value);
void InvertBytesQVT(REALobject block, RBInteger offset, RBInteger count);
REALobject NewMemoryBlockFromPtrQVT(RBInteger ptr);
REALobject NewMemoryBlockWithBytesQVT(void *data, RBInteger size);

}  // namespace qvt
