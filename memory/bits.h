// Single bits of a block, counted from its start: bit k lies in byte k / 8 at
// mask 1 << (7 - k % 8), so bit 0 is the top bit of the first byte.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

RBInteger GetBitQVT(REALobject block, uint64_t bit);
bool IsBitSetQVT(REALobject block, uint64_t bit);
// ORs the whole shifted `value` in after clearing the bit, so values other
// than 0 and 1 can set more significant bits of the same byte.
void SetBitQVT(REALobject block, uint64_t bit, RBInteger value);
void SetBitQVT(REALobject block, uint64_t bit);
void SetBitQVT(REALobject block, uint64_t bit, bool value);
void ClearBitQVT(REALobject block, uint64_t bit);

}  // namespace qvt
