#include "kernels/colour.h"

#include <cstddef>
#include <cstdint>

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

void ConvertRGB12BitTo8BitQVT(REALobject block, intptr_t width) {
    if (width < 1) return;
    rbData bytes(block, 0, 0);
    // Nothing is tested but the width; a block without memory is nothing
    // to write into, though, and is left alone rather than crash.
    if (!bytes.data) return;
    const uint8_t *from = bytes.data;
    uint8_t *to = bytes.data;
    for (intptr_t step = 0; step < width; ++step, from += 9, to += 6) {
        uint8_t s[9];
        for (int k = 0; k < 9; ++k) s[k] = from[k];
        for (int group = 0; group < 3; ++group) {
            to[2 * group] = s[3 * group];
            to[2 * group + 1] =
                static_cast<uint8_t>((s[3 * group + 1] << 4) | (s[3 * group + 2] >> 4));
        }
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

}  // namespace

void Calc3te(REALobject block, intptr_t source1, intptr_t source2, intptr_t source3,
             intptr_t source4, intptr_t dest1, intptr_t dest2, intptr_t dest3, intptr_t dest4,
             double tolerance, intptr_t offsetByte, intptr_t length) {
    const double hi = 1.0 + tolerance;
    const double lo = 1.0 - tolerance;
    const intptr_t sources[kPixelBytes] = {source1, source2, source3, source4};
    int32_t upper[kPixelBytes];
    int32_t lower[kPixelBytes];
    for (std::size_t c = 0; c < kPixelBytes; ++c) {
        upper[c] = Limit(sources[c], hi, INT32_MIN);
        lower[c] = Limit(sources[c], lo, INT32_MAX);
    }
    const uint8_t dest[kPixelBytes] = {static_cast<uint8_t>(dest1), static_cast<uint8_t>(dest2),
                                       static_cast<uint8_t>(dest3), static_cast<uint8_t>(dest4)};

    Pixels pixels(block, offsetByte, length);
    uint8_t *p = pixels.first;
    for (std::size_t i = 0; i < pixels.count; ++i, p += kPixelBytes) {
        bool matches = true;
        for (std::size_t c = 0; c < kPixelBytes; ++c) {
            matches = matches && p[c] >= lower[c] && p[c] <= upper[c];
        }
        if (matches) {
            for (std::size_t c = 0; c < kPixelBytes; ++c) p[c] = dest[c];
        }
    }
}

namespace {

template <std::size_t Channels, bool WithSum0>
void FourthFromSum(uint8_t *p, std::size_t count, intptr_t iByteMax) {
    for (std::size_t i = 0; i < count; ++i, p += kPixelBytes) {
        intptr_t sum = 0;
        for (std::size_t c = 0; c < Channels; ++c) sum += p[c];
        uint8_t fourth;
        if (sum >= iByteMax || (WithSum0 && sum == 0)) {
            fourth = 0;
        } else if (iByteMax - sum >= 255) {
            fourth = 255;
        } else {
            fourth = static_cast<uint8_t>(iByteMax - sum);
        }
        p[3] = fourth;
    }
}

template <std::size_t Channels>
void Calc2te(REALobject block, intptr_t iByteMax, intptr_t offsetByte, intptr_t length,
             bool withSum0) {
    Pixels pixels(block, offsetByte, length);
    if (withSum0) {
        FourthFromSum<Channels, true>(pixels.first, pixels.count, iByteMax);
    } else {
        FourthFromSum<Channels, false>(pixels.first, pixels.count, iByteMax);
    }
}

}  // namespace

void Calc2teCMY(REALobject block, intptr_t iByteMax, intptr_t offsetByte, intptr_t length,
                bool withSum0) {
    Calc2te<3>(block, iByteMax, offsetByte, length, withSum0);
}

void Calc2teCMYK(REALobject block, intptr_t iByteMax, intptr_t offsetByte, intptr_t length,
                 bool withSum0) {
    Calc2te<4>(block, iByteMax, offsetByte, length, withSum0);
}

}  // namespace qvt
