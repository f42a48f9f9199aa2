#include "kernels/scaling.h"

#include <cstring>
#include <limits>

#include "kernels/range.h"

namespace qvt {

namespace {

// The product cut toward zero and limited to the sample's largest value.
// A NaN product (a NaN factor, or 0 times an infinite one) gives 0 in both
// methods, as a factor of 0 would, rather than leaving some samples and
// zeroing others.
template <typename Sample>
Sample Scaled(unsigned value, double factor) {
    constexpr Sample kLargest = std::numeric_limits<Sample>::max();
    const double product = static_cast<double>(value) * factor;
    if (product >= static_cast<double>(kLargest)) return kLargest;
    if (product > 0.0) return static_cast<Sample>(product);
    return 0;
}

// The table is built whether or not the range is empty.
void ScaleBytes(uint8_t *at, intptr_t count, double factor, intptr_t multiplyOnlyOver) {
    uint8_t table[256];
    for (unsigned v = 0; v < 256; ++v) table[v] = Scaled<uint8_t>(v, factor);
    if (multiplyOnlyOver < 0) {
        for (intptr_t i = 0; i < count; ++i) at[i] = table[at[i]];
    } else {
        for (intptr_t i = 0; i < count; ++i) {
            if (at[i] > multiplyOnlyOver) at[i] = table[at[i]];
        }
    }
}

// `Saturating` is false only for a factor below 1.0, whose products stay
// below 65535 and are never NaN.
template <bool Saturating, bool Threshold>
void ScaleSamples(uint8_t *at, intptr_t count, double factor, intptr_t multiplyOnlyOver) {
    for (intptr_t i = 0; i < count; ++i, at += 2) {
        uint16_t sample;
        std::memcpy(&sample, at, 2);
        if (Threshold && sample <= multiplyOnlyOver) continue;
        if constexpr (Saturating) {
            sample = Scaled<uint16_t>(sample, factor);
        } else {
            sample = static_cast<uint16_t>(static_cast<double>(sample) * factor);
        }
        std::memcpy(at, &sample, 2);
    }
}

template <bool Saturating>
void ScaleSamples(uint8_t *at, intptr_t count, double factor, intptr_t multiplyOnlyOver) {
    if (multiplyOnlyOver < 0) {
        ScaleSamples<Saturating, false>(at, count, factor, multiplyOnlyOver);
    } else {
        ScaleSamples<Saturating, true>(at, count, factor, multiplyOnlyOver);
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

void MultiplyUInt8QVT(REALobject block, double factor, intptr_t offsetByte, intptr_t lengthBytes,
                      intptr_t multiplyOnlyOver) {
    Multiply(block, factor, offsetByte, lengthBytes, multiplyOnlyOver, &ScaleBytes, 1);
}

void MultiplyUInt16QVT(REALobject block, double factor, intptr_t offsetByte, intptr_t lengthBytes,
                       intptr_t multiplyOnlyOver) {
    Multiply(block, factor, offsetByte, lengthBytes, multiplyOnlyOver,
             factor < 1.0 ? &ScaleSamples<false> : &ScaleSamples<true>, 2);
}

}  // namespace qvt
