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
void CopyByteToUShortQVT(REALobject source, REALobject dest, RBInteger sourceOffset,
                         RBInteger destinationOffset, RBInteger byteCount, RBInteger divisor);
// dest8[i] = source16[i] / divisor (unsigned, cut off, low 8 bits kept);
// a divisor of 0 clears the destination range.
void CopyUShortToByteQVT(REALobject source, REALobject dest, RBInteger sourceOffset,
                         RBInteger destinationOffset, RBInteger byteCount, RBInteger divisor);

namespace kernels {

// x / divisor for every 16-bit x, exactly, as ((x + add) * multiplier) >>
// shift without leaving 32 bits: the multiplier is 2^shift / divisor
// rounded up, or rounded down with the dividend raised by one, whichever
// errs by at most 2^shift / 2^16. A divisor above 65535 gives 0 for all.
struct Reciprocal {
    uint32_t add;
    uint32_t multiplier;
    uint32_t shift;
};
Reciprocal ReciprocalOf(uint32_t divisor);  // divisor 1 or more

}  // namespace kernels

}  // namespace qvt
