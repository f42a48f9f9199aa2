// Tables of pairs of single-precision floats in the receiver, 8 bytes an
// entry from `offsetByte`: a logarithmic sine sweep, and conversions between
// polar and cartesian pairs read from the start of a second block. Only a
// nil receiver is refused; the sizes and the offset are the caller's. The
// host knows the functions by the same names with a leading underscore,
// which C++ reserves.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

void CalcLogSweepTableQVT(REALobject block, RBInteger offsetByte, RBInteger z, RBInteger lw1,
                          RBInteger lw2, double t);
void ConvertPolarToCartesian(REALobject block, RBInteger offsetByte, RBInteger z,
                             REALobject polarData);
void ConvertCartesianToPolar(REALobject block, RBInteger offsetByte, RBInteger z,
                             REALobject cartesianData);

}  // namespace qvt
