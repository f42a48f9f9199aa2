// Rows for the whole-block kernels: width conversion, masks, bitwise
// operations, scaling, minimum and maximum, colour, sweep and polar tables.
#include <cmath>
#include <cstring>
#include <string>
#include <type_traits>

#include "bench/table.h"

namespace qvtbench {

namespace {

using O = REALobject;
using I = intptr_t;

template <typename T>
T Load(const uint8_t *p) {
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}
template <typename T>
void Store(uint8_t *p, T value) {
    std::memcpy(p, &value, sizeof value);
}

// ---- Width conversion ----------------------------------------------------------

int64_t PlainByteToUShort(const Row &row, Buffers &c) {
    for (std::size_t i = 0; i < c.n / 2; ++i) {
        Store(c.pd + 2 * i, static_cast<uint16_t>(c.pa[i] * static_cast<int32_t>(row.p)));
    }
    return 0;
}
int64_t PlainUShortToByte(const Row &row, Buffers &c) {
    const auto divisor = static_cast<uint32_t>(row.p);
    for (std::size_t i = 0; i < c.n / 2; ++i) {
        // A divisor of 0 clears the destination.
        c.pd[i] = divisor == 0 ? 0 : static_cast<uint8_t>(Load<uint16_t>(c.pa + 2 * i) / divisor);
    }
    return 0;
}
int64_t CallWidth(const Row &row, REALproc f, Buffers &c) {
    Invoke<void, O, O, I, I, I, I>(f, c.a, c.d, 0, 0, N(c) / 2, static_cast<I>(row.p));
    return 0;
}

// ---- Masks and bitwise operations -------------------------------------------------

int64_t Keep(Buffers &c, O block) {
    c.result = block;
    return 0;
}
int64_t PlainAndBits(const Row &row, Buffers &c) {
    const auto mask = static_cast<uint8_t>(row.p);
    for (std::size_t i = 0; i < c.n; ++i) {
        const auto t = static_cast<uint8_t>(c.pa[i] & c.pb[i] & mask);
        c.pd[i] = t;
        c.pa[i] = static_cast<uint8_t>(c.pa[i] & ~t);
        c.pb[i] = static_cast<uint8_t>(c.pb[i] & ~t);
    }
    return 0;
}
int64_t CallBinary(const Row &, REALproc f, Buffers &c) { return Keep(c, Invoke<O, O, O, O>(f, c.a, c.b, c.d)); }

template <int Operator>
int64_t PlainBitwise(const Row &, Buffers &c) {
    for (std::size_t i = 0; i < c.n; ++i) {
        const uint8_t x = c.pa[i], y = c.pb[i];
        c.pd[i] = static_cast<uint8_t>(Operator == 0 ? x & y : Operator == 1 ? x | y : x ^ y);
    }
    return 0;
}

// ---- Scaling ---------------------------------------------------------------------

template <typename T>
int64_t PlainMultiply(const Row &row, Buffers &c) {
    constexpr double kLargest = static_cast<double>(static_cast<T>(~T{0}));
    for (std::size_t i = 0; i + sizeof(T) <= c.n; i += sizeof(T)) {
        const T v = Load<T>(c.pa + i);
        if (row.q >= 0 && v <= row.q) continue;
        const double product = static_cast<double>(v) * row.x;
        // A NaN product, like a negative one, gives 0.
        const T scaled = product > 0.0 ? static_cast<T>(product) : T{0};
        Store(c.pa + i, product >= kLargest ? static_cast<T>(~T{0}) : scaled);
    }
    return 0;
}
int64_t CallMultiply(const Row &row, REALproc f, Buffers &c) {
    Invoke<void, O, double, I, I, I>(f, c.a, row.x, 0, N(c), static_cast<I>(row.q));
    return 0;
}

// ---- Minimum and maximum -------------------------------------------------------------

template <typename T, bool Max>
int64_t PlainMinMax(const Row &, Buffers &c) {
    for (std::size_t i = 0; i + sizeof(T) <= c.n; i += sizeof(T)) {
        const T x = Load<T>(c.pb + i), y = Load<T>(c.pd + i);
        Store(c.pa + i, Max ? (x < y ? y : x) : (y < x ? y : x));
    }
    return 1;
}
int64_t CallMinMax(const Row &row, REALproc f, Buffers &c) {
    return Invoke<bool, O, const void *, const void *, I, bool, I, I>(
        f, c.a, c.pb, c.pd, static_cast<I>(row.p), row.q != 0, 0, N(c));
}

template <typename T, bool Max>
Row MinMaxRow() {
    constexpr int bits = 8 * sizeof(T);
    const std::string method = Max ? "MaxQVT" : "MinQVT";
    return {.name = method + " " + (std::is_signed_v<T> ? "signed " : "") + std::to_string(bits),
            .family = "minmax",
            .declaration = method +
                           "(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as "
                           "Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = "
                           "0) as boolean",
            .call = CallMinMax,
            .plain = PlainMinMax<T, Max>,
            .bEighths = 8,
            .dEighths = 8,
            .dData = Data::Random,
            .touched = 3,
            // 64-bit elements have no block loop by design.
            .goal = bits == 64 ? Goal::None : Goal::Streaming,
            .p = bits,
            .q = std::is_signed_v<T>};
}

// ---- Colour ------------------------------------------------------------------------

constexpr int kSource = 100;
constexpr int kDestination[4] = {100, 101, 102, 103};  // inside the tolerance: pixels match on every call
constexpr double kTolerance = 0.1;

// x is the tolerance.
int64_t PlainCalc3te(const Row &row, Buffers &c) {
    const auto upper = static_cast<int32_t>(kSource * (1.0 + row.x));
    const auto lower = static_cast<int32_t>(kSource * (1.0 - row.x));
    for (std::size_t at = 0; at + 4 <= c.n; at += 4) {
        bool match = true;
        for (int k = 0; k < 4; ++k) match = match && c.pa[at + k] >= lower && c.pa[at + k] <= upper;
        if (!match) continue;
        for (int k = 0; k < 4; ++k) c.pa[at + k] = static_cast<uint8_t>(kDestination[k]);
    }
    return 0;
}

// p is the number of channels in the sum: 3 or 4; q is iByteMax.
int64_t PlainCalc2te(const Row &row, Buffers &c) {
    for (std::size_t at = 0; at + 4 <= c.n; at += 4) {
        int sum = 0;
        for (int k = 0; k < row.p; ++k) sum += c.pa[at + k];
        int value = 0;
        if (sum >= row.q || sum == 0) {
            value = 0;
        } else {
            value = static_cast<int>(std::min<int64_t>(row.q - sum, 255));
        }
        c.pa[at + 3] = static_cast<uint8_t>(value);
    }
    return 0;
}

int64_t PlainRGB12(const Row &, Buffers &c) {
    for (std::size_t step = 0; step < c.n / 9; ++step) {
        uint8_t s[9];
        std::memcpy(s, c.pa + 9 * step, 9);
        uint8_t *d = c.pa + 6 * step;
        for (int pair = 0; pair < 3; ++pair) {
            d[2 * pair] = s[3 * pair];
            d[2 * pair + 1] = static_cast<uint8_t>((s[3 * pair + 1] << 4) | (s[3 * pair + 2] >> 4));
        }
    }
    return 0;
}

// ---- Sweep and polar tables ----------------------------------------------------------

int64_t PlainSweep(const Row &, Buffers &c) {
    constexpr int lw1 = 20, lw2 = 20000;
    constexpr double T = 1000.0;
    const double L = std::log(static_cast<double>(lw2) / static_cast<double>(lw1));
    const double K = static_cast<double>(lw1) * 6.28318530718 / L;
    for (std::size_t i = 0; i < c.n / 8; ++i) {
        const double x = static_cast<double>(i) / T;
        const double u = static_cast<float>(x * L);
        const auto e = static_cast<float>(std::exp(u));
        const float e1 = e - 1.0f;
        const double w = static_cast<float>(static_cast<double>(e1) * K);
        const auto s = static_cast<float>(std::sin(w));
        Store(c.pa + 8 * i, s * 0.944f);
        Store(c.pa + 8 * i + 4, static_cast<float>(x * 100.53096491488));
    }
    return 0;
}
int64_t PlainPolarToCartesian(const Row &, Buffers &c) {
    for (std::size_t i = 0; i < c.n / 8; ++i) {
        const float r = Load<float>(c.pb + 8 * i), t = Load<float>(c.pb + 8 * i + 4);
        Store(c.pa + 8 * i, static_cast<float>(std::cos(static_cast<double>(t))) * r);
        Store(c.pa + 8 * i + 4, static_cast<float>(std::sin(static_cast<double>(t))) * r);
    }
    return 0;
}
int64_t PlainCartesianToPolar(const Row &, Buffers &c) {
    for (std::size_t i = 0; i < c.n / 8; ++i) {
        const float x = Load<float>(c.pb + 8 * i), y = Load<float>(c.pb + 8 * i + 4);
        const float m = y * y + x * x;
        Store(c.pa + 8 * i, static_cast<float>(std::sqrt(static_cast<double>(m))));
        Store(c.pa + 8 * i + 4, static_cast<float>(std::atan2(static_cast<double>(y), static_cast<double>(x))));
    }
    return 0;
}
int64_t CallTable(const Row &, REALproc f, Buffers &c) {
    Invoke<void, O, I, I, O>(f, c.a, 0, N(c) / 8, c.b);
    return 0;
}

}  // namespace

std::vector<Row> KernelRows() {
    std::vector<Row> rows;
    const char *up =
        "CopyByteToUShortQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as "
        "integer, ByteCount as integer, divisor as integer)";
    const char *down =
        "CopyUShortToByteQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as "
        "integer, ByteCount as integer, divisor as integer)";
    // One row per kind of loop the methods choose by divisor; n is the 16-bit side.
    for (int factor : {257, 256, 1000}) {
        rows.push_back({.name = "CopyByteToUShortQVT x" + std::to_string(factor),
                        .family = "width",
                        .declaration = up,
                        .call = CallWidth,
                        .plain = PlainByteToUShort,
                        .aEighths = 4,
                        .dEighths = 8,
                        .touched = 1.5,
                        .goal = Goal::Streaming,
                        .p = factor});
    }
    for (int divisor : {257, 256, 3}) {
        rows.push_back({.name = "CopyUShortToByteQVT /" + std::to_string(divisor),
                        .family = "width",
                        .declaration = down,
                        .call = CallWidth,
                        .plain = PlainUShortToByte,
                        .dEighths = 4,
                        .touched = 1.5,
                        .goal = Goal::Streaming,
                        .p = divisor});
    }

    rows.push_back({.name = "ExtractBitsQVT",
                    .family = "masks",
                    .declaration = "ExtractBitsQVT(Mask as integer, Dest as memoryblock=nil) as memoryblock",
                    .call = [](const Row &, REALproc f, Buffers &c) {
                        return Keep(c, Invoke<O, O, I, O>(f, c.a, 0x0F, c.d));
                    },
                    .plain = [](const Row &, Buffers &c) -> int64_t {
                        for (std::size_t i = 0; i < c.n; ++i) c.pd[i] = c.pa[i] & 0x0F;
                        return 0;
                    },
                    .dEighths = 8,
                    .goal = Goal::Streaming});
    rows.push_back({.name = "AndBitsQVT",
                    .family = "masks",
                    .declaration = "AndBitsQVT(Second as memoryblock, Dest as memoryblock=nil) as memoryblock",
                    .call = CallBinary,
                    .plain = PlainAndBits,
                    .bEighths = 8,
                    .dEighths = 8,
                    .touched = 5,
                    .goal = Goal::Streaming,
                    .p = 0xFF});
    rows.push_back({.name = "AndBitsQVT with mask",
                    .family = "masks",
                    .declaration = "AndBitsQVT(Second as memoryblock, Mask as integer, Dest as "
                                   "memoryblock=nil) as memoryblock",
                    .call = [](const Row &row, REALproc f, Buffers &c) {
                        return Keep(c, Invoke<O, O, O, I, O>(f, c.a, c.b, static_cast<I>(row.p), c.d));
                    },
                    .plain = PlainAndBits,
                    .bEighths = 8,
                    .dEighths = 8,
                    .touched = 5,
                    .goal = Goal::Streaming,
                    .p = 0x3C});

    const Loop bitwise[] = {PlainBitwise<0>, PlainBitwise<1>, PlainBitwise<2>};
    const char *names[] = {"BitwiseAndQVT", "BitwiseOrQVT", "BitwiseXOrQVT"};
    for (int op = 0; op < 3; ++op) {
        rows.push_back({.name = names[op],
                        .family = "bitwise",
                        .declaration = std::string(names[op]) +
                                       "(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
                        .call = CallBinary,
                        .plain = bitwise[op],
                        .bEighths = 8,
                        .dEighths = 8,
                        .touched = 3,
                        .goal = Goal::Streaming});
    }

    struct Scaling {
        int bits;
        double factor;
        int over;
    };
    for (Scaling s : {Scaling{8, 1.5, -1}, Scaling{8, 1.5, 100}, Scaling{16, 0.5, -1},
                      Scaling{16, 1.5, -1}, Scaling{16, 1.5, 1000}}) {
        std::string factor = std::to_string(s.factor);
        factor.erase(factor.find_last_not_of('0') + 1);
        const std::string method = s.bits == 8 ? "MultiplyUInt8QVT" : "MultiplyUInt16QVT";
        rows.push_back({.name = method + " x" + factor + (s.over >= 0 ? " over " + std::to_string(s.over) : ""),
                        .family = "scaling",
                        .declaration = method +
                                       "(Factor as double, offsetByte as Integer = 0, lengthBytes as "
                                       "integer = 0, MultiplyOnlyOver as Integer = -1)",
                        .call = CallMultiply,
                        .plain = s.bits == 8 ? PlainMultiply<uint8_t> : PlainMultiply<uint16_t>,
                        .goal = Goal::Streaming,
                        .q = s.over,
                        .x = s.factor});
    }

    for (const Row &row : {MinMaxRow<uint8_t, true>(), MinMaxRow<int8_t, true>(),
                           MinMaxRow<uint16_t, true>(), MinMaxRow<int16_t, true>(),
                           MinMaxRow<uint32_t, true>(), MinMaxRow<int32_t, true>(),
                           MinMaxRow<uint64_t, true>(), MinMaxRow<int64_t, true>(),
                           MinMaxRow<uint8_t, false>(), MinMaxRow<int8_t, false>(),
                           MinMaxRow<uint16_t, false>(), MinMaxRow<int16_t, false>(),
                           MinMaxRow<uint32_t, false>(), MinMaxRow<int32_t, false>(),
                           MinMaxRow<uint64_t, false>(), MinMaxRow<int64_t, false>()}) {
        rows.push_back(row);
    }

    rows.push_back({.name = "_Calc3te",
                    .family = "colour",
                    .declaration = "_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, "
                                   "Source4 as Integer, Dest1 as Integer, Dest2 as Integer, Dest3 as "
                                   "Integer, Dest4 as Integer, Tolerance as double, offsetByte as "
                                   "Integer = 0, Length as integer = 0)",
                    .call = [](const Row &row, REALproc f, Buffers &c) -> int64_t {
                        Invoke<void, O, I, I, I, I, I, I, I, I, double, I, I>(
                            f, c.a, kSource, kSource, kSource, kSource, kDestination[0],
                            kDestination[1], kDestination[2], kDestination[3], row.x, 0, N(c));
                        return 0;
                    },
                    .plain = PlainCalc3te,
                    .aData = Data::Pixels,
                    .goal = Goal::Streaming,
                    .x = kTolerance});
    for (int channels : {3, 4}) {
        const std::string name = channels == 3 ? "_Calc2teCMY" : "_Calc2teCMYK";
        rows.push_back({.name = name,
                        .family = "colour",
                        .declaration = name +
                                       "(iByteMax as integer = 255, offsetByte as Integer = 0, Length "
                                       "as integer = 0, WithSum0 as boolean = true)",
                        .call = [](const Row &row, REALproc f, Buffers &c) -> int64_t {
                            Invoke<void, O, I, I, I, bool>(f, c.a, static_cast<I>(row.q), 0, N(c), true);
                            return 0;
                        },
                        .plain = PlainCalc2te,
                        .goal = Goal::Streaming,
                        .p = channels,
                        .q = 255});
    }
    rows.push_back({.name = "ConvertRGB12BitTo8BitQVT",
                    .family = "colour",
                    .declaration = "ConvertRGB12BitTo8BitQVT(Width as Integer)",
                    .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
                        Invoke<void, O, I>(f, c.a, N(c) / 9);
                        return 0;
                    },
                    .plain = PlainRGB12,
                    .touched = 1.0 + 2.0 / 3.0,
                    .goal = Goal::Streaming});

