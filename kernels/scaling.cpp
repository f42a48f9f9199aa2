#include "kernels/scaling.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include "kernels/dispatch.h"
#include "kernels/range.h"

#if defined(QVT_X86_TARGETS)
#include <immintrin.h>
#endif

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

// The rule for the table, with the fraction rounded up or down, whichever
// needs fewer patches. From 255 on every byte but 0 saturates; a NaN factor
// gives 0 throughout.
bool RuleFor(const uint8_t (&table)[256], double factor, uint8_t lowest, ByteRule &rule,
             Patches &patches, int &used) {
    double whole = factor >= 255.0 ? 255.0 : 0.0;
    double fraction = 0.0;
    if (factor < 255.0) {
        whole = std::floor(factor);
        fraction = std::ldexp(factor - whole, 16);  // both exact
    }
    const double rounded[] = {std::ceil(fraction), std::floor(fraction)};
    bool found = false;
    for (double r : rounded) {
        const bool carry = r == 65536.0;
        const ByteRule candidate{lowest, static_cast<uint16_t>(whole + carry),
                                 static_cast<uint16_t>(carry ? 0.0 : r)};
        Patches candidatePatches{};
        int candidateUsed = 0;
        if (!Patch(table, candidate, candidatePatches, candidateUsed)) continue;
        if (found && candidateUsed >= used) continue;
        rule = candidate;
        patches = candidatePatches;
        used = candidateUsed;
        found = true;
    }
    return found;
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

#if defined(QVT_X86_TARGETS)

// Each byte's table entry by two 128-entry look-ups, the byte's top bit
// choosing between them.
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) std::size_t LookUpBy64Bytes(uint8_t *at, std::size_t count,
                                                                                   const uint8_t *table) {
    const __m512i quarters[4] = {_mm512_loadu_si512(table), _mm512_loadu_si512(table + 64),
                                 _mm512_loadu_si512(table + 128), _mm512_loadu_si512(table + 192)};
    std::size_t i = 0;
    for (; i + 64 <= count; i += 64) {
        const __m512i bytes = _mm512_loadu_si512(at + i);
        const __m512i below = _mm512_permutex2var_epi8(quarters[0], bytes, quarters[1]);
        const __m512i above = _mm512_permutex2var_epi8(quarters[2], bytes, quarters[3]);
        _mm512_storeu_si512(at + i, _mm512_mask_blend_epi8(_mm512_movepi8_mask(bytes), below, above));
    }
    return i;
}

