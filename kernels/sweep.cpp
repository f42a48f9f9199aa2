// Every step rounds where the table's users expect it to, so the digits are
// those of the established tables and not of a calculation in double all
// through. Each product stands in a statement of its own, and the unit is
// built without contraction, so no fused multiply-add can skip a rounding.
#include "kernels/sweep.h"

#include <bit>
#include <cmath>
#include <cstring>

#include "hostvalues/blocks.h"
#include "kernels/range.h"

namespace qvt {

namespace {

// The given decimals 6.28318530718 and 100.53096491488, not 2π and 32π.
constexpr double kTwoPiGiven = std::bit_cast<double>(uint64_t{0x401921FB54442EEA});
constexpr double kPositionScale = std::bit_cast<double>(uint64_t{0x405921FB54442EEA});
// 0.944 keeps the samples below full scale.
constexpr float kSweepGain = std::bit_cast<float>(uint32_t{0x3F71A9FC});

constexpr std::size_t kEntryBytes = 8;

struct Entry {
    float a;
    float b;
};

Entry Read(const uint8_t *at) {
    Entry entry;
    std::memcpy(&entry.a, at, 4);
    std::memcpy(&entry.b, at + 4, 4);
    return entry;
}

void Write(uint8_t *at, Entry entry) {
    std::memcpy(at, &entry.a, 4);
    std::memcpy(at + 4, &entry.b, 4);
}

uint8_t *BytesOf(REALobject block) { return static_cast<uint8_t *>(GetBlockPtr(block)); }

// Each entry is read whole before it is written, so a table converts in
// place; the entries go in ascending order.
template <typename Convert>
void ConvertTable(REALobject block, intptr_t offsetByte, intptr_t z, REALobject source,
                  Convert convert) {
    if (kernels::RaisedForNilReceiver(block) || !source || z < 1) return;
    const uint8_t *from = BytesOf(source);
    uint8_t *to = BytesOf(block);
    // Trusting the caller on sizes, but not through a null pointer.
    if (!from || !to) return;
    to += offsetByte;
    for (intptr_t i = 0; i < z; ++i, from += kEntryBytes, to += kEntryBytes) {
        Write(to, convert(Read(from)));
    }
}

}  // namespace

void CalcLogSweepTableQVT(REALobject block, RBInteger offsetByte, RBInteger z, RBInteger lw1,
                          RBInteger lw2, double t) {
    if (kernels::RaisedForNilReceiver(block)) return;
    const double l = std::log(static_cast<double>(lw2) / static_cast<double>(lw1));
    const double product = static_cast<double>(lw1) * kTwoPiGiven;
    const double k = product / l;
    uint8_t *at = BytesOf(block);
    if (!at || z < 1) return;
    at += offsetByte;
    for (intptr_t i = 0; i < z; ++i, at += kEntryBytes) {
        const double x = static_cast<double>(i) / t;
        const double xl = x * l;
        const double u = static_cast<double>(static_cast<float>(xl));
        const float e = static_cast<float>(std::exp(u));
        const float e1 = e - 1.0f;
        const double e1k = static_cast<double>(e1) * k;
        const double w = static_cast<double>(static_cast<float>(e1k));
        const float s = static_cast<float>(std::sin(w));
        const float sample = s * kSweepGain;
        const double position = x * kPositionScale;
        Write(at, {sample, static_cast<float>(position)});
    }
}

void ConvertPolarToCartesian(REALobject block, RBInteger offsetByte, RBInteger z,
                             REALobject polarData) {
    ConvertTable(block, offsetByte, z, polarData, [](Entry polar) {
        const double angle = static_cast<double>(polar.b);
        const float c = static_cast<float>(std::cos(angle));
        const float s = static_cast<float>(std::sin(angle));
        return Entry{c * polar.a, s * polar.a};
    });
}

void ConvertCartesianToPolar(REALobject block, RBInteger offsetByte, RBInteger z,
                             REALobject cartesianData) {
    ConvertTable(block, offsetByte, z, cartesianData, [](Entry point) {
        const float yy = point.b * point.b;
        const float xx = point.a * point.a;
        const float m = yy + xx;
        const float magnitude = static_cast<float>(std::sqrt(static_cast<double>(m)));
        const float angle = static_cast<float>(
            std::atan2(static_cast<double>(point.b), static_cast<double>(point.a)));
        return Entry{magnitude, angle};
    });
}

}  // namespace qvt
