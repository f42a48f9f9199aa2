#include "kernels/colour.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kernels/dispatch.h"
#include "kernels/range.h"

#if defined(QVT_X86_TARGETS)
#include <immintrin.h>
#endif

namespace qvt {

namespace {

constexpr std::size_t kPixelBytes = 4;

bool Accepted(REALobject block, intptr_t offsetByte) {
    return !kernels::RaisedForNilReceiver(block) && !kernels::RaisedForNegativeOffset(offsetByte);
}

// The pixels a range covers, a last partial one included. A refused call
// pins nothing and covers none.
struct Pixels {
    rbData bytes;
    uint8_t *first = nullptr;
    std::size_t count = 0;

    Pixels(REALobject block, intptr_t offsetByte, intptr_t length)
        : bytes(Accepted(block, offsetByte) ? block : nullptr, 0, 0) {
        const intptr_t range = kernels::RangeLength(bytes, offsetByte, length);
        if (range <= 0) return;
        const auto rangeBytes = static_cast<std::size_t>(range);
        first = bytes.data + offsetByte;
        count = rangeBytes / kPixelBytes + (rangeBytes % kPixelBytes != 0 ? 1 : 0);
    }
};

}  // namespace

namespace {

// Each group of 3 bytes gives 2: the first byte, then the low half of the
// second and the high half of the third.
[[gnu::always_inline]] inline void PackGroup(uint8_t *to, const uint8_t *from) {
    const uint8_t b0 = from[0], b1 = from[1], b2 = from[2];
    to[0] = b0;
    to[1] = static_cast<uint8_t>((b1 << 4) | (b2 >> 4));
}

QVT_VECTOR_CLONES void PackApart(uint8_t *__restrict to, const uint8_t *__restrict from,
                                 std::size_t groups) {
    for (std::size_t g = 0; g < groups; ++g) PackGroup(to + 2 * g, from + 3 * g);
}

#if defined(QVT_X86_TARGETS)

// A group's two bytes as one 16-bit lane (little-endian on x86): the first
// byte, then the second byte's low half over the third byte's high half,
// which a lane holding the second and third bytes, shifted down by 4 and
// up by 8, brings into place. Each step loads all its source before it
// stores, and stores below the next step's source, so steps run in place
// from the first group.
__attribute__((target("avx2"))) std::size_t PackBy16Lanes(uint8_t *block, std::size_t groups) {
    // Four groups of each 128-bit half: 12 bytes in, 8 out.
    const __m256i toLane = _mm256_setr_epi8(2, 1, 5, 4, 8, 7, 11, 10, -1, -1, -1, -1, -1, -1, -1, -1,
                                            2, 1, 5, 4, 8, 7, 11, 10, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i firsts = _mm256_setr_epi8(0, -1, 3, -1, 6, -1, 9, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                            0, -1, 3, -1, 6, -1, 9, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    std::size_t g = 0;
    for (; g + 10 <= groups; g += 8) {  // reads 28 bytes from 3g
        const uint8_t *from = block + 3 * g;
        const __m256i source = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(from))),
            _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + 12)), 1);
        const __m256i seconds = _mm256_slli_epi16(_mm256_srli_epi16(_mm256_shuffle_epi8(source, toLane), 4), 8);
        const __m256i packed = _mm256_or_si256(seconds, _mm256_shuffle_epi8(source, firsts));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(block + 2 * g),
                         _mm256_castsi256_si128(_mm256_permute4x64_epi64(packed, 0x08)));
    }
    return g;
}

