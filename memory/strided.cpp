#include "memory/strided.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "hostvalues/blocks.h"
#include "hostvalues/raise.h"
#include "kernels/dispatch.h"
#include "kernels/overlap.h"

#if defined(QVT_X86_TARGETS)
#include <immintrin.h>
#endif

namespace qvt {

namespace {

bool RaisedForNil(REALobject block, REALobject source) {
    if (block && source) return false;
    RaiseException("NilObjectException", "memoryblock is nil", hostabi::kEncodingASCII);
    return true;
}

uint8_t *Bytes(REALobject block) { return static_cast<uint8_t *>(GetBlockPtr(block)); }

// ---- Byte runs -------------------------------------------------------------

// memcpy where the ranges are apart, else the ascending byte loop it stands
// for, so that a run that overlaps its destination still gives those bytes.
void CopyAscending(uint8_t *to, const uint8_t *from, size_t count) {
    if (!kernels::Overlap(to, count, from, count)) {
        std::memcpy(to, from, count);
        return;
    }
    for (size_t i = 0; i < count; ++i) to[i] = from[i];
}

// Runs of W bytes every S bytes with both fixed: a counted loop the
// compiler turns into vector shuffles. Source and destination are apart.
template <int W, int S>
[[gnu::always_inline]] inline void GatherFixed(uint8_t *__restrict to, const uint8_t *__restrict from,
                                               size_t runs) {
    for (size_t i = 0; i < runs; ++i) {
        for (int k = 0; k < W; ++k) to[W * i + k] = from[S * i + k];
    }
}

#define QVT_GATHER(W, S)                                                                   \
    QVT_VECTOR_CLONES void Gather##W##Of##S(uint8_t *__restrict to,                        \
                                            const uint8_t *__restrict from, size_t runs) { \
        GatherFixed<W, S>(to, from, runs);                                                 \
    }
QVT_GATHER(1, 2)
QVT_GATHER(1, 3)
QVT_GATHER(2, 3)
QVT_GATHER(1, 4)
QVT_GATHER(2, 4)
QVT_GATHER(3, 4)
QVT_GATHER(4, 8)
#undef QVT_GATHER

using Gather = void (*)(uint8_t *, const uint8_t *, size_t);

// The interleavings of samples and pixels met most that the compiler
// vectorises: channels of 8-bit RGB or RGBA, 16-bit and float stereo.
constexpr struct {
    intptr_t width, step;
    Gather gather;
} kFixedGathers[] = {{1, 2, &Gather1Of2}, {1, 3, &Gather1Of3}, {2, 3, &Gather2Of3},
                     {1, 4, &Gather1Of4}, {2, 4, &Gather2Of4}, {3, 4, &Gather3Of4},
                     {4, 8, &Gather4Of8}};

// Short runs at any distance, sign included: each run one fixed-size copy.
template <size_t W>
void GatherRuns(uint8_t *to, const uint8_t *from, intptr_t step, size_t runs) {
    for (size_t i = 0; i < runs; ++i, to += W, from += step) std::memcpy(to, from, W);
}

// Runs of a width that divides 8, eight bytes of them to a store: at one
// store a run, the stores and not the memory set the pace.
template <size_t W>
void GatherInWords(uint8_t *to, const uint8_t *from, intptr_t step, size_t runs) {
    constexpr size_t kRuns = 8 / W;
    size_t i = 0;
    if constexpr (std::endian::native == std::endian::little) {
        for (; i + kRuns <= runs; i += kRuns, from += static_cast<intptr_t>(kRuns) * step) {
            uint64_t word = 0;
            for (size_t k = 0; k < kRuns; ++k) {
                uint64_t run = 0;
                std::memcpy(&run, from + static_cast<intptr_t>(k) * step, W);
                word |= run << (8 * W * k);
            }
            std::memcpy(to + W * i, &word, 8);
        }
    }
    GatherRuns<W>(to + W * i, from, step, runs - i);
}

template <size_t W>
void GatherOfWidth(uint8_t *to, const uint8_t *from, intptr_t step, size_t runs) {
    if constexpr (8 % W == 0 && W < 8) {
        GatherInWords<W>(to, from, step, runs);
    } else {
        GatherRuns<W>(to, from, step, runs);
    }
}

using GatherAt = void (*)(uint8_t *, const uint8_t *, intptr_t, size_t);

template <size_t... W>
constexpr std::array<GatherAt, sizeof...(W)> GathersUpTo(std::index_sequence<W...>) {
    return {&GatherOfWidth<W + 1>...};
}

// Runs of up to 16 bytes each copied at a width known when compiled.
constexpr auto kGathersByWidth = GathersUpTo(std::make_index_sequence<16>());

void GatherAny(uint8_t *to, const uint8_t *from, size_t width, intptr_t step, size_t runs) {
    if (width <= kGathersByWidth.size()) return kGathersByWidth[width - 1](to, from, step, runs);
    for (size_t i = 0; i < runs; ++i, to += width, from += step) std::memcpy(to, from, width);
}

// ---- Bit runs ----------------------------------------------------------------

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

// Stores whole bytes as soon as they are full, from bits that start at 0;
// the destination is never read. `pending` bits wait in the low end of
// `bits`, the first of them being the byte's top bit.
struct BitWriter {
    BitWriter(uint8_t *bytes, intptr_t offsetBit)
        : data(bytes + offsetBit / 8), pending(static_cast<int>(offsetBit % 8)) {}

