#include "kernels/width.h"

#include <bit>
#include <cstddef>
#include <cstring>

#include "diagnostics/debuglog.h"
#include "hostvalues/allocation.h"
#include "hostvalues/blocks.h"
#include "kernels/overlap.h"
#include "kernels/wordwise.h"

namespace qvt {

namespace {

constexpr std::size_t kBlockSamples = 32;
constexpr std::size_t kBlockSamples257 = 16;

// Ascending, one sample at a time; blocks of `Block` samples through local
// copies (which the compiler may vectorise) only while source and
// destination are apart, so a sample written early can't be read as source.
template <std::size_t Block, typename Widen>
void WidenSamples(uint8_t *dest, const uint8_t *source, std::size_t count, Widen widen) {
    std::size_t i = 0;
    if (count >= Block && !kernels::Overlap(source, count, dest, 2 * count)) {
        for (; count - i >= Block; i += Block) {
            uint8_t in[Block];
            uint16_t out[Block];
            std::memcpy(in, source + i, sizeof in);
            for (std::size_t k = 0; k < Block; ++k) out[k] = widen(in[k]);
            std::memcpy(dest + 2 * i, out, sizeof out);
        }
    }
    for (; i < count; ++i) {
        const uint16_t sample = widen(source[i]);
        std::memcpy(dest + 2 * i, &sample, sizeof sample);
    }
}

// The same for 16 to 8 bits; a `Block` of 0 has only the sample loop.
template <std::size_t Block, typename Narrow>
void NarrowSamples(uint8_t *dest, const uint8_t *source, std::size_t count, Narrow narrow) {
    std::size_t i = 0;
    if constexpr (Block > 0) {
        if (count >= Block && !kernels::Overlap(source, 2 * count, dest, count)) {
            for (; count - i >= Block; i += Block) {
                uint16_t in[Block];
                uint8_t out[Block];
                std::memcpy(in, source + 2 * i, sizeof in);
                for (std::size_t k = 0; k < Block; ++k) out[k] = narrow(in[k]);
                std::memcpy(dest + i, out, sizeof out);
            }
        }
    }
    for (; i < count; ++i) {
        uint16_t sample;
        std::memcpy(&sample, source + 2 * i, sizeof sample);
        dest[i] = narrow(sample);
    }
}

// 2, 4, ... 16384: the values taken by a shift.
bool IsShiftValue(uint32_t value) {
    return value >= 2 && value <= 16384 && std::has_single_bit(value);
}

void Widen(uint8_t *dest, const uint8_t *source, std::size_t count, int32_t divisor) {
    // Only the low 16 bits of the factor reach the wrapped product.
    const uint16_t factor = static_cast<uint16_t>(divisor);
    if (factor == 0) {
        ClearMemory(dest, 2 * static_cast<int64_t>(count));
    } else if (IsShiftValue(factor)) {
        const int shift = std::countr_zero(factor);
        WidenSamples<kBlockSamples>(dest, source, count,
                                    [shift](uint8_t s) { return static_cast<uint16_t>(s << shift); });
    } else if (factor == 257) {
        WidenSamples<kBlockSamples>(dest, source, count,
                                    [](uint8_t s) { return static_cast<uint16_t>(s * 257u); });
    } else {
        WidenSamples<kBlockSamples>(dest, source, count,
                                    [factor](uint8_t s) { return static_cast<uint16_t>(s * factor); });
    }
}

void Narrow(uint8_t *dest, const uint8_t *source, std::size_t count, int32_t divisor) {
    const auto by = static_cast<uint32_t>(divisor);
    if (by == 0) {
        ClearMemory(dest, static_cast<int64_t>(count));
    } else if (IsShiftValue(by)) {
        const int shift = std::countr_zero(by);
        NarrowSamples<kBlockSamples>(dest, source, count,
                                     [shift](uint16_t s) { return static_cast<uint8_t>(s >> shift); });
    } else if (by == 257) {
        NarrowSamples<kBlockSamples257>(dest, source, count,
                                        [](uint16_t s) { return static_cast<uint8_t>(s / 257u); });
    } else {
        NarrowSamples<0>(dest, source, count,
                         [by](uint16_t s) { return static_cast<uint8_t>(s / by); });
    }
}

struct Direction {
    const char *start;
    const char *end;
    void (*convert)(uint8_t *dest, const uint8_t *source, std::size_t count, int32_t divisor);
};

constexpr Direction kWiden{"CopyByteToUShortQVT start", "CopyByteToUShortQVT end", &Widen};
constexpr Direction kNarrow{"CopyUShortToByteQVT start", "CopyUShortToByteQVT end", &Narrow};

// Both directions raise for a nil block. Widening could return silently
// instead; a nil block is the caller's mistake either way, so the two
// report it alike.
void Copy(const Direction &direction, REALobject source, REALobject dest, intptr_t sourceOffset,
          intptr_t destinationOffset, intptr_t byteCount, intptr_t divisor) {
    // Offsets, count and divisor count as 32-bit numbers on every build.
    const auto sourceAt = static_cast<int32_t>(sourceOffset);
    const auto destAt = static_cast<int32_t>(destinationOffset);
    const auto count = static_cast<int32_t>(byteCount);
    const auto by = static_cast<int32_t>(divisor);
    if (Debugging()) DebugLogText(direction.start);
    if (Debugging()) DebugLogPointer("source", source);
    if (Debugging()) DebugLogPointer("dest", dest);
    if (Debugging()) DebugLogInt32("SourceOffset", sourceAt);
    if (Debugging()) DebugLogInt32("DestinationOffset", destAt);
    if (Debugging()) DebugLogInt32("ByteCount", count);
    if (Debugging()) DebugLogInt32("divisor", by);

    if (kernels::RaisedForNil(source, "source", "Source Memoryblock is nil")) return;
    if (kernels::RaisedForNil(dest, "dest", "Destination Memoryblock is nil")) return;
    auto *sp = static_cast<uint8_t *>(GetBlockPtr(source));
    auto *dp = static_cast<uint8_t *>(GetBlockPtr(dest));
    if (kernels::RaisedForNil(sp, "sp", "Source Memoryblock is nil")) return;
    if (kernels::RaisedForNil(dp, "dp", "Destination Memoryblock is nil")) return;

    if (count > 0) {
        direction.convert(dp + destAt, sp + sourceAt, static_cast<std::size_t>(count), by);
    }
    if (Debugging()) DebugLogText(direction.end);
}

}  // namespace

void CopyByteToUShortQVT(REALobject source, REALobject dest, intptr_t sourceOffset,
                         intptr_t destinationOffset, intptr_t byteCount, intptr_t divisor) {
    Copy(kWiden, source, dest, sourceOffset, destinationOffset, byteCount, divisor);
}

void CopyUShortToByteQVT(REALobject source, REALobject dest, intptr_t sourceOffset,
                         intptr_t destinationOffset, intptr_t byteCount, intptr_t divisor) {
    Copy(kNarrow, source, dest, sourceOffset, destinationOffset, byteCount, divisor);
}

}  // namespace qvt
