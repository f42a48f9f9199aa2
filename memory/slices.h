// Copies of parts of a block, joins, fills, and blocks made from raw memory.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

REALobject MidQVT(REALobject block, intptr_t offset);
REALobject MidQVT(REALobject block, intptr_t offset, intptr_t length);
REALobject LeftQVT(REALobject block, intptr_t length);
REALobject RightQVT(REALobject block, intptr_t length);
REALobject AppendQVT(REALobject block, REALobject other);
void FillBytesQVT(REALobject block, intptr_t offset, intptr_t count, intptr_t value);
void InvertBytesQVT(REALobject block, intptr_t offset, intptr_t count);
REALobject NewMemoryBlockFromPtrQVT(intptr_t ptr);
REALobject NewMemoryBlockWithBytesQVT(void *data, intptr_t size);

}  // namespace qvt
