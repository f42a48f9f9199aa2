#include "memory/copy.h"

#include <cstring>

#include "hostvalues/blocks.h"

namespace qvt {

namespace {

uint8_t *BytesOf(REALobject block) { return static_cast<uint8_t *>(GetBlockPtr(block)); }

// A negative count, or a null address where the caller broke the limits, is
// taken as nothing to do rather than handed to memmove.
void Move(uint8_t *dest, const uint8_t *source, intptr_t numBytes) {
    if (numBytes < 1 || !dest || !source) return;
    std::memmove(dest, source, static_cast<std::size_t>(numBytes));
}

}  // namespace

void CopyBytesQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, RBInteger destOfs) {
    uint8_t *data = BytesOf(block);
    if (!data) return;
    Move(data + destOfs, data + srcOfs, numBytes);
}

void CopyBytesQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, REALobject destBlk,
                  RBInteger destOfs) {
    if (!block || !destBlk) return;
    const uint8_t *source = BytesOf(block);
    uint8_t *dest = BytesOf(destBlk);
    if (!source || !dest) return;
    Move(dest + destOfs, source + srcOfs, numBytes);
}

void CopyBytesToMacPtrQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, void *destPtr) {
    const uint8_t *data = BytesOf(block);
    if (!data) return;
    Move(static_cast<uint8_t *>(destPtr), data + srcOfs, numBytes);
}

void CopyBytesFromMacPtrQVT(REALobject block, void *srcPtr, RBInteger numBytes, RBInteger destOfs) {
    uint8_t *data = BytesOf(block);
    if (!data) return;
    Move(data + destOfs, static_cast<const uint8_t *>(srcPtr), numBytes);
}

void CopyBytesToMacHandleQVT(REALobject, RBInteger, RBInteger, RBInteger) {}

void CopyBytesFromMacHandleQVT(REALobject, RBInteger, RBInteger, RBInteger) {}

}  // namespace qvt
