// The byte order family: value forms, in-place forms and range forms, with
// another machine's outcome instantiated from the same rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <numeric>
#include <string>
#include <type_traits>
#include <vector>

#include "kernel_fixture.h"
#include "memory/endian.h"
#include "shell/definitions.h"

namespace qvt {
namespace {

using test::Bytes;
using test::Counting;

class EndianTest : public test::KernelTest {};
class QuietEndianTest : public test::QuietKernelTest {};

// Each value form widened, so that one column of the table holds them all.
template <typename T, T (*Convert)(T)>
uint64_t Widened(uint64_t n) {
    return static_cast<std::make_unsigned_t<T>>(Convert(static_cast<T>(n)));
}

using InPlace = void (*)(REALobject, intptr_t, intptr_t);

// Whether each pair of orders swaps, on each kind of machine; the plain
// swaps always do.
const struct {
    const char *pair;
    bool onLittle, onBig;
} kPairs[] = {{"BtoN", true, false}, {"BtoL", true, true},  {"NtoB", true, false},
              {"NtoL", false, true}, {"LtoN", false, true}, {"LtoB", true, true},
              {"Swap", true, true}};

struct NameRow {
    std::string name;
    uint64_t (*value)(uint64_t);
    InPlace inPlace;
};

#define QVT_ROW(name, T, from, to) {#name, Widened<T, name>, name},
const NameRow kNames[] = {QVT_ENDIAN_NAMES(QVT_ROW)};
#undef QVT_ROW

constexpr bool kLittleHere = std::endian::native == std::endian::little;

// Each group of `width` bytes of `count` groups from `offset`, reversed.
Bytes GroupsReversed(Bytes bytes, std::size_t offset, std::size_t count, std::size_t width) {
    for (std::size_t g = 0; g < count; ++g) {
        auto first = bytes.begin() + static_cast<std::ptrdiff_t>(offset + g * width);
        std::reverse(first, first + static_cast<std::ptrdiff_t>(width));
    }
    return bytes;
}

// The width and the orders are read from the name itself.
TEST_F(EndianTest, EveryNameSwapsExactlyWhenItsOrdersDifferOnThisMachine) {
    ASSERT_EQ(std::size(kNames), 26u);
    for (const NameRow &row : kNames) {
        const std::size_t width = row.name.find("16") != std::string::npos ? 2 : 4;
        int swaps = -1;
        for (const auto &p : kPairs) {
            if (row.name.find(p.pair) != std::string::npos) swaps = kLittleHere ? p.onLittle : p.onBig;
        }
        ASSERT_NE(swaps, -1) << row.name;
        // Sign bits on both sides catch an arithmetic shift in the signed forms.
        const uint64_t n = width == 4 ? 0x81828384 : 0x8182;
        EXPECT_EQ(row.value(n), !swaps ? n : width == 4 ? 0x84838281 : 0x8281) << row.name;
        REALobject block = simhost::NewBlock(Counting(14));
        simhost::ClearCalls();
        Balanced([&] { row.inPlace(block, 1, 3); });
        EXPECT_EQ(Contents(block), swaps ? GroupsReversed(Counting(14), 1, 3, width) : Counting(14))
            << row.name;
        // An operation that changes nothing doesn't even look at the block.
        EXPECT_EQ(simhost::CountCalls("memoryBlockGetPtr"), swaps ? 1u : 0u) << row.name;
        simhost::Release(block);
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

// The pairs as a big-endian machine resolves them, from the same templates.
TEST_F(EndianTest, ABigEndianMachineGetsThePairsFromTheSameRule) {
    constexpr auto big = std::endian::big;
    constexpr auto little = std::endian::little;
    using enum ByteOrder;
    using Value = uint32_t (*)(uint32_t);
    const struct { Value onBig, onLittle; InPlace inPlaceOnBig; } pairs[] = {
#define QVT_PAIR(from, to) {ConvertValue<uint32_t, from, to, big>, ConvertValue<uint32_t, from, to, little>, ConvertInPlace<uint16_t, from, to, big>},
        QVT_PAIR(B, N) QVT_PAIR(B, L) QVT_PAIR(N, B) QVT_PAIR(N, L) QVT_PAIR(L, N) QVT_PAIR(L, B)
#undef QVT_PAIR
    };
    for (std::size_t i = 0; i < std::size(pairs); ++i) {
        const auto &p = pairs[i];
        const auto &expected = kPairs[i];
        EXPECT_EQ(p.onBig(0x12345678), expected.onBig ? 0x78563412u : 0x12345678u) << expected.pair;
        EXPECT_EQ(p.onLittle(0x12345678), expected.onLittle ? 0x78563412u : 0x12345678u) << expected.pair;
        REALobject block = simhost::NewBlock(Counting(6));
        simhost::ClearCalls();
        p.inPlaceOnBig(block, 0, 3);
        EXPECT_EQ(Contents(block), expected.onBig ? (Bytes{2, 1, 4, 3, 6, 5}) : Counting(6)) << expected.pair;
        EXPECT_EQ(simhost::CountCalls("memoryBlockGetPtr"), expected.onBig ? 1u : 0u) << expected.pair;
        simhost::Release(block);
    }
}

TEST_F(EndianTest, BlockFormsOnSixCountingBytes) {
    const struct { const char *name; InPlace call; intptr_t offset, count; Bytes after; } cases[] = {
        // Clipping at and past the end; the word loops are proven below.
        {"SwapBytesQVT", SwapBytesQVT, 6, 1, {1, 2, 3, 4, 5, 6}},
        {"SwapBytesQVT", SwapBytesQVT, -1, 2, {1, 2, 3, 4, 5, 6}},
        {"SwapBytes16QVT", SwapBytes16QVT, 4, 100, {1, 2, 3, 4, 6, 5}},
        {"SwapBytes32QVT", SwapBytes32QVT, 3, 100, {1, 2, 3, 4, 5, 6}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(After(Counting(6), [&](REALobject b) { c.call(b, c.offset, c.count); }), c.after)
            << c.name << "(" << c.offset << ", " << c.count << ")";
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(EndianTest, RangeFormsDoNotClipBlocksOfUnknownSizeAndIgnoreNil) {
    Bytes memory = Counting(12);
    REALobject foreign = simhost::NewForeignBlock(memory.data());
    Balanced([&] { SwapBytesQVT(foreign, 8, 4); });
    Balanced([&] { SwapBytes16QVT(foreign, 1, 4); });
    EXPECT_EQ(memory, (Bytes{1, 3, 2, 5, 4, 6, 7, 8, 12, 11, 10, 9}));
    REALobject memoryless = simhost::NewMemorylessBlock();
    for (REALobject block : {static_cast<REALobject>(nullptr), memoryless}) {
        for (InPlace call : {SwapBytesQVT, SwapBytes32QVT, EndianSwap16QVT}) Balanced([&] { call(block, 0, 4); });
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    for (REALobject b : {foreign, memoryless}) simhost::Release(b);
}

// Vector and word paths against the plain loops, over offsets that break
// every alignment and lengths on both sides of each whole word and vector
// (unrolled up to 128 bytes); the range forms clip to the block, the
// in-place forms count groups.
TEST_F(QuietEndianTest, EveryFormMatchesThePlainLoop) {
    // width 0: the whole range reversed.
    const struct { const char *name; InPlace call; std::size_t width; bool range; } forms[] = {
        {"EndianS16_BtoLQVT", EndianS16_BtoLQVT, 2, false},
        {"EndianSwap32QVT", EndianSwap32QVT, 4, false},
        {"SwapBytesQVT", SwapBytesQVT, 0, true},
        {"SwapBytes16QVT", SwapBytes16QVT, 2, true},
        {"SwapBytes32QVT", SwapBytes32QVT, 4, true},
    };
    const std::size_t size = 300;
    const Bytes before = Counting(size, 100);
    std::vector<std::size_t> counts(40);
    std::iota(counts.begin(), counts.end(), 0);
    counts.insert(counts.end(), {47, 48, 49, 63, 64, 65, 95, 96, 97, 127, 128, 129, 150, 289});
    for (const auto &f : forms) {
        for (std::size_t offset = 0; offset < 11; ++offset) {
            for (std::size_t n : counts) {
                const std::size_t length = f.range ? std::min(n, size - offset) : n * f.width;
                if (offset + length > size) break;
                const Bytes expected = f.width ? GroupsReversed(before, offset, length / f.width, f.width)
                                               : GroupsReversed(before, offset, 1, length);
                const auto call = [&](REALobject b) {
                    f.call(b, static_cast<intptr_t>(offset), static_cast<intptr_t>(n));
                };
                ASSERT_EQ(After(before, call), expected) << f.name << " offset " << offset << " n " << n;
            }
        }
    }
}

TEST_F(EndianTest, EachFormIsRegisteredUnderItsDeclaration) {
    REALPluginMain(&simhost::Resolve);
    using Block = void(REALobject, intptr_t, intptr_t);
    const struct { const char *declaration, *type; REALproc function; } rows[] = {
        {"EndianS16_BtoNQVT(n as Int16) as Int16", "", QVT_PROC(int16_t(int16_t), EndianS16_BtoNQVT)},
        {"EndianS16_BtoNQVT(offset as integer,count as integer)", "MemoryBlock",
         QVT_PROC(Block, EndianS16_BtoNQVT)},
    };
    for (const auto &row : rows) {
        auto method = simhost::FindMethod(row.declaration, row.type);
        ASSERT_TRUE(method.has_value()) << row.declaration;
        EXPECT_EQ(method->function, row.function) << row.declaration;
    }
}

}  // namespace
}  // namespace qvt
