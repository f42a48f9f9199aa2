// Element-wise minimum and maximum of two arrays of integers behind raw
// pointers, stored into the receiver from `offsetByte`. Elements are 8, 16,
// 32 or 64 bits wide, signed or not, in the machine's byte order and of any
// alignment; the sources are read from their first element.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// False for an unsupported `bitSize` and after a raise; true otherwise, also
// for an empty range.
bool MinQVT(REALobject block, void *firstMem, void *secondMem, RBInteger bitSize, bool isSigned,
            RBInteger offsetByte, RBInteger lengthBytes);
bool MaxQVT(REALobject block, void *firstMem, void *secondMem, RBInteger bitSize, bool isSigned,
            RBInteger offsetByte, RBInteger lengthBytes);

}  // namespace qvt
