#include "memory/bits.h"

#include "hostvalues/raise.h"
#include "hostvalues/rbdata.h"

namespace qvt {

namespace {

// The nil and bounds checks shared by the read and the write; `method` is
// the name the range error reports.
bool BitReachable(const rbData &block, uint64_t bit, const char *method) {
    if (!block.data) {
        RaiseException("NilObjectException", "Memoryblock is nil?", hostabi::kEncodingASCII);
        return false;
    }
    // bit / 8 >= size is bit >= size * 8 without the product wrapping.
    if (block.size != 0 && bit / 8 >= block.size) {
        RaiseRangeError(static_cast<int64_t>(bit), 0, static_cast<int64_t>(block.size * 8), "Bit",
                        method);
        return false;
    }
    return true;
}

}  // namespace

RBInteger GetBitQVT(REALobject block, uint64_t bit) {
    rbData bytes(block, 0, 0);
    if (!BitReachable(bytes, bit, "GetBitQVT")) return 0;
    return (bytes.data[bit / 8] >> (7 - bit % 8)) & 1;
}

bool IsBitSetQVT(REALobject block, uint64_t bit) { return GetBitQVT(block, bit) != 0; }

void SetBitQVT(REALobject block, uint64_t bit, RBInteger value) {
    rbData bytes(block, 0, 0);
    if (!BitReachable(bytes, bit, "SetBitQVT")) return;
    const unsigned shift = 7 - bit % 8;
    uint8_t &byte = bytes.data[bit / 8];
    byte = static_cast<uint8_t>((byte & ~(1u << shift)) | (static_cast<uintptr_t>(value) << shift));
}

void SetBitQVT(REALobject block, uint64_t bit) { SetBitQVT(block, bit, intptr_t{1}); }

void SetBitQVT(REALobject block, uint64_t bit, bool value) {
    SetBitQVT(block, bit, intptr_t{value ? 1 : 0});
}

void ClearBitQVT(REALobject block, uint64_t bit) { SetBitQVT(block, bit, intptr_t{0}); }

}  // namespace qvt
