// Where a block's bytes lie, and short texts read from and written into it.
// A bad position gives a neutral result and raises nothing; where the host
// does not know the block's size, the range is the caller's.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// 0 or null for a negative offset or one past the end; the end itself is allowed.
uint64_t AddressQVT(REALobject block, int64_t offset);
void *AddressPtrQVT(REALobject block, int64_t offset);

// The four-character code at `offset`, a 32-bit number in native order with
// the first character highest. Nil, or nothing written, unless 4 bytes fit.
REALstring OSTypeQVT(REALobject block, RBInteger offset);
void OSTypeQVT(REALobject block, RBInteger offset, REALstring value);

// The bytes, clipped to the block, as a string of unknown encoding.
REALstring GetStringQVT(REALobject block, RBInteger offset, RBInteger numBytes);
// The string's bytes as they are, clipped to the block; nothing else written.
void SetStringQVT(REALobject block, REALstring str, RBInteger offset);

}  // namespace qvt
