#include "memory/mirror.h"

#include <cstring>

#include "hostvalues/blocks.h"
#include "hostvalues/raise.h"
#include "kernels/dispatch.h"

namespace qvt {

namespace {

constexpr const char *kNilBlock = "memoryblock is nil";

// Each byte of `value` with its eight bits in reverse order: the nibbles
// change places, then the pairs within them, then the bits within those.
// Shifts and masks rather than a table, so that loops become vector code;
// the masks keep every bit inside its byte, so the byte order plays no part.
template <typename Word>
constexpr Word MirroredBits(Word value) {
    constexpr Word kOnes = static_cast<Word>(~Word{0});
    constexpr Word kEachByte = static_cast<Word>(kOnes / 0xFF);  // 0x0101...
    const auto swap = [](Word v, unsigned shift, Word mask) {
        return static_cast<Word>(((v >> shift) & mask) | ((v & mask) << shift));
    };
    value = swap(value, 4, static_cast<Word>(kEachByte * 0x0F));
    value = swap(value, 2, static_cast<Word>(kEachByte * 0x33));
    return swap(value, 1, static_cast<Word>(kEachByte * 0x55));
}

static_assert(MirroredBits<uint8_t>(0x01) == 0x80 && MirroredBits<uint8_t>(0x12) == 0x48);
static_assert(MirroredBits<uint64_t>(0x0180'0F12'0000'FF3C) == 0x8001'F048'0000'FF3C);

// Reverses the byte order of a word; loaded and stored with memcpy this
// reverses the bytes in memory on either byte order.
constexpr uint64_t ReverseWord(uint64_t word) {
    uint64_t reversed = 0;
    for (int i = 0; i < 8; ++i) {
        reversed = (reversed << 8) | (word & 0xFF);
        word >>= 8;
    }
    return reversed;
}
static_assert(ReverseWord(0x0102030405060708) == 0x0807060504030201);

// Whole words, then the bytes behind them.
QVT_VECTOR_CLONES void MirrorEachByte(uint8_t *bytes, std::size_t n) {
    const std::size_t words = n / 8;
    for (std::size_t i = 0; i < words; ++i) {
        uint64_t word;
        std::memcpy(&word, bytes + 8 * i, 8);
        word = MirroredBits(word);
        std::memcpy(bytes + 8 * i, &word, 8);
    }
    for (std::size_t i = 8 * words; i < n; ++i) bytes[i] = MirroredBits(bytes[i]);
}

bool RaisedForNil(REALobject block) {
    if (block) return false;
    RaiseException("NilObjectException", kNilBlock, hostabi::kEncodingASCII);
    return true;
}

}  // namespace

void MirrorByteRange(uint8_t *start, intptr_t length) {
    uint8_t *front = start;
    uint8_t *back = start + length;
    // Whole words from both ends while two of them still fit apart; the
    // bytes they exchange are those the byte loop would exchange.
    while (back - front >= 16) {
        uint64_t head;
        uint64_t tail;
        back -= 8;
        std::memcpy(&head, front, 8);
        std::memcpy(&tail, back, 8);
        head = ReverseWord(head);
        tail = ReverseWord(tail);
        std::memcpy(front, &tail, 8);
        std::memcpy(back, &head, 8);
        front += 8;
    }
    while (back - front >= 2) {
        --back;
        const uint8_t byte = *front;
        *front++ = *back;
        *back = byte;
    }
}

void MirrorBitsQVT(REALobject block, RBInteger offsetBit, RBInteger lengthBit) {
    if (RaisedForNil(block)) return;
    if (lengthBit < 1) return;
    uint8_t *data = static_cast<uint8_t *>(GetBlockPtr(block));
    intptr_t i = offsetBit;
    intptr_t j = offsetBit + lengthBit - 1;
    for (intptr_t n = lengthBit / 2; n > 0; --n, ++i, --j) {
        uint8_t &byteJ = data[j / 8];
        uint8_t &byteI = data[i / 8];
        const auto maskJ = static_cast<uint8_t>(0x80u >> (j % 8));
        const auto maskI = static_cast<uint8_t>(0x80u >> (i % 8));
        const bool bitI = byteI & maskI;
        const bool bitJ = byteJ & maskJ;
        // byteI is read again after the write to byteJ: both bits may sit
        // in one byte.
        byteJ = static_cast<uint8_t>(bitI ? byteJ | maskJ : byteJ & ~maskJ);
        byteI = static_cast<uint8_t>(bitJ ? byteI | maskI : byteI & ~maskI);
    }
}

void MirrorBytesQVT(REALobject block, RBInteger offsetByte, RBInteger lengthByte) {
    if (RaisedForNil(block)) return;
    intptr_t length = lengthByte;
    if (length < 0) {
        // The whole block means the rest of it behind a positive offset, so
        // the default never runs past the end.
        const auto size = static_cast<intptr_t>(GetBlockSize(block));
        length = offsetByte > 0 ? (size > offsetByte ? size - offsetByte : 0) : size;
    }
    if (length <= 0) return;
    MirrorByteRange(static_cast<uint8_t *>(GetBlockPtr(block)) + offsetByte, length);
}

void MirrorBitsInBytesQVT(REALobject block, RBInteger offsetByte, RBInteger lengthByte) {
    if (RaisedForNil(block)) return;
    if (lengthByte < 1) return;
    MirrorEachByte(static_cast<uint8_t *>(GetBlockPtr(block)) + offsetByte,
                   static_cast<std::size_t>(lengthByte));
}

}  // namespace qvt