__attribute__((target("avx512f,avx512bw,avx512vbmi"))) std::size_t PackBy64Bytes(uint8_t *block,
                                                                                std::size_t groups) {
    // Sixteen groups: 48 bytes in, 32 out; odd lanes of `firsts` are zeroed.
    // (Masks everywhere: GCC warns of the unmasked forms' undefined lanes.)
    alignas(64) static constexpr uint8_t kToLane[64] = {
        2,  1,  5,  4,  8,  7,  11, 10, 14, 13, 17, 16, 20, 19, 23, 22,
        26, 25, 29, 28, 32, 31, 35, 34, 38, 37, 41, 40, 44, 43, 47, 46};
    alignas(64) static constexpr uint8_t kFirsts[64] = {
        0,  0, 3,  0, 6,  0, 9,  0, 12, 0, 15, 0, 18, 0, 21, 0,
        24, 0, 27, 0, 30, 0, 33, 0, 36, 0, 39, 0, 42, 0, 45, 0};
    const __m512i toLane = _mm512_load_si512(kToLane), firsts = _mm512_load_si512(kFirsts);
    std::size_t g = 0;
    for (; g + 22 <= groups; g += 16) {  // reads 64 bytes from 3g
        const __m512i source = _mm512_loadu_si512(block + 3 * g);
        const __m512i lanes = _mm512_maskz_permutexvar_epi8(~0ull, toLane, source);
        const __m512i seconds = _mm512_slli_epi16(_mm512_srli_epi16(lanes, 4), 8);
        const __m512i packed =
            _mm512_or_si512(seconds, _mm512_maskz_permutexvar_epi8(0x5555555555555555ull, firsts, source));
        _mm512_mask_storeu_epi8(block + 2 * g, 0xFFFFFFFFull, packed);
    }
    return g;
}

bool HasAvx2() { return __builtin_cpu_supports("avx2"); }
bool HasVbmi() { return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi"); }

constexpr kernels::GroupPacker kGroupPackers[] = {{&HasVbmi, &PackBy64Bytes}, {&HasAvx2, &PackBy16Lanes}};

#endif

}  // namespace

std::span<const kernels::GroupPacker> kernels::GroupPackers() { QVT_X86_WAYS(kGroupPackers); }

void ConvertRGB12BitTo8BitQVT(REALobject block, RBInteger width) {
    if (width < 1) return;
    rbData bytes(block, 0, 0);
    // Nothing is tested but the width; a block without memory is nothing
    // to write into, though, and is left alone rather than crash.
    if (!bytes.data) return;
    const auto groups = 3 * static_cast<std::size_t>(width);
    std::size_t g = 0;
    for (const kernels::GroupPacker &packer : kernels::GroupPackers()) {
        if (!packer.usable()) continue;
        g = packer.pack(bytes.data, groups);
        break;
    }
    // No group writes a byte that a later group reads, so groups may go in
    // any order; and from group g on, the next g / 2 groups write below
    // where they read, so they go as one run of apart ranges.
    for (; g < groups && g < 32; ++g) PackGroup(bytes.data + 2 * g, bytes.data + 3 * g);
    while (g < groups) {
        const std::size_t run = std::min(groups - g, g / 2);
        PackApart(bytes.data + 2 * g, bytes.data + 3 * g, run);
        g += run;
    }
}

