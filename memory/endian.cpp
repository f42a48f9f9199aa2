#include "memory/endian.h"

#include <algorithm>
#include <cstring>

#include "memory/mirror.h"

namespace qvt {

namespace {

// Reverses the bytes inside each Width-byte lane of a word. The lanes sit on
// lane boundaries in memory whatever the machine's order, so a word loaded
// and stored with memcpy gets each group's bytes reversed in place.
template <std::size_t Width>
constexpr uint64_t SwapLanes(uint64_t word) {
    if constexpr (Width == 4) {
        word = ((word >> 16) & 0x0000FFFF0000FFFF) | ((word & 0x0000FFFF0000FFFF) << 16);
    }
    return ((word >> 8) & 0x00FF00FF00FF00FF) | ((word & 0x00FF00FF00FF00FF) << 8);
}
static_assert(SwapLanes<2>(0x0102030405060708) == 0x0201040306050807);
static_assert(SwapLanes<4>(0x0102030405060708) == 0x0403020108070605);

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

// Whole words while they last, then group by group: a word holds whole
// groups, so the bytes are those of the plain loop over the groups.
template <std::size_t Width>
void SwapGroups(uint8_t *bytes, std::size_t groups) {
    const std::size_t total = groups * Width;
    std::size_t at = 0;
    for (; total - at >= 8; at += 8) {
        uint64_t word;
        std::memcpy(&word, bytes + at, 8);
        word = SwapLanes<Width>(word);
        std::memcpy(bytes + at, &word, 8);
    }
    for (; at < total; at += Width) std::reverse(bytes + at, bytes + at + Width);
}

template void SwapGroups<2>(uint8_t *, std::size_t);
template void SwapGroups<4>(uint8_t *, std::size_t);

#define QVT_DEFINE_ENDIAN(name, T, from, to)                                     \
    T name(T n) { return ConvertValue<T, ByteOrder::from, ByteOrder::to>(n); }   \
    void name(REALobject block, intptr_t offset, intptr_t count) {               \
        ConvertInPlace<T, ByteOrder::from, ByteOrder::to>(block, offset, count); \
    }
QVT_ENDIAN_NAMES(QVT_DEFINE_ENDIAN)
#undef QVT_DEFINE_ENDIAN

void SwapBytesQVT(REALobject block, intptr_t offset, intptr_t numBytes) {
    intptr_t length = 0;
    if (uint8_t *range = ClippedRange(block, offset, numBytes, length)) MirrorByteRange(range, length);
}

void SwapBytes16QVT(REALobject block, intptr_t offset, intptr_t numBytes) {
    intptr_t length = 0;
    if (uint8_t *range = ClippedRange(block, offset, numBytes, length)) {
        SwapGroups<2>(range, static_cast<std::size_t>(length) / 2);
    }
}

void SwapBytes32QVT(REALobject block, intptr_t offset, intptr_t numBytes) {
    intptr_t length = 0;
    if (uint8_t *range = ClippedRange(block, offset, numBytes, length)) {
        SwapGroups<4>(range, static_cast<std::size_t>(length) / 4);
    }
}

}  // namespace qvt
