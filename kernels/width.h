// Copying unsigned samples between blocks while changing their width: 8 to 16
// bits by a factor, 16 to 8 bits by a divisor. 16-bit samples stand in the
// machine's byte order at any address. The receiver is the source; offsets
// and the sample count are the caller's to keep inside both blocks, since
// neither block is asked for its size.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// dest16[i] = source8[i] * divisor, wrapping at 16 bits.
void CopyByteToUShortQVT(REALobject source, REALobject dest, intptr_t sourceOffset,
                         intptr_t destinationOffset, intptr_t byteCount, intptr_t divisor);
// dest8[i] = source16[i] / divisor (unsigned, cut off, low 8 bits kept);
// a divisor of 0 clears the destination range.
void CopyUShortToByteQVT(REALobject source, REALobject dest, intptr_t sourceOffset,
                         intptr_t destinationOffset, intptr_t byteCount, intptr_t divisor);

}  // namespace qvt
