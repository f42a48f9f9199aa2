#include "kernels/scaling.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include "kernels/dispatch.h"
#include "kernels/range.h"

namespace qvt {

namespace {

// The product cut toward zero and limited to the sample's largest value.
// A NaN product (a NaN factor, or 0 times an infinite one) gives 0 in both
// methods, as a factor of 0 would, rather than leaving some samples and
// zeroing others.
template <typename Sample>
Sample Scaled(unsigned value, double factor) {
    constexpr double kLargest = std::numeric_limits<Sample>::max();
    double product = static_cast<double>(value) * factor;
    product = product > 0.0 ? product : 0.0;
    product = product < kLargest ? product : kLargest;
    return static_cast<Sample>(static_cast<int32_t>(product));
}

// The smallest sample value that is replaced; above `largest`, none is.
uint32_t LowestReplaced(intptr_t multiplyOnlyOver, uint32_t largest) {
    if (multiplyOnlyOver < 0) return 0;
    if (multiplyOnlyOver >= static_cast<intptr_t>(largest)) return largest + 1;
    return static_cast<uint32_t>(multiplyOnlyOver) + 1;
}

// The table in a form with vectors, in 16-bit lanes: a byte below `lowest`
// stays, any other v gives v * whole + (v * fraction) / 2^16 cut off and
// limited to 255 (the sum stays below 2^16), unless it is patched. The
// table follows the rounded products, which for some factors (0.58 at 50
// and at 150, say) fall on either side of any line; those few entries are
// patched. A table that the line and the patches can't give is read as a
// table.
struct ByteRule {
    uint8_t lowest;
    uint16_t whole;
    uint16_t fraction;

    uint8_t operator()(uint8_t v) const {
        const auto line = static_cast<uint16_t>(v * whole + ((uint32_t{v} * fraction) >> 16));
        return v < lowest ? v : static_cast<uint8_t>(std::min<uint16_t>(line, 255));
    }
};

constexpr int kPatches = 8;

// Unused patches map 0 to 0, as every table does.
struct Patches {
    uint8_t patched[kPatches];
    uint8_t patch[kPatches];