bool HasVbmi() { return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi"); }

constexpr kernels::ByteLookUp kByteLookUps[] = {{&HasVbmi, &LookUpBy64Bytes}};

#endif

bool LooksUpInVectors() {
    const auto ways = kernels::ByteLookUps();
    return std::any_of(ways.begin(), ways.end(), [](const kernels::ByteLookUp &way) { return way.usable(); });
}

// The bytes that stay are in the table as themselves.
void ScaleBytesThroughTable(uint8_t *at, std::size_t count, const uint8_t (&table)[256]) {
    std::size_t i = 0;
    for (const kernels::ByteLookUp &way : kernels::ByteLookUps()) {
        if (!way.usable()) continue;
        i = way.look(at, count, table);
        break;
    }
    for (; i < count; ++i) at[i] = table[at[i]];
}

// The table is built whether or not the range is empty.
void ScaleBytes(uint8_t *at, intptr_t count, double factor, intptr_t multiplyOnlyOver) {
    const uint32_t lowest = LowestReplaced(multiplyOnlyOver, 255);
    uint8_t table[256];
    for (unsigned v = 0; v < 256; ++v) {
        table[v] = v < lowest ? static_cast<uint8_t>(v) : Scaled<uint8_t>(v, factor);
    }
    if (count <= 0 || lowest > 255) return;
    ByteRule rule{};
    Patches patches{};
    int used = 0;
    const auto n = static_cast<std::size_t>(count);
    // Vectors that look the table up are exact for every factor and faster
    // than the rule; the rule serves where there are none.
    if (LooksUpInVectors() || !RuleFor(table, factor, static_cast<uint8_t>(lowest), rule, patches, used)) {
        ScaleBytesThroughTable(at, n, table);
    } else if (used == 0) {
        ScaleBytesByRule(at, n, rule);
    } else {
        ScaleBytesPatched(at, n, rule, patches);
    }
}

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

// Samples below `lowest` stay; those above `unsaturatedUpTo` give 65535
// and are multiplied as that sample, so that no product leaves 16 bits.
// Both picks go by masks, which vectorize.
QVT_VECTOR_CLONES void ScaleSamplesOnLine(uint8_t *at, std::size_t count, OnLine line,
                                          uint16_t lowest, uint16_t unsaturatedUpTo) {
    for (std::size_t i = 0; i < count; ++i) {
        uint16_t sample;
        std::memcpy(&sample, at + 2 * i, 2);
        auto scaled = line(std::min(sample, unsaturatedUpTo));
        scaled |= static_cast<uint16_t>(-static_cast<int>(sample > unsaturatedUpTo));
        const auto stays = static_cast<uint16_t>(-static_cast<int>(sample < lowest));
        sample = static_cast<uint16_t>((sample & stays) | (scaled & ~stays));
        std::memcpy(at + 2 * i, &sample, 2);
    }
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

// Samples below `lowest` stay. Branch-free, so that compilers may run it
// in vector lanes where no hand-written way below applies.
void ScaleEachSample(uint8_t *at, std::size_t count, double factor, uint16_t lowest) {
    for (std::size_t i = 0; i < count; ++i) {
        uint16_t sample;
        std::memcpy(&sample, at + 2 * i, 2);
        const uint16_t scaled = Scaled<uint16_t>(sample, factor);
        const auto stays = static_cast<uint16_t>(-static_cast<int>(sample < lowest));
        sample = static_cast<uint16_t>((sample & stays) | (scaled & ~stays));
        std::memcpy(at + 2 * i, &sample, 2);
    }
}

// A factor that gives every sample what it gives: from 65535 on, every
// factor (also an infinite one) saturates each sample but 0, which stays 0;
// below 2^-16 every product stays below 1 and is cut to 0, as with a NaN
// factor. So products are never NaN, infinite or subnormal (which some
// processors multiply slowly).
double Normal(double factor) {
    if (!(factor >= 0x1p-16)) return 0.0;
    return factor > 65535.0 ? 65535.0 : factor;
}

#if defined(QVT_X86_TARGETS)

// The rule's own steps in double lanes: widen, convert, multiply, cut
// toward zero, limit to 65535, narrow: the operations of Scaled, so every
// factor gives the same bytes. Each way takes the factor as Normal gives
// it, so products are finite and not below 0 (or -0.0, cut to 0 as well).
__attribute__((target("avx2"))) inline __m128i Scaled4(__m128i samples32, __m256d factor) {
    const __m256d product = _mm256_mul_pd(_mm256_cvtepi32_pd(samples32), factor);
    // Limited before the cut, since products up to 65535^2 leave int32.
    return _mm256_cvttpd_epi32(_mm256_min_pd(product, _mm256_set1_pd(65535.0)));
}

__attribute__((target("avx2"))) inline __m256i ScaledOrStays8(__m256i samples32, __m256d factor, __m256i lowest) {
    const __m256i scaled = _mm256_set_m128i(Scaled4(_mm256_extracti128_si256(samples32, 1), factor),
                                            Scaled4(_mm256_castsi256_si128(samples32), factor));
    return _mm256_blendv_epi8(scaled, samples32, _mm256_cmpgt_epi32(lowest, samples32));
}

__attribute__((target("avx2"))) std::size_t ScaleBy16Samples(uint8_t *at, std::size_t count, double factor,
                                                             uint16_t lowest) {
    const __m256d by = _mm256_set1_pd(Normal(factor));
    const __m256i from = _mm256_set1_epi32(lowest);
    std::size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        auto *p = reinterpret_cast<__m256i *>(at + 2 * i);
        const __m256i samples = _mm256_loadu_si256(p);
        const __m256i low = ScaledOrStays8(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(samples)), by, from);
        const __m256i high = ScaledOrStays8(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(samples, 1)), by, from);
        // packus pairs the halves lane by lane; the permute restores the order.
        _mm256_storeu_si256(p, _mm256_permute4x64_epi64(_mm256_packus_epi32(low, high), 0xD8));
    }
    return i;
}

