// Multiplying unsigned samples in place by a factor, with saturation: bytes
// through a table of all 256 results (or a form of it with vectors that
// gives every entry), 16-bit samples in the machine's byte order each on
// its own. A negative `multiplyOnlyOver` scales every sample,
// otherwise only those above it.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

void MultiplyUInt8QVT(REALobject block, double factor, RBInteger offsetByte, RBInteger lengthBytes,
                      RBInteger multiplyOnlyOver);
void MultiplyUInt16QVT(REALobject block, double factor, RBInteger offsetByte, RBInteger lengthBytes,
                       RBInteger multiplyOnlyOver);

}  // namespace qvt
