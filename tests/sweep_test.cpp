// The sweep table and the polar conversions, bit for bit, with their
// refusals, offsets and conversion in place.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>

#include "kernel_fixture.h"
#include "kernels/sweep.h"

namespace qvt {
namespace {

using test::Bytes;

struct Entry {
    float a, b;
};
using Table = std::vector<Entry>;

Bytes BytesOf(const Table &table) {
    Bytes bytes(table.size() * 8);
    std::memcpy(bytes.data(), table.data(), bytes.size());
    return bytes;
}

Table TableOf(const Bytes &bytes) {
    Table table(bytes.size() / 8);
    std::memcpy(table.data(), bytes.data(), table.size() * 8);
    return table;
}

uint32_t Bits(float value) { return std::bit_cast<uint32_t>(value); }

class SweepTest : public test::KernelTest {};

TEST_F(SweepTest, SweepTableRoundsToFloatAtEveryStep) {
    REALobject block = simhost::NewBlock(1000 * 8);
    Balanced([&] { CalcLogSweepTableQVT(block, 0, 1000, 20, 20000, 1000.0); });
    const Table table = TableOf(Contents(block));
    const struct {
        std::size_t i;
        uint32_t a, b;
    } rows[] = {
        {0, 0x00000000, 0x00000000},
        {1, 0x3DF32474, 0x3DCDE32E},
        {100, 0xBF23AC90, 0x4120D97C},
        {500, 0xBF4DAB7C, 0x42490FDB},
        {999, 0x3E34BC28, 0x42C8DC62},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(Bits(table[row.i].a), row.a) << row.i;
        EXPECT_EQ(Bits(table[row.i].b), row.b) << row.i;
    }
    // T equal to Z: positions rise from 0 to below the scale of x = 1.
    for (std::size_t i = 1; i < table.size(); ++i) {
        ASSERT_GT(table[i].b, table[i - 1].b);
        ASSERT_LE(std::fabs(table[i].a), std::bit_cast<float>(uint32_t{0x3F71A9FC}));
    }
    EXPECT_LT(table.back().b, 100.53096491488f);
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
}

TEST_F(SweepTest, SweepWritesFromTheOffsetAndNothingForNoEntries) {
    REALobject block = simhost::NewBlock(Bytes(24, 0xAA));
    Balanced([&] { CalcLogSweepTableQVT(block, 8, 0, 20, 20000, 10.0); });
    Balanced([&] { CalcLogSweepTableQVT(block, 8, -3, 20, 20000, 10.0); });
    EXPECT_EQ(Contents(block), Bytes(24, 0xAA));
    Balanced([&] { CalcLogSweepTableQVT(block, 8, 1, 20, 20000, 10.0); });
    Bytes expected(24, 0xAA);
    std::fill(expected.begin() + 8, expected.begin() + 16, 0);
    EXPECT_EQ(Contents(block), expected);
    // Zeros and equal bounds are plain floating-point arithmetic.
    Balanced([&] { CalcLogSweepTableQVT(block, 0, 3, 0, 0, 0.0); });
    Balanced([&] { CalcLogSweepTableQVT(block, 0, 3, 50, 50, 2.0); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
}

TEST_F(SweepTest, ConversionsRoundEachFunctionToFloat) {
    using Convert = void (*)(REALobject, intptr_t, intptr_t, REALobject);
    const Convert toCartesian = &ConvertPolarToCartesian, toPolar = &ConvertCartesianToPolar;
    const float pi = static_cast<float>(std::numbers::pi);
    const struct {
        Convert convert;
        Entry from, to;
    } cases[] = {
        {toCartesian, {2.0f, 0.0f}, {2.0f, 0.0f}},
        {toCartesian, {2.0f, pi}, {static_cast<float>(std::cos(double{pi})) * 2.0f,
                                   static_cast<float>(std::sin(double{pi})) * 2.0f}},
        {toPolar, {0.0f, 1.0f}, {1.0f, static_cast<float>(std::numbers::pi / 2)}},
        {toPolar, {-1.0f, 0.0f}, {1.0f, pi}},
        {toPolar, {0.0f, 0.0f}, {0.0f, 0.0f}},
        {toPolar, {3.0f, 4.0f}, {5.0f, static_cast<float>(std::atan2(4.0, 3.0))}},
        {toPolar, {0.0f, -2.0f}, {2.0f, static_cast<float>(-std::numbers::pi / 2)}},
    };
    for (const auto &c : cases) {
        REALobject source = simhost::NewBlock(BytesOf({c.from}));
        REALobject block = simhost::NewBlock(Bytes(16, 0xAA));
        Balanced([&] { c.convert(block, 8, 1, source); });
        const Table table = TableOf(Contents(block));
        EXPECT_EQ(Bits(table[0].a), 0xAAAAAAAAu);
        EXPECT_EQ(Bits(table[1].a), Bits(c.to.a)) << c.from.a << " " << c.from.b;
        EXPECT_EQ(Bits(table[1].b), Bits(c.to.b)) << c.from.a << " " << c.from.b;
        simhost::Release(source);
        simhost::Release(block);
    }
}

TEST_F(SweepTest, ConversionsWorkInPlaceAndReadWhatTheyWroteWhenShifted) {
    const Table points{{3.0f, 4.0f}, {-1.0f, 0.0f}, {0.5f, -0.25f}};
    REALobject block = simhost::NewBlock(BytesOf(points));
    Balanced([&] { ConvertCartesianToPolar(block, 0, 3, block); });
    Balanced([&] { ConvertPolarToCartesian(block, 0, 3, block); });
    const Table back = TableOf(Contents(block));
    for (std::size_t i = 0; i < points.size(); ++i) {
        EXPECT_NEAR(back[i].a, points[i].a, 1e-6);
        EXPECT_NEAR(back[i].b, points[i].b, 1e-6);
    }
    simhost::Release(block);

    // Shifted by one entry, each entry converts the one just written.
    REALobject shifted = simhost::NewBlock(BytesOf({{3.0f, 4.0f}, {0, 0}, {0, 0}}));
    Balanced([&] { ConvertCartesianToPolar(shifted, 8, 2, shifted); });
    const Table table = TableOf(Contents(shifted));
    REALobject single = simhost::NewBlock(8);
    REALobject previous = simhost::NewBlock(BytesOf({table[1]}));
    ConvertCartesianToPolar(single, 0, 1, previous);
    EXPECT_EQ(Contents(single), BytesOf({table[2]}));
    EXPECT_EQ(Bits(table[1].a), Bits(5.0f));
    simhost::Release(shifted);
    simhost::Release(single);
    simhost::Release(previous);
}

TEST_F(SweepTest, OnlyANilReceiverRaises) {
    REALobject block = simhost::NewBlock(Bytes(16, 0xAA));
    REALobject source = simhost::NewBlock(BytesOf({{1.0f, 1.0f}}));
    REALobject memoryless = simhost::NewMemorylessBlock();
    for (auto convert : {&ConvertPolarToCartesian, &ConvertCartesianToPolar}) {
        Balanced([&] { convert(nullptr, 0, 1, nullptr); });
        EXPECT_EQ(OneException(), "NilObjectException: memoryblock is nil");
        Balanced([&] { convert(block, 0, 1, nullptr); });
        Balanced([&] { convert(block, 0, 0, source); });
        // A block without memory gets no write through its null pointer.
        Balanced([&] { convert(block, 0, 1, memoryless); });
        Balanced([&] { convert(memoryless, 0, 1, source); });
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        EXPECT_EQ(Contents(block), Bytes(16, 0xAA));
    }
    Balanced([] { CalcLogSweepTableQVT(nullptr, 0, 1, 20, 20000, 1.0); });
    EXPECT_EQ(OneException(), "NilObjectException: memoryblock is nil");
    Balanced([&] { CalcLogSweepTableQVT(memoryless, 0, 1, 20, 20000, 1.0); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
    simhost::Release(source);
    simhost::Release(memoryless);
}

}  // namespace
}  // namespace qvt