namespace {

// A limit of source × factor cut toward zero. Products outside 32 bits are
// clamped; a NaN one (a NaN tolerance) takes `ifNaN`, chosen so that no
// byte lies within the limits.
int32_t Limit(intptr_t source, double factor, int32_t ifNaN) {
    const double product = static_cast<double>(source) * factor;
    if (product != product) return ifNaN;
    if (product >= 2147483647.0) return INT32_MAX;
    if (product <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(product);
}

// Where the byte of channel c sits in a pixel loaded as a native word.
constexpr unsigned ChannelShift(std::size_t c) {
    return std::endian::native == std::endian::little ? 8 * static_cast<unsigned>(c)
                                                      : 24 - 8 * static_cast<unsigned>(c);
}

// The limits of the four channels for a pixel split into two words of two
// 16-bit fields, one with the bytes at shifts 0 and 16, one with those at 8
// and 24. Adding 0x8000 - lower to a field sets its top bit when the byte
// is at least lower, adding 0x7FFF - upper when it is above upper; nothing
// carries between fields.
struct Window {
    uint32_t atLeast[2] = {}, above[2] = {};
};

QVT_VECTOR_CLONES void ReplaceMatching(uint8_t *pixels, std::size_t count, Window window,
                                       uint32_t dest) {
    const uint32_t atLeast0 = window.atLeast[0], atLeast1 = window.atLeast[1];
    const uint32_t above0 = window.above[0], above1 = window.above[1];
    for (std::size_t i = 0; i < count; ++i) {
        uint32_t pixel;
        std::memcpy(&pixel, pixels + kPixelBytes * i, kPixelBytes);
        const uint32_t even = pixel & 0x00FF00FFu, odd = (pixel >> 8) & 0x00FF00FFu;
        const uint32_t inside =
            (even + atLeast0) & (odd + atLeast1) & ~((even + above0) | (odd + above1));
        pixel = (inside & 0x80008000u) == 0x80008000u ? dest : pixel;
        std::memcpy(pixels + kPixelBytes * i, &pixel, kPixelBytes);
    }
}

// p3 from the sum of the bytes that `summed` keeps; `zeroSum` is what a sum
// of 0 gives. byteMax lies within -1..2000, where every sum of four bytes
// meets the same case as with any value beyond.
QVT_VECTOR_CLONES void FourthFromSum(uint8_t *pixels, std::size_t count, uint32_t summed,
                                     int32_t byteMax, uint32_t zeroSum) {
    constexpr unsigned kShift = ChannelShift(3);
    for (std::size_t i = 0; i < count; ++i) {
        uint32_t pixel;
        std::memcpy(&pixel, pixels + kPixelBytes * i, kPixelBytes);
        const uint32_t kept = pixel & summed;
        const uint32_t pairs = (kept & 0x00FF00FFu) + ((kept >> 8) & 0x00FF00FFu);
        const auto sum = static_cast<int32_t>((pairs & 0xFFFF) + (pairs >> 16));
        const int32_t fourth = std::clamp(byteMax - sum, 0, 255);
        const uint32_t value = sum == 0 ? zeroSum : static_cast<uint32_t>(fourth);
        pixel = (pixel & ~(0xFFu << kShift)) | (value << kShift);
        std::memcpy(pixels + kPixelBytes * i, &pixel, kPixelBytes);
    }
}

void Calc2te(REALobject block, intptr_t iByteMax, intptr_t offsetByte, intptr_t length,
             bool withSum0, bool withFourth) {
    const auto byteMax = static_cast<int32_t>(std::clamp<intptr_t>(iByteMax, -1, 2000));
    // WithSum0 decides only the value of a zero sum.
    const uint32_t zeroSum = withSum0 ? 0 : static_cast<uint32_t>(std::clamp(byteMax, 0, 255));
    const uint32_t summed = withFourth ? 0xFFFFFFFFu : ~(0xFFu << ChannelShift(3));
    Pixels pixels(block, offsetByte, length);
    FourthFromSum(pixels.first, pixels.count, summed, byteMax, zeroSum);
}

}  // namespace

void Calc3te(REALobject block, RBInteger source1, RBInteger source2, RBInteger source3,
             RBInteger source4, RBInteger dest1, RBInteger dest2, RBInteger dest3, RBInteger dest4,
             double tolerance, RBInteger offsetByte, RBInteger length) {
    const double hi = 1.0 + tolerance;
    const double lo = 1.0 - tolerance;
    const intptr_t sources[kPixelBytes] = {source1, source2, source3, source4};
    // Limits beyond the bytes' range come down to it; a channel that no
    // byte can meet leaves every pixel as it is.
    Window window;
    bool possible = true;
    for (std::size_t c = 0; c < kPixelBytes; ++c) {
        const int32_t upper = std::min(Limit(sources[c], hi, INT32_MIN), 255);
        const int32_t lower = std::max(Limit(sources[c], lo, INT32_MAX), 0);
        possible = possible && lower <= upper;
        if (!possible) break;
        const unsigned shift = ChannelShift(c);
        const std::size_t word = (shift / 8) % 2;
        window.atLeast[word] |= static_cast<uint32_t>(0x8000 - lower) << (shift & 16);
        window.above[word] |= static_cast<uint32_t>(0x7FFF - upper) << (shift & 16);
    }
    const uint8_t destBytes[kPixelBytes] = {static_cast<uint8_t>(dest1), static_cast<uint8_t>(dest2),
                                            static_cast<uint8_t>(dest3), static_cast<uint8_t>(dest4)};
    uint32_t dest;
    std::memcpy(&dest, destBytes, kPixelBytes);

    Pixels pixels(block, offsetByte, length);
    if (possible) ReplaceMatching(pixels.first, pixels.count, window, dest);
}

void Calc2teCMY(REALobject block, RBInteger iByteMax, RBInteger offsetByte, RBInteger length,
                bool withSum0) {
    Calc2te(block, iByteMax, offsetByte, length, withSum0, false);
}

void Calc2teCMYK(REALobject block, RBInteger iByteMax, RBInteger offsetByte, RBInteger length,
                 bool withSum0) {
    Calc2te(block, iByteMax, offsetByte, length, withSum0, true);
}

}  // namespace qvt