// Eight samples' results in the low 16 bits of 64-bit lanes: the product,
// limited, plus 2^52 rounded toward zero is 2^52 plus the product cut
// toward zero, an integer in the double's low bits. (Masks everywhere:
// GCC warns of the unmasked forms' undefined lanes.)
__attribute__((target("avx512f"))) inline __m512i Scaled8(const uint8_t *samples, __m512d factor) {
    constexpr __mmask8 kAll = 0xFF;
    const __m256i wide = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(samples)));
    const __m512d product = _mm512_maskz_mul_pd(kAll, _mm512_maskz_cvtepi32_pd(kAll, wide), factor);
    const __m512d limited = _mm512_maskz_min_pd(kAll, product, _mm512_set1_pd(65535.0));
    return _mm512_castpd_si512(
        _mm512_maskz_add_round_pd(kAll, limited, _mm512_set1_pd(0x1p52), _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
}

__attribute__((target("avx512f,avx512bw"))) std::size_t ScaleBy32Samples(uint8_t *at, std::size_t count,
                                                                         double factor, uint16_t lowest) {
    // Word 4k of the two sources, the low 16 bits of lane k, into word k
    // of each half.
    alignas(64) static constexpr uint16_t kLow[32] = {0,  4,  8,  12, 16, 20, 24, 28, 32, 36, 40,
                                                      44, 48, 52, 56, 60, 0,  4,  8,  12, 16, 20,
                                                      24, 28, 32, 36, 40, 44, 48, 52, 56, 60};
    const __m512i low = _mm512_load_si512(kLow);
    const __m512d by = _mm512_set1_pd(Normal(factor));
    const __m512i from = _mm512_set1_epi16(static_cast<short>(lowest));
    std::size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        uint8_t *p = at + 2 * i;
        const __m512i samples = _mm512_loadu_si512(p);
        const __m512i first = _mm512_permutex2var_epi16(Scaled8(p, by), low, Scaled8(p + 16, by));
        const __m512i second = _mm512_permutex2var_epi16(Scaled8(p + 32, by), low, Scaled8(p + 48, by));
        const __m512i scaled = _mm512_mask_blend_epi64(0xF0, first, second);
        const __mmask32 stays = _mm512_cmplt_epu16_mask(samples, from);
        _mm512_storeu_si512(p, _mm512_mask_blend_epi16(stays, scaled, samples));
    }
    return i;
}

bool HasAvx2() { return __builtin_cpu_supports("avx2"); }
bool HasAvx512() { return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw"); }

constexpr kernels::SampleScaler kSampleScalers[] = {{&HasAvx512, &ScaleBy32Samples},
                                                    {&HasAvx2, &ScaleBy16Samples}};

#endif

// Samples from `lowest` on get the rule's product, in the widest lanes the
// processor has.
void ScaleExactly(uint8_t *at, std::size_t count, double factor, uint16_t lowest) {
    std::size_t done = 0;
    for (const kernels::SampleScaler &scaler : kernels::SampleScalers()) {
        if (!scaler.usable()) continue;
        done = scaler.scale(at, count, factor, lowest);
        break;
    }
    ScaleEachSample(at + 2 * done, count - done, factor, lowest);
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
        ScaleExactly(direct, count, factor, 0);
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

void ScaleSamples(uint8_t *at, intptr_t count, double factor, intptr_t multiplyOnlyOver) {
    const uint32_t lowest = LowestReplaced(multiplyOnlyOver, 65535);
    if (count <= 0 || lowest > 65535) return;
    factor = Normal(factor);
    const auto n = static_cast<std::size_t>(count);
    const auto from = static_cast<uint16_t>(lowest);
    const uint16_t upTo = factor < 1.0 ? 65535 : UnsaturatedUpTo(factor);
    OnLine line;
    if (LineFor(factor, from, upTo, n, line)) {
        ScaleSamplesOnLine(at, n, line, from, upTo);
    } else {
        ScaleExactly(at, n, factor, from);
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

std::span<const kernels::ByteLookUp> kernels::ByteLookUps() { QVT_X86_WAYS(kByteLookUps); }

std::span<const kernels::SampleScaler> kernels::SampleScalers() { QVT_X86_WAYS(kSampleScalers); }

void MultiplyUInt8QVT(REALobject block, double factor, RBInteger offsetByte, RBInteger lengthBytes,
                      RBInteger multiplyOnlyOver) {
    Multiply(block, factor, offsetByte, lengthBytes, multiplyOnlyOver, &ScaleBytes, 1);
}

void MultiplyUInt16QVT(REALobject block, double factor, RBInteger offsetByte, RBInteger lengthBytes,
                       RBInteger multiplyOnlyOver) {
    Multiply(block, factor, offsetByte, lengthBytes, multiplyOnlyOver, &ScaleSamples, 2);
}

}  // namespace qvt
