#include "memory/endian.h"

#include <algorithm>
#include <cstring>

#include "kernels/dispatch.h"
#include "memory/mirror.h"

namespace qvt {

namespace {

// One group at a time in a counted loop, which the compiler turns into
// vector shuffles; each width is a plain function of its own so that it
// gets the vector clones.
template <typename Group>
[[gnu::always_inline]] inline void ReverseEachGroup(uint8_t *bytes, std::size_t groups) {
    for (std::size_t i = 0; i < groups; ++i) {
        Group group;
        std::memcpy(&group, bytes + i * sizeof group, sizeof group);
        group = ReversedBytes(group);
        std::memcpy(bytes + i * sizeof group, &group, sizeof group);
    }
}

QVT_VECTOR_CLONES void ReversePairs(uint8_t *bytes, std::size_t groups) {
    ReverseEachGroup<uint16_t>(bytes, groups);
}

QVT_VECTOR_CLONES void ReverseQuads(uint8_t *bytes, std::size_t groups) {
    ReverseEachGroup<uint32_t>(bytes, groups);
}

// The range of the range forms after clipping; null when nothing is to do.
uint8_t *ClippedRange(REALobject block, intptr_t offset, intptr_t numBytes, intptr_t &length) {
    if (numBytes < 1 || offset < 0) return nullptr;
    const int64_t size = GetBlockSize(block);
    if (size > 0) {
        if (offset >= size) return nullptr;
        numBytes = static_cast<intptr_t>(std::min<int64_t>(numBytes, size - offset));
    }
    auto *data = static_cast<uint8_t *>(GetBlockPtr(block));
    if (!data) return nullptr;
    length = numBytes;
    return data + offset;
}

}  // namespace

// A group loaded with memcpy and its bytes reversed as a value has its
// bytes reversed in memory on either byte order.
template <std::size_t Width>
void SwapGroups(uint8_t *bytes, std::size_t groups) {
    static_assert(Width == 2 || Width == 4);
    if constexpr (Width == 2) {
        ReversePairs(bytes, groups);
    } else {
        ReverseQuads(bytes, groups);
    }
}

template void SwapGroups<2>(uint8_t *, std::size_t);
template void SwapGroups<4>(uint8_t *, std::size_t);

#define QVT_DEFINE_ENDIAN(name, T, from, to)                                     \
    T name(T n) { return ConvertValue<T, ByteOrder::from, ByteOrder::to>(n); }   \
    void name(REALobject block, RBInteger offset, RBInteger count) {             \
        ConvertInPlace<T, ByteOrder::from, ByteOrder::to>(block, offset, count); \
    }
QVT_ENDIAN_NAMES(QVT_DEFINE_ENDIAN)
#undef QVT_DEFINE_ENDIAN

void SwapBytesQVT(REALobject block, RBInteger offset, RBInteger numBytes) {
    intptr_t length = 0;
    if (uint8_t *range = ClippedRange(block, offset, numBytes, length)) MirrorByteRange(range, length);
}

void SwapBytes16QVT(REALobject block, RBInteger offset, RBInteger numBytes) {
    intptr_t length = 0;
    if (uint8_t *range = ClippedRange(block, offset, numBytes, length)) {
        SwapGroups<2>(range, static_cast<std::size_t>(length) / 2);
    }
}

void SwapBytes32QVT(REALobject block, RBInteger offset, RBInteger numBytes) {
    intptr_t length = 0;
    if (uint8_t *range = ClippedRange(block, offset, numBytes, length)) {
        SwapGroups<4>(range, static_cast<std::size_t>(length) / 4);
    }
}

}  // namespace qvt