    rows.push_back({.name = "_CalcLogSweepTableQVT",
                    .family = "sweep",
                    .declaration = "_CalcLogSweepTableQVT(offsetByte as Integer, Z as integer, lw1 as "
                                   "integer, lw2 as integer, T as double)",
                    .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
                        Invoke<void, O, I, I, I, I, double>(f, c.a, 0, N(c) / 8, 20, 20000, 1000.0);
                        return 0;
                    },
                    .plain = PlainSweep,
                    .touched = 1,
                    .sizeLimit = kInCache});
    rows.push_back({.name = "_ConvertPolarToCartesian",
                    .family = "sweep",
                    .declaration = "_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, "
                                   "polarData as Memoryblock)",
                    .call = CallTable,
                    .plain = PlainPolarToCartesian,
                    .bEighths = 8,
                    .bData = Data::Floats,
                    .sizeLimit = kInCache});
    rows.push_back({.name = "_ConvertCartesianToPolar",
                    .family = "sweep",
                    .declaration = "_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, "
                                   "CartesianData as Memoryblock)",
                    .call = CallTable,
                    .plain = PlainCartesianToPolar,
                    .bEighths = 8,
                    .bData = Data::Floats,
                    .sizeLimit = kInCache});
    return rows;
}

}  // namespace qvtbench
