#include "kernels/width.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "diagnostics/debuglog.h"
#include "hostvalues/allocation.h"
#include "hostvalues/blocks.h"
#include "kernels/dispatch.h"
#include "kernels/overlap.h"
#include "kernels/wordwise.h"

namespace qvt {

namespace kernels {

Reciprocal ReciprocalOf(uint32_t divisor) {
    if (divisor > 0xFFFF) return {0, 0, 0};
    const auto log = static_cast<uint32_t>(std::bit_width(divisor)) - 1;
    const uint32_t shift = 16 + log;
    if (std::has_single_bit(divisor)) return {0, uint32_t{1} << 16, shift};
    const uint64_t power = uint64_t{1} << shift;
    const auto down = static_cast<uint32_t>(power / divisor);
    const uint32_t up = down + 1;
    if (uint64_t{up} * divisor - power <= (uint64_t{1} << log)) return {0, up, shift};
    return {1, down, shift};
}

}  // namespace kernels

namespace {

// Below this many samples, or with the ranges overlapping, the samples go
// one at a time.
constexpr std::size_t kBlockSamples = 32;
constexpr std::size_t kBlockSamples257 = 16;

// The rule of each loop for one sample. Compilers shift by a count known
// only at run time in 32-bit lanes, so shifts are written as products that
// stay in 16 bits: a left shift is the product by the power of two, which
// is the rule for any other factor; a right shift by k is the high half of
// the product by 2^(16-k).
struct Times257 {
    uint16_t operator()(uint8_t s) const { return static_cast<uint16_t>(s * 257u); }
};
struct Times {
    uint16_t factor;
    uint16_t operator()(uint8_t s) const { return static_cast<uint16_t>(s * factor); }
};
struct ShiftDown {
    uint16_t multiplier;
    uint8_t operator()(uint16_t s) const {
        return static_cast<uint8_t>((uint32_t{s} * multiplier) >> 16);
    }
};
struct Over257 {
    uint8_t operator()(uint16_t s) const { return static_cast<uint8_t>(s / 257u); }
};
// The reciprocal's product in 16-bit lanes: the top half of s * multiplier,
// plus the carry out of its lower half when the dividend is raised by one
// (`addend` is then the multiplier), shifted down by the rest of the shift
// as a product like ShiftDown's (none for a rest of 0). A multiplier of
// 2^16 stands as 65535 with the dividend raised, which gives s as well.
struct Over {
    uint16_t multiplier, addend, down;
    explicit Over(kernels::Reciprocal r)
        : multiplier(static_cast<uint16_t>(r.multiplier == 0x10000 ? 0xFFFF : r.multiplier)),
          addend(r.add != 0 || r.multiplier == 0x10000 ? multiplier : 0),
          down(static_cast<uint16_t>(r.shift <= 16 ? 0 : 0x10000u >> (r.shift - 16))) {}
    uint8_t operator()(uint16_t s) const {
        const uint16_t top = kernels::HighOfProduct16(s, multiplier, addend);
        const auto shifted = static_cast<uint16_t>((uint32_t{top} * down) >> 16);
        return static_cast<uint8_t>(down == 0 ? top : shifted);
    }
};

// Ascending, one sample at a time.
template <typename Rule>
[[gnu::always_inline]] inline void WidenEach(uint8_t *dest, const uint8_t *source,
                                             std::size_t count, Rule rule) {
    for (std::size_t i = 0; i < count; ++i) {
        const uint16_t sample = rule(source[i]);
        std::memcpy(dest + 2 * i, &sample, sizeof sample);
    }
}

template <typename Rule>
[[gnu::always_inline]] inline void NarrowEach(uint8_t *dest, const uint8_t *source,
                                              std::size_t count, Rule rule) {
    for (std::size_t i = 0; i < count; ++i) {
        uint16_t sample;
        std::memcpy(&sample, source + 2 * i, sizeof sample);
        dest[i] = rule(sample);
    }
}

// The same loops for ranges apart, where the order cannot show: plain
// functions, so that they get the vector clones.
#define QVT_APART(Each, Rule)                                                              \
    QVT_VECTOR_CLONES void Apart(uint8_t *__restrict dest, const uint8_t *__restrict source, \
                                 std::size_t count, Rule rule) {                           \
        Each(dest, source, count, rule);                                                   \
    }
QVT_APART(WidenEach, Times257)
QVT_APART(WidenEach, Times)
QVT_APART(NarrowEach, ShiftDown)
QVT_APART(NarrowEach, Over257)
QVT_APART(NarrowEach, Over)
#undef QVT_APART

template <std::size_t Block, typename Rule>
void WidenWith(uint8_t *dest, const uint8_t *source, std::size_t count, Rule rule) {
    if (count >= Block && !kernels::Overlap(source, count, dest, 2 * count)) {
        Apart(dest, source, count, rule);
    } else {
        WidenEach(dest, source, count, rule);
    }
}

template <std::size_t Block, typename Rule>
void NarrowWith(uint8_t *dest, const uint8_t *source, std::size_t count, Rule rule) {
    if (count >= Block && !kernels::Overlap(source, 2 * count, dest, count)) {
        Apart(dest, source, count, rule);
    } else {
        NarrowEach(dest, source, count, rule);
    }
}

// 2, 4, ... 16384: the values taken by a shift.
bool IsShiftValue(uint32_t value) {
    return value >= 2 && value <= 16384 && std::has_single_bit(value);
}

void Widen(uint8_t *dest, const uint8_t *source, std::size_t count, RBInteger divisor) {
    // Only the low 16 bits of the factor reach the wrapped product.
    const uint16_t factor = static_cast<uint16_t>(divisor);
    if (factor == 0) {
        ClearMemory(dest, 2 * static_cast<int64_t>(count));
    } else if (factor == 257) {
        WidenWith<kBlockSamples>(dest, source, count, Times257{});
    } else {
        WidenWith<kBlockSamples>(dest, source, count, Times{factor});
    }
}

// Any other divisor multiplies by its reciprocal, which gives the quotient
// exactly for every 16-bit sample, and so goes by blocks like the others.
void Narrow(uint8_t *dest, const uint8_t *source, std::size_t count, RBInteger divisor) {
    // Read unsigned; any divisor past 65535 gives 0 for every sample, as
    // the largest 32-bit one does.
    const auto by =
        static_cast<uint32_t>(std::min<uintptr_t>(static_cast<uintptr_t>(divisor), UINT32_MAX));
    if (by == 0) {
        ClearMemory(dest, static_cast<int64_t>(count));
    } else if (IsShiftValue(by)) {
        NarrowWith<kBlockSamples>(dest, source, count, ShiftDown{static_cast<uint16_t>(0x10000u / by)});
    } else if (by == 257) {
        NarrowWith<kBlockSamples257>(dest, source, count, Over257{});
    } else {
        NarrowWith<kBlockSamples>(dest, source, count, Over(kernels::ReciprocalOf(by)));
    }
}

struct Direction {
    const char *start;
    const char *end;
    void (*convert)(uint8_t *dest, const uint8_t *source, std::size_t count, RBInteger divisor);
};

constexpr Direction kWiden{"CopyByteToUShortQVT start", "CopyByteToUShortQVT end", &Widen};
constexpr Direction kNarrow{"CopyUShortToByteQVT start", "CopyUShortToByteQVT end", &Narrow};

// Both directions raise for a nil block. Widening could return silently
// instead; a nil block is the caller's mistake either way, so the two
// report it alike.
void Copy(const Direction &direction, REALobject source, REALobject dest, RBInteger sourceOffset,
          RBInteger destinationOffset, RBInteger byteCount, RBInteger divisor) {
    if (Debugging()) DebugLogText(direction.start);
    if (Debugging()) DebugLogPointer("source", source);
    if (Debugging()) DebugLogPointer("dest", dest);
    // Printed whole: a 32-bit build's lines are those of %d.
    if (Debugging()) DebugLogInt64("SourceOffset", sourceOffset);
    if (Debugging()) DebugLogInt64("DestinationOffset", destinationOffset);
    if (Debugging()) DebugLogInt64("ByteCount", byteCount);
    if (Debugging()) DebugLogInt64("divisor", divisor);

    if (kernels::RaisedForNil(source, "source", "Source Memoryblock is nil")) return;
    if (kernels::RaisedForNil(dest, "dest", "Destination Memoryblock is nil")) return;
    auto *sp = static_cast<uint8_t *>(GetBlockPtr(source));
    auto *dp = static_cast<uint8_t *>(GetBlockPtr(dest));
    if (kernels::RaisedForNil(sp, "sp", "Source Memoryblock is nil")) return;
    if (kernels::RaisedForNil(dp, "dp", "Destination Memoryblock is nil")) return;

    if (byteCount > 0) {
        direction.convert(dp + destinationOffset, sp + sourceOffset,
                          static_cast<std::size_t>(byteCount), divisor);
    }
    if (Debugging()) DebugLogText(direction.end);
}

}  // namespace

void CopyByteToUShortQVT(REALobject source, REALobject dest, RBInteger sourceOffset,
                         RBInteger destinationOffset, RBInteger byteCount, RBInteger divisor) {
    Copy(kWiden, source, dest, sourceOffset, destinationOffset, byteCount, divisor);
}

void CopyUShortToByteQVT(REALobject source, REALobject dest, RBInteger sourceOffset,
                         RBInteger destinationOffset, RBInteger byteCount, RBInteger divisor) {
    Copy(kNarrow, source, dest, sourceOffset, destinationOffset, byteCount, divisor);
}

}  // namespace qvt