    // Up to 8 bits, the first in the top place of `value`.
    void Put(unsigned value, int count) {
        bits = (bits << count) | value;
        pending += count;
        if (pending >= 8) {
            pending -= 8;
            *data++ = static_cast<uint8_t>(bits >> pending);
            bits &= (1u << pending) - 1;
        }
    }

    void Finish() {
        if (pending) *data = static_cast<uint8_t>(bits << (8 - pending));
    }

    uint8_t *data;
    unsigned bits = 0;
    int pending;
};

// The bits one step after another takes from a stream, as a repeating
// pattern of `period` bits of which the first `count` are taken.
struct Pattern {
    intptr_t count, period;
    bool Taken(intptr_t consumed) const { return consumed % period < count; }
};

// Steps of `count` bits with a gap, generally: whole runs as far as the
// reader's and the writer's bytes allow, gaps skipped whole.
void CopyRuns(BitReader &reader, BitWriter &writer, intptr_t count, intptr_t gap, intptr_t steps) {
    for (intptr_t step = 0; step < steps; ++step) {
        for (intptr_t left = count; left > 0;) {
            int taken;
            const unsigned bits = reader.Take(left, taken);
            writer.Put(bits, taken);
            left -= taken;
        }
        if (gap > 0) reader.Drop(gap);
    }
}

constexpr intptr_t kPatternBits = 512;

// A pattern whose period divides 8 sits the same way in every byte: the
// bits a byte keeps come from a table made for that phase. Bits up to the
// first byte boundary and after the last whole byte go one by one.
void CopyPattern(BitReader &reader, BitWriter &writer, Pattern pattern, intptr_t total) {
    intptr_t consumed = 0;
    auto oneBit = [&] {
        int taken;
        const unsigned bit = reader.Take(1, taken);
        if (pattern.Taken(consumed++)) writer.Put(bit, 1);
    };
    while (consumed < total && reader.position != 7 && reader.position != -1) oneBit();

    // The table comes from one for each half of the byte.
    const intptr_t phase = consumed % pattern.period;
    uint8_t halves[2][16];
    for (int half = 0; half < 2; ++half) {
        for (unsigned nibble = 0; nibble < 16; ++nibble) {
            unsigned bits = 0;
            for (int k = 0; k < 4; ++k) {
                if (pattern.Taken(phase + 4 * half + k)) bits = (bits << 1) | ((nibble >> (3 - k)) & 1);
            }
            halves[half][nibble] = static_cast<uint8_t>(bits);
        }
    }
    int keptLow = 0;
    for (int k = 4; k < 8; ++k) keptLow += pattern.Taken(phase + k);
    uint8_t table[256];
    for (unsigned byte = 0; byte < 256; ++byte) {
        table[byte] = static_cast<uint8_t>((halves[0][byte >> 4] << keptLow) | halves[1][byte & 15]);
    }
    // Whole bytes, from the first with no bit consumed yet; each is read
    // after every store that the bits before it cause, as bit by bit.
    const int kept = static_cast<int>(8 * pattern.count / pattern.period);
    const intptr_t first = reader.index + (reader.position == 7 ? 0 : 1);
    const intptr_t whole = (total - consumed) / 8;
    uint8_t *out = writer.data;
    unsigned bits = writer.bits;
    int pending = writer.pending;
    for (intptr_t b = 0; b < whole; ++b) {
        bits = (bits << kept) | table[reader.data[first + b]];
        pending += kept;
        if (pending >= 8) {
            pending -= 8;
            *out++ = static_cast<uint8_t>(bits >> pending);
        }
    }
    writer.data = out;
    writer.bits = bits & ((1u << pending) - 1);
    writer.pending = pending;
    if (whole > 0) {
        reader.index = first + whole - 1;
        reader.position = -1;
        consumed += 8 * whole;
    }

    while (consumed < total) oneBit();
}

// ---- Bit expansion -------------------------------------------------------------

// Values within a byte don't spill: every destination byte is its own
// selection, which vectorises.
QVT_VECTOR_CLONES void ExpandToBytes(uint8_t *__restrict to, const uint8_t *__restrict from,
                                     size_t count, uint8_t low, uint8_t high) {
    for (size_t b = 0; b < count; ++b) {
        const unsigned byte = from[b];
        for (unsigned k = 0; k < 8; ++k) to[8 * b + k] = ((byte >> (7 - k)) & 1) ? high : low;
    }
}

// Any values: the four destination bytes of each nibble, as the 32-bit
// number of four selected values shifted by 0, 8, 16 and 24, in memory low
// byte first.
#if defined(QVT_X86_TARGETS)

// Eight source bytes at a time, each giving the words of its high and its
// low nibble from the table, 64 bytes to one store. (Masks everywhere:
// GCC warns of the unmasked forms' undefined lanes.)
__attribute__((target("avx512f"))) size_t SpillBy8Bytes(uint8_t *to, const uint8_t *from, size_t count,
                                                        const uint32_t *words) {
    constexpr __mmask16 kAll = 0xFFFF;
    const __m512i table = _mm512_maskz_loadu_epi32(kAll, words);
    const __m512i shifts = _mm512_set_epi32(0, 4, 0, 4, 0, 4, 0, 4, 0, 4, 0, 4, 0, 4, 0, 4);
    const __m512i nibble = _mm512_set1_epi32(0x0F);
    size_t b = 0;
    for (; b + 8 <= count; b += 8) {
        const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(from + b));
        const __m512i twice = _mm512_maskz_cvtepu8_epi32(kAll, _mm_unpacklo_epi8(bytes, bytes));
        const __m512i index = _mm512_maskz_and_epi32(kAll, _mm512_maskz_srlv_epi32(kAll, twice, shifts), nibble);
        _mm512_storeu_si512(to + 8 * b, _mm512_maskz_permutexvar_epi32(kAll, index, table));
    }
    return b;
}

