#include "memory/strided.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "hostvalues/blocks.h"
#include "hostvalues/raise.h"

namespace qvt {

namespace {

bool RaisedForNil(REALobject block, REALobject source) {
    if (block && source) return false;
    RaiseException("NilObjectException", "memoryblock is nil", hostabi::kEncodingASCII);
    return true;
}

uint8_t *Bytes(REALobject block) { return static_cast<uint8_t *>(GetBlockPtr(block)); }

// memcpy where the ranges are apart, else the ascending byte loop it stands
// for, so that a run that overlaps its destination still gives those bytes.
void CopyAscending(uint8_t *to, const uint8_t *from, size_t count) {
    const auto t = reinterpret_cast<uintptr_t>(to);
    const auto f = reinterpret_cast<uintptr_t>(from);
    if (t + count <= f || f + count <= t) {
        std::memcpy(to, from, count);
        return;
    }
    for (size_t i = 0; i < count; ++i) to[i] = from[i];
}

// Reads a source bit by bit, entering a byte only when a bit of it is asked
// for; taken or dropped alike. `position` is the bit still to come, -1 when
// the current byte is used up.
struct BitReader {
    BitReader(const uint8_t *bytes, intptr_t offsetBit)
        : data(bytes),
          index(offsetBit / 8),
          current(data[index]),
          position(static_cast<int>(7 - offsetBit % 8)) {}

    // The next bits, as many as asked but no more than the current byte
    // holds; a used-up byte is left for the next one first.
    unsigned Take(intptr_t wanted, int &count) {
        if (position < 0) Enter(1);
        count = static_cast<int>(std::min<intptr_t>(wanted, position + 1));
        position -= count;
        return (current >> (position + 1)) & ((1u << count) - 1);
    }

    void Drop(intptr_t count) {
        if (count <= position + 1) {
            position -= static_cast<int>(count);
            return;
        }
        // Bytes passed over whole hold nothing that is kept: only the last
        // one entered is read.
        count -= position + 1;
        Enter((count + 7) / 8);
        position = static_cast<int>(6 - (count - 1) % 8);
    }

    void Enter(intptr_t bytes) {
        index += bytes;
        current = data[index];
        position = 7;
    }

    const uint8_t *data;
    intptr_t index;
    unsigned current;
    int position;
};

// Writes whole bytes from an accumulator that starts at 0; the destination
// is never read.
struct BitWriter {
    BitWriter(uint8_t *bytes, intptr_t offsetBit)
        : data(bytes), index(offsetBit / 8), position(static_cast<int>(7 - offsetBit % 8)) {}

    void Put(unsigned bits, int count) {
        position -= count;
        accumulator |= bits << (position + 1);
        if (position < 0) {
            data[index++] = static_cast<uint8_t>(accumulator);
            accumulator = 0;
            position = 7;
        }
    }

    void Finish() {
        if (position != 7) data[index] = static_cast<uint8_t>(accumulator);
    }

    uint8_t *data;
    intptr_t index;
    unsigned accumulator = 0;
    int position;
};

}  // namespace

bool CopyNthBytesQVT(REALobject block, REALobject source, intptr_t sourceOffsetBytes,
                     intptr_t destinationOffsetBytes, intptr_t byteCount, intptr_t stepCount,
                     intptr_t numberOfSteps) {
    if (RaisedForNil(block, source)) return false;
    // A negative count is outside the caller's part of the contract; it
    // copies nothing rather than reach memcpy as a huge size.
    if (numberOfSteps < 1 || byteCount < 1) return true;
    const uint8_t *from = Bytes(source);
    uint8_t *to = Bytes(block);
    intptr_t readOffset = sourceOffsetBytes;
    intptr_t writeOffset = destinationOffsetBytes;
    for (intptr_t step = 0; step < numberOfSteps; ++step) {
        CopyAscending(to + writeOffset, from + readOffset, static_cast<size_t>(byteCount));
        readOffset += stepCount;
        writeOffset += byteCount;
    }
    return true;
}

bool CopyNthBitsQVT(REALobject block, REALobject source, intptr_t sourceOffsetBits,
                    intptr_t destinationOffsetBits, intptr_t bitCount, intptr_t stepCount,
                    intptr_t numberOfSteps) {
    if (RaisedForNil(block, source)) return false;
    BitWriter writer(Bytes(block), destinationOffsetBits);
    // With no bit to take or drop the reader's first byte is of no use, and
    // a source without memory is left alone. The first byte at an unaligned
    // destination offset is still stored, empty: the writer's rule holds
    // even when nothing was copied.
    if (numberOfSteps >= 1 && (bitCount >= 1 || stepCount >= 1)) {
        BitReader reader(Bytes(source), sourceOffsetBits);
        for (intptr_t step = 0; step < numberOfSteps; ++step) {
            // As many bits at a time as both the reader's and the writer's
            // byte still hold.
            for (intptr_t left = bitCount; left > 0;) {
                int count;
                const unsigned bits =
                    reader.Take(std::min<intptr_t>(left, writer.position + 1), count);
                writer.Put(bits, count);
                left -= count;
            }
            if (stepCount > 0) reader.Drop(stepCount);
        }
    }
    writer.Finish();
    return true;
}

bool ExpandBitsQVT(REALobject block, REALobject dest, intptr_t sourceByteCount, intptr_t lowValue,
                   intptr_t highValue) {
    if (sourceByteCount < 1 || !block || !dest) return false;
    const uint8_t *from = Bytes(block);
    uint8_t *to = Bytes(dest);
    if (!from || !to) return false;

    // The four destination bytes of each nibble, as the 32-bit number of
    // four selected values shifted by 0, 8, 16 and 24, in memory low byte
    // first.
    const auto low = static_cast<uint32_t>(lowValue);
    const auto high = static_cast<uint32_t>(highValue);
    uint32_t nibbleBytes[16];
    for (unsigned nibble = 0; nibble < 16; ++nibble) {
        uint32_t word = 0;
        for (unsigned k = 0; k < 4; ++k) word |= ((nibble & (8u >> k)) ? high : low) << (8 * k);
        if constexpr (std::endian::native == std::endian::big) {
            word = (word >> 24) | ((word >> 8) & 0xFF00) | ((word << 8) & 0xFF0000) | (word << 24);
        }
        nibbleBytes[nibble] = word;
    }

    const intptr_t groups = sourceByteCount / 4 + (sourceByteCount % 4 != 0);
    for (const uint8_t *end = from + groups * 4; from != end; ++from, to += 8) {
        std::memcpy(to, &nibbleBytes[*from >> 4], 4);
        std::memcpy(to + 4, &nibbleBytes[*from & 0x0F], 4);
    }
    return true;
}

}  // namespace qvt
