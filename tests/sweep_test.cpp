// The sweep table and the polar conversions, bit for bit, with their
// refusals, offsets and conversion in place.
#include <gtest/gtest.h>

#include <utility>
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
    const struct { std::size_t i; uint32_t a, b; } rows[] = {
        {0, 0x00000000, 0x00000000},
        {1, 0x3DF32474, 0x3DCDE32E},
        {100, 0xBF23AC90, 0x4120D97C},
        {500, 0xBF4DAB7C, 0x42490FDB},
        {999, 0x3E34BC28, 0x42C8DC62}};
    for (const auto &row : rows) {
        EXPECT_EQ(std::pair(Bits(table[row.i].a), Bits(table[row.i].b)), std::pair(row.a, row.b)) << row.i;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
}

TEST_F(SweepTest, SweepWritesFromTheOffsetAndNothingForNoEntries) {
    REALobject block = simhost::NewBlock(Bytes(24, 0xAA));
    Balanced([&] { CalcLogSweepTableQVT(block, 8, 0, 20, 20000, 10.0); });
    Balanced([&] { CalcLogSweepTableQVT(block, 8, -3, 20, 20000, 10.0); });
    EXPECT_EQ(Contents(block), Bytes(24, 0xAA));
    Balanced([&] { CalcLogSweepTableQVT(block, 8, 1, 20, 20000, 10.0); });
    EXPECT_EQ(Contents(block), (Bytes{0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0, 0, 0, 0, 0, 0, 0, 0,
                                      0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}));
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
    const struct { Convert convert; Entry from, to; } cases[] = {
        {toCartesian, {2.0f, pi}, {static_cast<float>(std::cos(double{pi})) * 2.0f, static_cast<float>(std::sin(double{pi})) * 2.0f}},
        {toPolar, {0.0f, 1.0f}, {1.0f, static_cast<float>(std::numbers::pi / 2)}},
        {toPolar, {-1.0f, 0.0f}, {1.0f, pi}},
        {toPolar, {0.0f, 0.0f}, {0.0f, 0.0f}},
        {toPolar, {3.0f, 4.0f}, {5.0f, static_cast<float>(std::atan2(4.0, 3.0))}}};
    for (const auto &c : cases) {
        REALobject source = simhost::NewBlock(BytesOf({c.from}));
        REALobject block = simhost::NewBlock(Bytes(16, 0xAA));
        Balanced([&] { c.convert(block, 8, 1, source); });
        const Table table = TableOf(Contents(block));
        EXPECT_EQ(Bits(table[0].a), 0xAAAAAAAAu);
        EXPECT_EQ(std::pair(Bits(table[1].a), Bits(table[1].b)), std::pair(Bits(c.to.a), Bits(c.to.b))) << c.from.a << " " << c.from.b;
        simhost::Release(source);
        simhost::Release(block);
    }
}

// In place and shifted by one entry, each entry converts what the memory
// holds when its turn comes: the loop of single conversions in ascending order.
TEST_F(SweepTest, ConversionsInOneBlockReadWhatTheyWrote) {
    const Table points{{3.0f, 4.0f}, {-1.0f, 0.5f}, {0.5f, -0.25f}, {2.0f, 1.0f}};
    for (auto convert : {&ConvertCartesianToPolar, &ConvertPolarToCartesian}) {
        for (std::size_t shift : {0, 1}) {
            Table expected = points;
            for (std::size_t i = shift; i < points.size(); ++i) {
                REALobject single = simhost::NewBlock(8);
                REALobject entry = simhost::NewBlock(BytesOf({expected[i - shift]}));
                convert(single, 0, 1, entry);
                expected[i] = TableOf(Contents(single))[0];
                simhost::Release(single);
                simhost::Release(entry);
            }
            REALobject block = simhost::NewBlock(BytesOf(points));
            const auto offset = static_cast<intptr_t>(8 * shift);
            Balanced([&] { convert(block, offset, 4 - offset / 8, block); });
            EXPECT_EQ(Contents(block), BytesOf(expected)) << shift;
            simhost::Release(block);
        }
    }
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
