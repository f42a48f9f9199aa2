#include "memory/slices.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "hostvalues/blocks.h"
#include "hostvalues/raise.h"
#include "shell/binding.h"

namespace qvt {

namespace {

// The nil test comes before any look at the other arguments.
bool ReceiverPresent(REALobject block) {
    if (block) return true;
    RaiseException("NilObjectException", "memoryblock is nil", hostabi::kEncodingASCII);
    return false;
}

// A copy of `count` bytes from `at` on; nil, silently, when there is no
// memory to copy from or nothing to copy.
REALobject CopyOut(const void *data, int64_t at, int64_t count) {
    if (!data) return nullptr;
    return REALBuildMemoryblock(static_cast<const uint8_t *>(data) + at, count);
}

}  // namespace

REALobject LeftQVT(REALobject block, RBInteger length) {
    if (!ReceiverPresent(block)) return nullptr;
    if (length < 1) return nullptr;
    const int64_t n = std::min<int64_t>(length, GetBlockSize(block));
    if (n < 1) return nullptr;
    return CopyOut(GetBlockPtr(block), 0, n);
}

REALobject RightQVT(REALobject block, RBInteger length) {
    if (!ReceiverPresent(block)) return nullptr;
    if (length < 1) return nullptr;
    const int64_t size = GetBlockSize(block);
    if (size < 1) return nullptr;
    const int64_t n = std::min<int64_t>(length, size);
    return CopyOut(GetBlockPtr(block), size - n, n);
}

REALobject MidQVT(REALobject block, RBInteger offset) {
    if (!ReceiverPresent(block)) return nullptr;
    if (offset < 0) return nullptr;
    const int64_t size = GetBlockSize(block);
    if (size < 1 || offset >= size) return nullptr;
    return CopyOut(GetBlockPtr(block), offset, size - offset);
}

REALobject MidQVT(REALobject block, RBInteger offset, RBInteger length) {
    if (!ReceiverPresent(block)) return nullptr;
    if (length < 1 || offset < 0) return nullptr;
    const int64_t size = GetBlockSize(block);
    if (size < 1 || offset >= size) return nullptr;
    // Compared as a difference: offset + length may not fit.
    const int64_t n = length > size - offset ? size - offset : length;
    return CopyOut(GetBlockPtr(block), offset, n);
}

REALobject AppendQVT(REALobject block, REALobject other) {
    if (!ReceiverPresent(block) || !ReceiverPresent(other)) return nullptr;
    const int64_t a = GetBlockSize(block);
    const int64_t b = GetBlockSize(other);
    if (a < 1) return b > 0 ? CopyOut(GetBlockPtr(other), 0, b) : nullptr;
    if (b < 1) return CopyOut(GetBlockPtr(block), 0, a);

    // A sum past the int64 range is refused as any other oversized one.
    const int64_t total = a > std::numeric_limits<int64_t>::max() - b
                              ? std::numeric_limits<int64_t>::max()
                              : a + b;
    REALobject joined = NewBlock(total);
    if (!joined) return nullptr;
    auto *target = static_cast<uint8_t *>(GetBlockPtr(joined));
    if (!target) {
        host::REALUnlockObject(joined);
        return nullptr;
    }
    if (const void *first = GetBlockPtr(block)) {
        std::memcpy(target, first, static_cast<std::size_t>(a));
    }
    if (const void *second = GetBlockPtr(other)) {
        std::memcpy(target + a, second, static_cast<std::size_t>(b));
    }
    return joined;
}

REALobject NewMemoryBlockFromPtrQVT(RBInteger ptr) {
    return WrapPtr(reinterpret_cast<const void *>(ptr));
}

REALobject NewMemoryBlockWithBytesQVT(void *data, RBInteger size) {
    return REALBuildMemoryblock(data, static_cast<int64_t>(size));
}

}  // namespace qvt
