// The opening the in-place sample kernels share: the receiver and the offset
// are refused before anything is pinned, and a range of 0 or below runs to
// the end of the block.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"
#include "hostvalues/raise.h"
#include "hostvalues/rbdata.h"

namespace qvt::kernels {

inline bool RaisedForNilReceiver(REALobject block) {
    if (block) return false;
    RaiseException("NilObjectException", "memoryblock is nil", hostabi::kEncodingASCII);
    return true;
}

inline bool RaisedForNegativeOffset(intptr_t offsetByte) {
    if (offsetByte >= 0) return false;
    RaiseException("UnsupportedOperationException", "offset < 0", hostabi::kEncodingASCII);
    return true;
}

// Bytes from `offsetByte` that a kernel works on; 0 or below means nothing.
// A positive `lengthBytes` is the caller's to keep inside the block. A block
// without memory gives nothing whatever the length, rather than a write
// through a null pointer.
inline intptr_t RangeLength(const rbData &bytes, intptr_t offsetByte, intptr_t lengthBytes) {
    if (!bytes.data) return 0;
    if (lengthBytes > 0) return lengthBytes;
    return static_cast<intptr_t>(bytes.size) - offsetByte;
}

}  // namespace qvt::kernels
