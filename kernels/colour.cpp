#include "kernels/colour.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kernels/dispatch.h"
#include "kernels/range.h"

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

}  // namespace

void ConvertRGB12BitTo8BitQVT(REALobject block, intptr_t width) {
    if (width < 1) return;
    rbData bytes(block, 0, 0);
    // Nothing is tested but the width; a block without memory is nothing
    // to write into, though, and is left alone rather than crash.
    if (!bytes.data) return;
    // No group writes a byte that a later group reads, so groups may go in
    // any order; and from group g on, the next g / 2 groups write below
    // where they read, so they go as one run of apart ranges.
    const auto groups = 3 * static_cast<std::size_t>(width);
    std::size_t g = 0;
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

void Calc3te(REALobject block, intptr_t source1, intptr_t source2, intptr_t source3,
             intptr_t source4, intptr_t dest1, intptr_t dest2, intptr_t dest3, intptr_t dest4,
             double tolerance, intptr_t offsetByte, intptr_t length) {
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

void Calc2teCMY(REALobject block, intptr_t iByteMax, intptr_t offsetByte, intptr_t length,
                bool withSum0) {
    Calc2te(block, iByteMax, offsetByte, length, withSum0, false);
}

void Calc2teCMYK(REALobject block, intptr_t iByteMax, intptr_t offsetByte, intptr_t length,
                 bool withSum0) {
    Calc2te(block, iByteMax, offsetByte, length, withSum0, true);
}

}  // namespace qvt