#endif

// The leading source bytes that vectors expand, where the processor has them.
size_t SpillInVectors(uint8_t *to, const uint8_t *from, size_t count, const uint32_t *words) {
#if defined(QVT_X86_TARGETS)
    if (__builtin_cpu_supports("avx512f")) return SpillBy8Bytes(to, from, count, words);
#endif
    (void)to, (void)from, (void)count, (void)words;
    return 0;
}

void ExpandSpilling(uint8_t *to, const uint8_t *from, size_t count, uint32_t low, uint32_t high, bool apart) {
    uint32_t nibbleBytes[16];
    for (unsigned nibble = 0; nibble < 16; ++nibble) {
        uint32_t word = 0;
        for (unsigned k = 0; k < 4; ++k) word |= ((nibble & (8u >> k)) ? high : low) << (8 * k);
        if constexpr (std::endian::native == std::endian::big) {
            word = (word >> 24) | ((word >> 8) & 0xFF00) | ((word << 8) & 0xFF0000) | (word << 24);
        }
        nibbleBytes[nibble] = word;
    }
    if (apart) {
        const size_t done = SpillInVectors(to, from, count, nibbleBytes);
        to += 8 * done;
        from += done;
        count -= done;
    }
    // A group's four source bytes are read before its 32 bytes are written.
    for (const uint8_t *end = from + count; from != end; from += 4) {
        uint8_t group[4];
        std::memcpy(group, from, 4);
        for (const uint8_t byte : group) {
            std::memcpy(to, &nibbleBytes[byte >> 4], 4);
            std::memcpy(to + 4, &nibbleBytes[byte & 0x0F], 4);
            to += 8;
        }
    }
}

}  // namespace

