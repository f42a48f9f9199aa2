// Scaling bytes and 16-bit samples in place: truncation, saturation, the
// threshold, the range and the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "kernel_fixture.h"
#include "kernels/colour.h"
#include "kernels/minmax.h"
#include "kernels/scaling.h"
#include "kernels/sweep.h"
#include "shell/definitions.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using test::Bytes;
using Samples = std::vector<uint16_t>;

Bytes BytesOf(const Samples &samples) {
    Bytes bytes(samples.size() * 2);
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

class ScalingTest : public test::KernelTest {};
class ScalingDifferentialTest : public test::QuietKernelTest {};

TEST_F(ScalingTest, BytesAreCutTowardZeroAndSaturate) {
    const struct { double factor; intptr_t offset, length, over; Bytes before, after; } cases[] = {
        {0.0, 0, 0, -1, {0, 1, 127, 255}, {0, 0, 0, 0}},
        {-0.0, 0, 0, -1, {9, 255}, {0, 0}},
        {0.5, 0, 0, -1, {255, 1, 3}, {127, 0, 1}},
        {1.5, 0, 0, -1, {100, 200, 170}, {150, 255, 255}},
        {2.0, 0, 0, 100, {100, 101, 200}, {100, 202, 255}},
        {2.0, 0, 0, -5, {1, 100, 200}, {2, 200, 255}},
        {kInfinity, 0, 0, -1, {0, 1}, {0, 255}},
        // A NaN factor gives 0 wherever a sample is replaced.
        {kNaN, 0, 0, 1, {0, 1, 255}, {0, 1, 0}},
        {2.0, 3, 0, -1, {1, 1, 1, 1, 1, 1}, {1, 1, 1, 2, 2, 2}},
        {2.0, 3, 2, -1, {1, 1, 1, 1, 1, 1}, {1, 1, 1, 2, 2, 1}},
        {2.0, 3, -1, -1, {1, 1, 1, 1, 1, 1}, {1, 1, 1, 2, 2, 2}},
        {2.0, 6, 0, -1, {1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1}}};
    for (const auto &c : cases) {
        EXPECT_EQ(After(c.before, [&](REALobject b) { MultiplyUInt8QVT(b, c.factor, c.offset, c.length, c.over); }), c.after)
            << c.factor << " " << c.offset << " " << c.over;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(ScalingTest, SamplesAreCutTowardZeroAndSaturateAtAnyOffset) {
    const struct { double factor; intptr_t over; Samples before, after; } cases[] = {
        {0.5, -1, {65535, 1, 3}, {32767, 0, 1}},
        {0.999, -1, {65535, 1000}, {65469, 999}},
        {1.5, -1, {40000, 50000}, {60000, 65535}},
        {2.0, 40000, {40000, 40001, 9}, {40000, 65535, 9}},
        {kNaN, 0, {0, 1, 65535}, {0, 0, 0}},
        {3.0, -5, {100, 200}, {300, 600}}};
    // The samples stand one byte in, and an odd last byte of the range stays.
    auto framed = [](const Samples &samples) {
        Bytes bytes = BytesOf(samples);
        bytes.insert(bytes.begin(), 0xEE);
        bytes.push_back(0x07);
        return bytes;
    };
    for (const auto &c : cases) {
        const auto length = static_cast<intptr_t>(2 * c.before.size() + 1);
        EXPECT_EQ(After(framed(c.before), [&](REALobject b) { MultiplyUInt16QVT(b, c.factor, 1, length, c.over); }),
                  framed(c.after)) << c.factor << " " << c.over;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(ScalingTest, RefusalsComeInOrderAndChangeNothing) {
    using Method = void (*)(REALobject, double, intptr_t, intptr_t, intptr_t);
    const struct { bool nil; double factor; intptr_t offset; const char *raised; } cases[] = {
                 {true, -1.0, -1, "NilObjectException: memoryblock is nil"},
                 {false, -1.0, -1, "UnsupportedOperationException: offset < 0"},
                 {false, -1e-300, 0, "UnsupportedOperationException: Percentage < 0.0"}};
    for (Method method : {&MultiplyUInt8QVT, &MultiplyUInt16QVT}) {
        for (const auto &c : cases) {
            REALobject block = simhost::NewBlock(Bytes{1, 2, 3, 4});
            simhost::ClearCalls();
            Balanced([&] { method(c.nil ? nullptr : block, c.factor, c.offset, 0, -1); });
            EXPECT_EQ(OneException(), c.raised);
            EXPECT_EQ(simhost::CountCalls("REALLockObject"), 0u);
            EXPECT_EQ(Contents(block), (Bytes{1, 2, 3, 4}));
            simhost::Release(block);
        }
    }
    // Blocks of unknown size need a length.
    uint8_t memory[4] = {1, 2, 3, 4};
    REALobject foreign = simhost::NewForeignBlock(memory);
    REALobject memoryless = simhost::NewMemorylessBlock();
    Balanced([&] { MultiplyUInt8QVT(foreign, 2.0, 0, 0, -1); });
    EXPECT_EQ(Bytes(memory, memory + 4), (Bytes{1, 2, 3, 4}));
    Balanced([&] { MultiplyUInt8QVT(foreign, 2.0, 1, 2, -1); });
    EXPECT_EQ(Bytes(memory, memory + 4), (Bytes{1, 4, 6, 4}));
    Balanced([&] { MultiplyUInt16QVT(memoryless, 2.0, 0, 0, -1); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(foreign);
    simhost::Release(memoryless);
}

// The plain rule of one sample, as the 8-bit table holds it.
template <typename Sample>
Sample PlainScaled(unsigned value, double factor) {
    constexpr double kLargest = std::numeric_limits<Sample>::max();
    const double product = value * factor;
    if (product >= kLargest) return std::numeric_limits<Sample>::max();
    return product > 0.0 ? static_cast<Sample>(product) : 0;
}

// Factors on every path of both methods: products that land on integers,
// factors whose rounded products stray from any line at a few bytes (0.58,
// 1.4) or at many (just below 0.8 and 5/3, 0.7, 1.15), factors of 32
// fractional bits and of one more, the edges of saturation, and factors
// with no finite product.
const double kFactors[] = {0.0, -0.0, 0.5, 0.999, 1.0, 1.5, 2.0, 0.29, 0.58, 1.4, 1.0 / 3,
                           0.7999999999999999, 1.6666666666666665, 0.8181818181818181, 0.1,
                           0.7, 1.1, 1.15, 1.0 - 0x1p-30, 1.0 + 0x1p-40, 1.0 + 0x1p-32,
                           1.0 + 0x1p-33, 0x1p-32, 0x1p-33, 254.9, 255.0, 255.5, 40000.25,
                           65534.9, 65535.0, 65536.0, 1e300, 0x1p-1074, kInfinity, kNaN,
                           // the benchmark's slowest two-decimal factors, and the
                           // edges below which every product is cut to 0
                           0.47, 1.41, 2.8, 2.01, 65535.99, 0x1p-16, 0x1.fffffffffffffp-17};
const intptr_t kThresholds[] = {-1, 0, 100, 254, 255, 1000, 65534, 65535};

// Every byte value, and every sample value four times over (a block large
// enough to be scaled on a checked line), in a range at an odd offset,
// against the plain rule; the bytes around the range stay.
TEST_F(ScalingDifferentialTest, EveryValueGivesThePlainResult) {
    std::mt19937 random(5);
    Bytes values(256);
    for (unsigned v = 0; v < 256; ++v) values[v] = static_cast<uint8_t>(v);
    std::shuffle(values.begin(), values.end(), random);
    Samples samples(4 * 65536);
    for (unsigned v = 0; v < samples.size(); ++v) samples[v] = static_cast<uint16_t>(v);
    std::shuffle(samples.begin(), samples.end(), random);
    auto framed = [](Bytes bytes) {
        bytes.insert(bytes.begin(), 0xEE);
        bytes.insert(bytes.end(), {0x07, 0x08});
        return bytes;
    };
    for (double factor : kFactors) {
        for (intptr_t over : kThresholds) {
            Bytes bytes = values;
            for (auto &b : bytes) b = b > over ? PlainScaled<uint8_t>(b, factor) : b;
            REALobject block = simhost::NewBlock(framed(values));
            MultiplyUInt8QVT(block, factor, 1, 256, over);
            ASSERT_EQ(Contents(block), framed(bytes)) << factor << " over " << over;
            simhost::Release(block);

            Samples scaled = samples;
            for (auto &s : scaled) s = s > over ? PlainScaled<uint16_t>(s, factor) : s;
            block = simhost::NewBlock(framed(BytesOf(samples)));
            MultiplyUInt16QVT(block, factor, 1, static_cast<intptr_t>(2 * samples.size() + 1), over);
            ASSERT_EQ(Contents(block), framed(BytesOf(scaled))) << factor << " over " << over;
            simhost::Release(block);
        }
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

// Ranges of every length across the vector widths, at odd and even offsets.
TEST_F(ScalingDifferentialTest, EveryLengthGivesThePlainResult) {
    std::mt19937 random(7);
    for (double factor : {0.58, 0.7999999999999999, 1.5, 0.5}) {
        for (intptr_t length = 1; length <= 140; ++length) {
            for (intptr_t offset : {1, 2}) {
                const Bytes start = test::RandomBytes(static_cast<std::size_t>(length + 5), random);
                Bytes bytes = start;
                for (intptr_t i = offset; i < offset + length; ++i) {
                    bytes[i] = PlainScaled<uint8_t>(bytes[i], factor);
                }
                EXPECT_EQ(After(start, [&](REALobject b) { MultiplyUInt8QVT(b, factor, offset, length, -1); }),
                          bytes) << factor << " " << offset << " " << length;
                bytes = start;
                for (intptr_t i = offset; i + 1 < offset + length; i += 2) {
                    uint16_t s;
                    std::memcpy(&s, &bytes[i], 2);
                    s = PlainScaled<uint16_t>(s, 3 * factor);
                    std::memcpy(&bytes[i], &s, 2);
                }
                EXPECT_EQ(After(start, [&](REALobject b) { MultiplyUInt16QVT(b, 3 * factor, offset, length, -1); }),
                          bytes) << factor << " " << offset << " " << length;
            }
        }
    }
}

// Each way of scaling 16-bit samples in vectors that this processor has, on
// its own: every sample value, at an odd address, from each threshold on,
// gets the plain rule's product over the samples it takes, and the rest stay.
TEST_F(ScalingDifferentialTest, EveryVectorWidthGivesThePlainResult) {
    std::mt19937 random(9);
    Samples samples(65536 + 37);  // and a tail no vector fills
    for (std::size_t v = 0; v < samples.size(); ++v) samples[v] = static_cast<uint16_t>(v);
    std::shuffle(samples.begin(), samples.end(), random);
    const Bytes before = BytesOf(samples);
    for (const kernels::SampleScaler &scaler : kernels::SampleScalers()) {
        if (!scaler.usable()) continue;
        const auto width = &scaler - kernels::SampleScalers().data();
        for (double factor : kFactors) {
            for (uint16_t lowest : {0, 1, 1001, 65535}) {
                Bytes bytes = before;
                bytes.insert(bytes.begin(), 0xEE);
                const std::size_t done = scaler.scale(bytes.data() + 1, samples.size(), factor, lowest);
                ASSERT_LE(done, samples.size());
                Samples expected = samples;
                for (std::size_t k = 0; k < done; ++k) {
                    if (samples[k] >= lowest) expected[k] = PlainScaled<uint16_t>(samples[k], factor);
                }
                Bytes want = BytesOf(expected);
                want.insert(want.begin(), 0xEE);
                ASSERT_EQ(bytes, want) << "way " << width << " factor " << factor << " from " << lowest;
            }
        }
    }
}

// Each way of looking bytes up in vectors that this processor has: every
// byte value through random tables, at odd addresses and over lengths that
// end inside a vector, gives the table's entries, and the rest stay.
TEST_F(ScalingDifferentialTest, EveryByteLookUpGivesTheTable) {
    std::mt19937 random(13);
    for (const kernels::ByteLookUp &way : kernels::ByteLookUps()) {
        if (!way.usable()) continue;
        for (std::size_t length : {0, 1, 63, 64, 65, 256, 1000}) {
            const Bytes table = test::RandomBytes(256, random);
            Bytes values = test::RandomBytes(length + 1, random);
            for (std::size_t v = 0; v < std::min<std::size_t>(length, 256); ++v) values[1 + v] = static_cast<uint8_t>(v);
            Bytes bytes = values;
            const std::size_t done = way.look(bytes.data() + 1, length, table.data());
            ASSERT_LE(done, length);
            Bytes expected = values;
            for (std::size_t i = 1; i <= done; ++i) expected[i] = table[values[i]];
            ASSERT_EQ(bytes, expected) << length;
        }
    }
}

// The kernels of all four families reach the host under their declarations.
TEST_F(ScalingTest, EveryKernelIsRegisteredUnderItsDeclaration) {
    test::ExpectRegistered({
        {"_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)", QVT_PROC(void(REALobject, intptr_t, intptr_t, intptr_t, bool), Calc2teCMYK)},
        {"_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)", QVT_PROC(void(REALobject, intptr_t, intptr_t, REALobject), ConvertCartesianToPolar)},
        {"MultiplyUInt16QVT(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0, MultiplyOnlyOver as Integer = -1)", QVT_PROC(void(REALobject, double, intptr_t, intptr_t, intptr_t), MultiplyUInt16QVT)},
        {"MaxQVT(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean", QVT_PROC(bool(REALobject, void *, void *, intptr_t, bool, intptr_t, intptr_t), MaxQVT)}});
}

}  // namespace
}  // namespace qvt