    uint8_t operator()(uint8_t v, uint8_t out) const {
        for (int k = 0; k < kPatches; ++k) out = v == patched[k] ? patch[k] : out;
        return out;
    }
};

// The entries where the rule differs from the table; false if there are
// too many.
bool Patch(const uint8_t (&table)[256], ByteRule rule, Patches &patches, int &used) {
    patches = {};
    used = 0;
    for (unsigned v = 0; v < 256; ++v) {
        const auto value = static_cast<uint8_t>(v);
        if (rule(value) == table[v]) continue;
        if (used == kPatches) return false;
        patches.patched[used] = value;
        patches.patch[used] = table[v];
        ++used;
    }
    return true;
}

// The rule for the table, with the fraction rounded up or else down. From
// 255 on every byte but 0 saturates; a NaN factor gives 0 throughout.
bool RuleFor(const uint8_t (&table)[256], double factor, uint8_t lowest, ByteRule &rule,
             Patches &patches, int &used) {
    double whole = factor >= 255.0 ? 255.0 : 0.0;
    double fraction = 0.0;
    if (factor < 255.0) {
        whole = std::floor(factor);
        fraction = std::ldexp(factor - whole, 16);  // both exact
    }
    const double rounded[] = {std::ceil(fraction), std::floor(fraction)};
    for (double r : rounded) {
        const bool carry = r == 65536.0;
        rule = {lowest, static_cast<uint16_t>(whole + carry), static_cast<uint16_t>(carry ? 0.0 : r)};
        if (Patch(table, rule, patches, used)) return true;
    }
    return false;
}

template <bool Patched>
[[gnu::always_inline]] inline void ScaleEachByte(uint8_t *at, std::size_t count, ByteRule rule,
                                                 Patches patches) {
    for (std::size_t i = 0; i < count; ++i) {
        const uint8_t v = at[i];
        at[i] = Patched ? patches(v, rule(v)) : rule(v);
    }
}

QVT_VECTOR_CLONES void ScaleBytesByRule(uint8_t *at, std::size_t count, ByteRule rule) {
    ScaleEachByte<false>(at, count, rule, {});
}

QVT_VECTOR_CLONES void ScaleBytesPatched(uint8_t *at, std::size_t count, ByteRule rule,
                                         Patches patches) {
    ScaleEachByte<true>(at, count, rule, patches);
}

// The bytes that stay are in the table as themselves.
void ScaleBytesThroughTable(uint8_t *at, std::size_t count, const uint8_t (&table)[256]) {
    for (std::size_t i = 0; i < count; ++i) at[i] = table[at[i]];
}

// The table is built whether or not the range is empty.
void ScaleBytes(uint8_t *at, intptr_t count, double factor, intptr_t multiplyOnlyOver) {
    const uint32_t lowest = LowestReplaced(multiplyOnlyOver, 255);
    uint8_t table[256];
    for (unsigned v = 0; v < 256; ++v) {
        table[v] = v < lowest ? static_cast<uint8_t>(v) : Scaled<uint8_t>(v, factor);
    }
    if (count <= 0 || lowest > 255) return;
    ByteRule rule;
    Patches patches;
    int used = 0;
    const auto n = static_cast<std::size_t>(count);
    if (!RuleFor(table, factor, static_cast<uint8_t>(lowest), rule, patches, used)) {
        ScaleBytesThroughTable(at, n, table);
    } else if (used == 0) {
        ScaleBytesByRule(at, n, rule);
    } else {
        ScaleBytesPatched(at, n, rule, patches);
    }
}

// The product of a 16-bit sample and the factor as the rule gives it,
// converted by mask (below).
struct ByFactor {
    double factor;
    uint16_t operator()(uint16_t operand) const {
        return static_cast<uint16_t>(static_cast<int32_t>(operand * factor));
    }
};

// The product on a line in 32.32 fixed point: v * whole, plus the top half
// of v * (high * 2^16 + low) / 2^32, carried up from 16-bit pieces. Every
// piece is a 16-bit value of its own, so the loop runs in 16-bit lanes
// with no conversion.
struct OnLine {
    uint16_t whole, high, low;
    uint16_t operator()(uint16_t v) const {
        const auto times = static_cast<uint16_t>(uint32_t{v} * whole);
        const auto fraction = static_cast<uint16_t>((uint32_t{v} * low) >> 16);
        return static_cast<uint16_t>(times + kernels::HighOfProduct16(v, high, fraction));
    }
};

// Samples below `lowest` stay; with `Saturating`, those above
// `unsaturatedUpTo` give 65535 and are multiplied as that sample, so that
// every product converts. The factor is finite. Both picks go by masks:
// with ?: the compiler would convert only the products it keeps, and a
// conditional conversion has no vector form.
template <bool Saturating, typename Rule>
[[gnu::always_inline]] inline void ScaleEach(uint8_t *at, std::size_t count, Rule rule,
                                             uint16_t lowest, uint16_t unsaturatedUpTo) {
    for (std::size_t i = 0; i < count; ++i) {
        uint16_t sample;
        std::memcpy(&sample, at + 2 * i, 2);
        const uint16_t operand = Saturating ? std::min(sample, unsaturatedUpTo) : sample;
        auto scaled = rule(operand);
        if (Saturating) scaled |= static_cast<uint16_t>(-static_cast<int>(sample > unsaturatedUpTo));
        const auto stays = static_cast<uint16_t>(-static_cast<int>(sample < lowest));
        sample = static_cast<uint16_t>((sample & stays) | (scaled & ~stays));
        std::memcpy(at + 2 * i, &sample, 2);
    }
}

QVT_VECTOR_CLONES void ScaleSamplesSaturating(uint8_t *at, std::size_t count, double factor,
                                              uint16_t lowest, uint16_t unsaturatedUpTo) {
    ScaleEach<true>(at, count, ByFactor{factor}, lowest, unsaturatedUpTo);
}

QVT_VECTOR_CLONES void ScaleSamplesBelowOne(uint8_t *at, std::size_t count, double factor,
                                            uint16_t lowest) {
    ScaleEach<false>(at, count, ByFactor{factor}, lowest, 0);
}

QVT_VECTOR_CLONES void ScaleSamplesOnLine(uint8_t *at, std::size_t count, OnLine line,
                                          uint16_t lowest, uint16_t unsaturatedUpTo) {
    ScaleEach<true>(at, count, line, lowest, unsaturatedUpTo);
}

// The largest sample whose product stays below 65535; the products rise
// with the sample.
uint16_t UnsaturatedUpTo(double factor) {
    uint32_t below = 0;      // its product is below 65535
    uint32_t from = 65536;   // its product saturates, or it is past the samples
    while (from - below > 1) {
        const uint32_t middle = (below + from) / 2;
        if (middle * factor >= 65535.0) {
            from = middle;
        } else {
            below = middle;
        }
    }
    return static_cast<uint16_t>(below);
}

void ScaleDirectly(uint8_t *at, std::size_t count, double factor, uint16_t lowest,
                   uint16_t unsaturatedUpTo) {
    if (factor < 1.0) {
        ScaleSamplesBelowOne(at, count, factor, lowest);
    } else {
        ScaleSamplesSaturating(at, count, factor, lowest, unsaturatedUpTo);
    }
}

// From this many samples on, a line that may stray from the rule is worth
// checking against it at every sample value it would meet.
constexpr std::size_t kLineCheckedFrom = std::size_t{1} << 18;

bool LineHolds(OnLine line, double factor, uint16_t lowest, uint16_t unsaturatedUpTo) {
    constexpr uint32_t kChunk = 1024;
    uint8_t direct[2 * kChunk], onLine[2 * kChunk];
    for (uint32_t first = lowest; first <= unsaturatedUpTo; first += kChunk) {
        const uint32_t count = std::min<uint32_t>(kChunk, unsaturatedUpTo - first + 1);
        for (uint32_t k = 0; k < count; ++k) {
            const auto v = static_cast<uint16_t>(first + k);
            std::memcpy(direct + 2 * k, &v, 2);
        }
        std::memcpy(onLine, direct, 2 * count);
        ScaleDirectly(direct, count, factor, 0, unsaturatedUpTo);
        ScaleSamplesOnLine(onLine, count, line, 0, unsaturatedUpTo);
        if (std::memcmp(direct, onLine, 2 * count) != 0) return false;
    }
    return true;
}

// The line whose slope is the factor rounded up to 32 fractional bits, and
// whether it gives every scaled sample. A factor with no more fractional
// bits is the slope itself: every product is then a multiple of 2^-32
// below 65536, whose rounding to a double (by less than 2^-37) cannot reach
// the next integer, so the line cuts off as the rule does. Any other slope
// errs upward by less than 2^-16 over the samples, which shows only where a
// product lies just under an integer, and there the rounding of the
// double decides; so that line is checked, when the block is worth it.
bool LineFor(double factor, uint16_t lowest, uint16_t unsaturatedUpTo, std::size_t count,
             OnLine &line) {
    const double scaled = std::ldexp(factor, 32);  // below 2^48, exact
    const auto slope = static_cast<uint64_t>(std::ceil(scaled));
    line = {static_cast<uint16_t>(slope >> 32), static_cast<uint16_t>(slope >> 16),
            static_cast<uint16_t>(slope)};
    if (static_cast<double>(slope) == scaled) return true;
    return count >= kLineCheckedFrom && LineHolds(line, factor, lowest, unsaturatedUpTo);
}

// From 65535 on, every factor (also an infinite one) saturates each sample
// but 0, which stays 0; a NaN factor gives 0 like a factor of 0.
void ScaleSamples(uint8_t *at, intptr_t count, double factor, intptr_t multiplyOnlyOver) {
    const uint32_t lowest = LowestReplaced(multiplyOnlyOver, 65535);
    if (count <= 0 || lowest > 65535) return;
    if (std::isnan(factor)) factor = 0.0;
    if (factor > 65535.0) factor = 65535.0;
    const auto n = static_cast<std::size_t>(count);
    const auto from = static_cast<uint16_t>(lowest);
    const uint16_t upTo = factor < 1.0 ? 65535 : UnsaturatedUpTo(factor);
    OnLine line;
    if (LineFor(factor, from, upTo, n, line)) {
        ScaleSamplesOnLine(at, n, line, from, upTo);
    } else {
        ScaleDirectly(at, n, factor, from, upTo);
    }
}

using Scaler = void (*)(uint8_t *, intptr_t, double, intptr_t);

// The tests and the range both methods share; `scale` gets the range's
// first byte and its length in bytes.
void Multiply(REALobject block, double factor, intptr_t offsetByte, intptr_t lengthBytes,
              intptr_t multiplyOnlyOver, Scaler scale, intptr_t sampleBytes) {
    if (kernels::RaisedForNilReceiver(block) || kernels::RaisedForNegativeOffset(offsetByte)) {
        return;
    }
    if (0.0 > factor) {
        RaiseException("UnsupportedOperationException", "Percentage < 0.0",
                       hostabi::kEncodingASCII);
        return;
    }
    rbData bytes(block, 0, 0);
    const intptr_t length = kernels::RangeLength(bytes, offsetByte, lengthBytes);
    const intptr_t count = length > 0 ? length / sampleBytes : 0;
    // An empty range may lie anywhere, so its start is not formed at all.
    scale(count > 0 ? bytes.data + offsetByte : nullptr, count, factor, multiplyOnlyOver);
}

}  // namespace

void MultiplyUInt8QVT(REALobject block, double factor, RBInteger offsetByte, RBInteger lengthBytes,
                      RBInteger multiplyOnlyOver) {
    Multiply(block, factor, offsetByte, lengthBytes, multiplyOnlyOver, &ScaleBytes, 1);
}

void MultiplyUInt16QVT(REALobject block, double factor, RBInteger offsetByte, RBInteger lengthBytes,
                       RBInteger multiplyOnlyOver) {
    Multiply(block, factor, offsetByte, lengthBytes, multiplyOnlyOver, &ScaleSamples, 2);
}

}  // namespace qvt