bool CopyNthBytesQVT(REALobject block, REALobject source, RBInteger sourceOffsetBytes,
                     RBInteger destinationOffsetBytes, RBInteger byteCount, RBInteger stepCount,
                     RBInteger numberOfSteps) {
    if (RaisedForNil(block, source)) return false;
    // A negative count is outside the caller's part of the contract; it
    // copies nothing rather than reach memcpy as a huge size.
    if (numberOfSteps < 1 || byteCount < 1) return true;
    const uint8_t *from = Bytes(source) + sourceOffsetBytes;
    uint8_t *to = Bytes(block) + destinationOffsetBytes;
    const auto width = static_cast<size_t>(byteCount);
    const auto runs = static_cast<size_t>(numberOfSteps);

    // Where no run reads what another one writes, the order cannot show
    // and the runs go together.
    const intptr_t reach = (numberOfSteps - 1) * stepCount;
    const uint8_t *lowest = from + std::min<intptr_t>(reach, 0);
    const auto spanned = static_cast<size_t>(std::abs(reach)) + width;
    if (!kernels::Overlap(to, width * runs, lowest, spanned)) {
        if (stepCount == byteCount) {
            std::memcpy(to, from, width * runs);
            return true;
        }
        for (const auto &fixed : kFixedGathers) {
            if (fixed.width == byteCount && fixed.step == stepCount) {
                fixed.gather(to, from, runs);
                return true;
            }
        }
        GatherAny(to, from, width, stepCount, runs);
        return true;
    }
    for (size_t run = 0; run < runs; ++run, from += stepCount, to += width) {
        CopyAscending(to, from, width);
    }
    return true;
}

bool CopyNthBitsQVT(REALobject block, REALobject source, RBInteger sourceOffsetBits,
                    RBInteger destinationOffsetBits, RBInteger bitCount, RBInteger stepCount,
                    RBInteger numberOfSteps) {
    if (RaisedForNil(block, source)) return false;
    BitWriter writer(Bytes(block), destinationOffsetBits);
    // With no bit to take the reader has nothing to give, and a source
    // without memory is left alone. The first byte at an unaligned
    // destination offset is still stored, empty: the writer's rule holds
    // even when nothing was copied.
    if (numberOfSteps >= 1 && bitCount >= 1) {
        BitReader reader(Bytes(source), sourceOffsetBits);
        const intptr_t count = std::max<intptr_t>(bitCount, 0);
        const intptr_t gap = std::max<intptr_t>(stepCount, 0);
        const Pattern pattern{count, count + gap};
        const intptr_t total = pattern.period * numberOfSteps;
        // The table pays from a few dozen bytes on.
        if (gap > 0 && 8 % pattern.period == 0 && total >= kPatternBits) {
            CopyPattern(reader, writer, pattern, total);
        } else {
            CopyRuns(reader, writer, count, gap, numberOfSteps);
        }
    }
    writer.Finish();
    return true;
}

bool ExpandBitsQVT(REALobject block, REALobject dest, RBInteger sourceByteCount, RBInteger lowValue,
                   RBInteger highValue) {
    if (sourceByteCount < 1 || !block || !dest) return false;
    const uint8_t *from = Bytes(block);
    uint8_t *to = Bytes(dest);
    if (!from || !to) return false;

    const auto count = 4 * static_cast<size_t>(sourceByteCount / 4 + (sourceByteCount % 4 != 0));
    const bool bytes = lowValue >= 0 && lowValue <= 255 && highValue >= 0 && highValue <= 255;
    // Overlapping ranges are the caller's fault; they still get the bytes
    // of the ascending loop.
    const bool apart = !kernels::Overlap(to, 8 * count, from, count);
    if (bytes && apart) {
        ExpandToBytes(to, from, count, static_cast<uint8_t>(lowValue), static_cast<uint8_t>(highValue));
    } else {
        // Each group of four is one 32-bit number: higher bits of the values drop.
        ExpandSpilling(to, from, count, static_cast<uint32_t>(lowValue), static_cast<uint32_t>(highValue), apart);
    }
    return true;
}

}  // namespace qvt
