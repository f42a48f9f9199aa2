// The byte order family: value forms, in-place forms and range forms, with
// another machine's outcome instantiated from the same rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <functional>
#include <numeric>
#include <type_traits>

#include "kernel_fixture.h"
#include "memory/endian.h"
#include "shell/definitions.h"

namespace qvt {
namespace {

using test::Bytes;

class EndianTest : public test::KernelTest {};
class QuietEndianTest : public test::QuietKernelTest {};

Bytes Counting(std::size_t count, uint8_t first = 1) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

// Each value form widened, so that one column of the table holds them all.
template <typename T, T (*Convert)(T)>
uint64_t Widened(uint64_t n) {
    return static_cast<std::make_unsigned_t<T>>(Convert(static_cast<T>(n)));
}

using InPlace = void (*)(REALobject, intptr_t, intptr_t);

struct NameRow {
    const char *name;
    uint64_t (*value)(uint64_t);
    InPlace inPlace;
    std::size_t width;
    bool swapsOnLittle;
    bool swapsOnBig;
};

// clang-format off
const NameRow kNames[] = {
    {"EndianS32_BtoNQVT", Widened<int32_t, EndianS32_BtoNQVT>, EndianS32_BtoNQVT, 4, true, false},
    {"EndianS32_BtoLQVT", Widened<int32_t, EndianS32_BtoLQVT>, EndianS32_BtoLQVT, 4, true, true},
    {"EndianS32_NtoBQVT", Widened<int32_t, EndianS32_NtoBQVT>, EndianS32_NtoBQVT, 4, true, false},
    {"EndianS32_NtoLQVT", Widened<int32_t, EndianS32_NtoLQVT>, EndianS32_NtoLQVT, 4, false, true},
    {"EndianS32_LtoNQVT", Widened<int32_t, EndianS32_LtoNQVT>, EndianS32_LtoNQVT, 4, false, true},
    {"EndianS32_LtoBQVT", Widened<int32_t, EndianS32_LtoBQVT>, EndianS32_LtoBQVT, 4, true, true},
    {"EndianU32_BtoNQVT", Widened<uint32_t, EndianU32_BtoNQVT>, EndianU32_BtoNQVT, 4, true, false},
    {"EndianU32_BtoLQVT", Widened<uint32_t, EndianU32_BtoLQVT>, EndianU32_BtoLQVT, 4, true, true},
    {"EndianU32_NtoBQVT", Widened<uint32_t, EndianU32_NtoBQVT>, EndianU32_NtoBQVT, 4, true, false},
    {"EndianU32_NtoLQVT", Widened<uint32_t, EndianU32_NtoLQVT>, EndianU32_NtoLQVT, 4, false, true},
    {"EndianU32_LtoNQVT", Widened<uint32_t, EndianU32_LtoNQVT>, EndianU32_LtoNQVT, 4, false, true},
    {"EndianU32_LtoBQVT", Widened<uint32_t, EndianU32_LtoBQVT>, EndianU32_LtoBQVT, 4, true, true},
    {"EndianS16_BtoNQVT", Widened<int16_t, EndianS16_BtoNQVT>, EndianS16_BtoNQVT, 2, true, false},
    {"EndianS16_BtoLQVT", Widened<int16_t, EndianS16_BtoLQVT>, EndianS16_BtoLQVT, 2, true, true},
    {"EndianS16_NtoBQVT", Widened<int16_t, EndianS16_NtoBQVT>, EndianS16_NtoBQVT, 2, true, false},
    {"EndianS16_NtoLQVT", Widened<int16_t, EndianS16_NtoLQVT>, EndianS16_NtoLQVT, 2, false, true},
    {"EndianS16_LtoNQVT", Widened<int16_t, EndianS16_LtoNQVT>, EndianS16_LtoNQVT, 2, false, true},
    {"EndianS16_LtoBQVT", Widened<int16_t, EndianS16_LtoBQVT>, EndianS16_LtoBQVT, 2, true, true},
    {"EndianU16_BtoNQVT", Widened<uint16_t, EndianU16_BtoNQVT>, EndianU16_BtoNQVT, 2, true, false},
    {"EndianU16_BtoLQVT", Widened<uint16_t, EndianU16_BtoLQVT>, EndianU16_BtoLQVT, 2, true, true},
    {"EndianU16_NtoBQVT", Widened<uint16_t, EndianU16_NtoBQVT>, EndianU16_NtoBQVT, 2, true, false},
    {"EndianU16_NtoLQVT", Widened<uint16_t, EndianU16_NtoLQVT>, EndianU16_NtoLQVT, 2, false, true},
    {"EndianU16_LtoNQVT", Widened<uint16_t, EndianU16_LtoNQVT>, EndianU16_LtoNQVT, 2, false, true},
    {"EndianU16_LtoBQVT", Widened<uint16_t, EndianU16_LtoBQVT>, EndianU16_LtoBQVT, 2, true, true},
    {"EndianSwap16QVT", Widened<uint16_t, EndianSwap16QVT>, EndianSwap16QVT, 2, true, true},
    {"EndianSwap32QVT", Widened<uint32_t, EndianSwap32QVT>, EndianSwap32QVT, 4, true, true},
};
// clang-format on

constexpr bool kLittleHere = std::endian::native == std::endian::little;

// Each group of `width` bytes of `count` groups from `offset`, reversed.
Bytes GroupsReversed(Bytes bytes, std::size_t offset, std::size_t count, std::size_t width) {
    for (std::size_t g = 0; g < count; ++g) {
        auto first = bytes.begin() + static_cast<std::ptrdiff_t>(offset + g * width);
        std::reverse(first, first + static_cast<std::ptrdiff_t>(width));
    }
    return bytes;
}

TEST_F(EndianTest, EveryNameSwapsExactlyWhenItsOrdersDifferOnThisMachine) {
    for (const NameRow &row : kNames) {
        const bool swaps = kLittleHere ? row.swapsOnLittle : row.swapsOnBig;
        const uint64_t n = row.width == 4 ? 0x12345678 : 0x1234;
        const uint64_t swapped = row.width == 4 ? 0x78563412 : 0x3412;
        EXPECT_EQ(row.value(n), swaps ? swapped : n) << row.name;

        const Bytes before = Counting(14);
        REALobject block = simhost::NewBlock(before);
        simhost::ClearCalls();
        Balanced([&] { row.inPlace(block, 1, 3); });
        EXPECT_EQ(Contents(block),
                  swaps ? GroupsReversed(before, 1, 3, row.width) : before)
            << row.name;
        // An operation that changes nothing doesn't even look at the block.
        EXPECT_EQ(simhost::CountCalls("memoryBlockGetPtr"), swaps ? 1u : 0u) << row.name;
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(block);
    }
}

TEST_F(EndianTest, ValuesSwapTheirBitPatternWhateverTheSign) {
    if (!kLittleHere) GTEST_SKIP() << "the figures are those of a little-endian machine";
    EXPECT_EQ(EndianU32_BtoNQVT(uint32_t{1}), 16777216u);
    EXPECT_EQ(EndianU32_NtoLQVT(uint32_t{0xDEADBEEF}), 0xDEADBEEFu);
    EXPECT_EQ(EndianU32_LtoNQVT(uint32_t{0xDEADBEEF}), 0xDEADBEEFu);
    EXPECT_EQ(EndianU16_NtoBQVT(uint16_t{1}), 256);
    EXPECT_EQ(EndianS16_BtoNQVT(int16_t{384}), -32767);
    EXPECT_EQ(EndianS32_LtoBQVT(int32_t{128}), INT32_MIN);
    EXPECT_EQ(EndianS32_BtoNQVT(int32_t{-2}), static_cast<int32_t>(0xFEFFFFFF));
}

// The pairs as a big-endian machine resolves them, from the same templates.
TEST_F(EndianTest, ABigEndianMachineGetsTheOtherPairsFromTheSameRule) {
    constexpr auto big = std::endian::big;
    constexpr auto little = std::endian::little;
    using enum ByteOrder;
    const struct {
        const char *pair;
        uint32_t (*onBig)(uint32_t);
        uint32_t (*onLittle)(uint32_t);
        InPlace inPlaceOnBig;
        bool swapsOnBig;
        bool swapsOnLittle;
    } pairs[] = {
        {"BtoN", ConvertValue<uint32_t, B, N, big>, ConvertValue<uint32_t, B, N, little>,
         ConvertInPlace<uint16_t, B, N, big>, false, true},
        {"BtoL", ConvertValue<uint32_t, B, L, big>, ConvertValue<uint32_t, B, L, little>,
         ConvertInPlace<uint16_t, B, L, big>, true, true},
        {"NtoB", ConvertValue<uint32_t, N, B, big>, ConvertValue<uint32_t, N, B, little>,
         ConvertInPlace<uint16_t, N, B, big>, false, true},
        {"NtoL", ConvertValue<uint32_t, N, L, big>, ConvertValue<uint32_t, N, L, little>,
         ConvertInPlace<uint16_t, N, L, big>, true, false},
        {"LtoN", ConvertValue<uint32_t, L, N, big>, ConvertValue<uint32_t, L, N, little>,
         ConvertInPlace<uint16_t, L, N, big>, true, false},
        {"LtoB", ConvertValue<uint32_t, L, B, big>, ConvertValue<uint32_t, L, B, little>,
         ConvertInPlace<uint16_t, L, B, big>, true, true},
    };
    for (const auto &p : pairs) {
        EXPECT_EQ(p.onBig(0x12345678), p.swapsOnBig ? 0x78563412u : 0x12345678u) << p.pair;
        EXPECT_EQ(p.onLittle(0x12345678), p.swapsOnLittle ? 0x78563412u : 0x12345678u) << p.pair;
        REALobject block = simhost::NewBlock(Counting(6));
        simhost::ClearCalls();
        p.inPlaceOnBig(block, 0, 3);
        EXPECT_EQ(Contents(block), p.swapsOnBig ? (Bytes{2, 1, 4, 3, 6, 5}) : Counting(6))
            << p.pair;
        EXPECT_EQ(simhost::CountCalls("memoryBlockGetPtr"), p.swapsOnBig ? 1u : 0u) << p.pair;
        simhost::Release(block);
    }
}

using BlockCall = std::function<void(REALobject)>;

TEST_F(EndianTest, BlockFormsOnSixCountingBytes) {
    const struct {
        const char *what;
        BlockCall call;
        Bytes after;
    } cases[] = {
        {"EndianU16_BtoNQVT(1, 2)", [](REALobject b) { EndianU16_BtoNQVT(b, 1, 2); },
         {1, 3, 2, 5, 4, 6}},
        {"EndianSwap32QVT(0, 0)", [](REALobject b) { EndianSwap32QVT(b, 0, 0); },
         {1, 2, 3, 4, 5, 6}},
        {"EndianSwap32QVT(0, 1)", [](REALobject b) { EndianSwap32QVT(b, 0, 1); },
         {4, 3, 2, 1, 5, 6}},
        {"SwapBytesQVT(0, 6)", [](REALobject b) { SwapBytesQVT(b, 0, 6); }, {6, 5, 4, 3, 2, 1}},
        {"SwapBytesQVT(1, 3)", [](REALobject b) { SwapBytesQVT(b, 1, 3); }, {1, 4, 3, 2, 5, 6}},
        {"SwapBytesQVT(2, 100)", [](REALobject b) { SwapBytesQVT(b, 2, 100); },
         {1, 2, 6, 5, 4, 3}},
        {"SwapBytesQVT(6, 1)", [](REALobject b) { SwapBytesQVT(b, 6, 1); }, {1, 2, 3, 4, 5, 6}},
        {"SwapBytesQVT(-1, 2)", [](REALobject b) { SwapBytesQVT(b, -1, 2); },
         {1, 2, 3, 4, 5, 6}},
        {"SwapBytes16QVT(0, 5)", [](REALobject b) { SwapBytes16QVT(b, 0, 5); },
         {2, 1, 4, 3, 5, 6}},
        {"SwapBytes16QVT(4, 100)", [](REALobject b) { SwapBytes16QVT(b, 4, 100); },
         {1, 2, 3, 4, 6, 5}},
        {"SwapBytes32QVT(0, 6)", [](REALobject b) { SwapBytes32QVT(b, 0, 6); },
         {4, 3, 2, 1, 5, 6}},
        {"SwapBytes32QVT(3, 100)", [](REALobject b) { SwapBytes32QVT(b, 3, 100); },
         {1, 2, 3, 4, 5, 6}},
        {"SwapBytes32QVT(2, 4)", [](REALobject b) { SwapBytes32QVT(b, 2, 4); },
         {1, 2, 6, 5, 4, 3}},
    };
    for (const auto &c : cases) {
        REALobject block = simhost::NewBlock(Counting(6));
        Balanced([&] { c.call(block); });
        EXPECT_EQ(Contents(block), c.after) << c.what;
        EXPECT_TRUE(simhost::TakeExceptions().empty()) << c.what;
        simhost::Release(block);
    }
}

TEST_F(EndianTest, RangeFormsDoNotClipBlocksOfUnknownSizeAndIgnoreNil) {
    Bytes memory = Counting(12);
    REALobject foreign = simhost::NewForeignBlock(memory.data());
    Balanced([&] { SwapBytesQVT(foreign, 8, 4); });
    Balanced([&] { SwapBytes16QVT(foreign, 1, 4); });
    EXPECT_EQ(memory, (Bytes{1, 3, 2, 5, 4, 6, 7, 8, 12, 11, 10, 9}));
    REALobject memoryless = simhost::NewMemorylessBlock();
    for (REALobject block : {static_cast<REALobject>(nullptr), memoryless}) {
        Balanced([&] { SwapBytesQVT(block, 0, 4); });
        Balanced([&] { SwapBytes32QVT(block, 0, 4); });
        Balanced([&] { EndianSwap16QVT(block, 0, 4); });
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(foreign);
    simhost::Release(memoryless);
}

// Word paths against the plain loops, over offsets that break every
// alignment and lengths on both sides of each whole word.
TEST_F(QuietEndianTest, InPlaceGroupsMatchThePlainLoop) {
    const struct {
        const char *name;
        InPlace call;
        std::size_t width;
    } swaps[] = {
        {"EndianS16_BtoLQVT", EndianS16_BtoLQVT, 2},
        {"EndianSwap32QVT", EndianSwap32QVT, 4},
    };
    const Bytes before = Counting(160, 7);
    for (const auto &s : swaps) {
        for (std::size_t offset = 0; offset < 9; ++offset) {
            for (std::size_t count = 0; count * s.width + offset <= 150; ++count) {
                REALobject block = simhost::NewBlock(before);
                s.call(block, static_cast<intptr_t>(offset), static_cast<intptr_t>(count));
                ASSERT_EQ(Contents(block), GroupsReversed(before, offset, count, s.width))
                    << s.name << " offset " << offset << " count " << count;
                simhost::Release(block);
            }
        }
    }
}

TEST_F(QuietEndianTest, RangeFormsMatchThePlainLoopWithClipping) {
    const struct {
        const char *name;
        InPlace call;
        std::size_t width;  // 0: the whole range reversed
    } forms[] = {
        {"SwapBytesQVT", SwapBytesQVT, 0},
        {"SwapBytes16QVT", SwapBytes16QVT, 2},
        {"SwapBytes32QVT", SwapBytes32QVT, 4},
    };
    const std::size_t size = 53;
    const Bytes before = Counting(size, 100);
    for (const auto &f : forms) {
        for (std::size_t offset = 0; offset < 11; ++offset) {
            for (std::size_t numBytes = 0; numBytes < 60; ++numBytes) {
                const std::size_t length = std::min(numBytes, size - offset);
                Bytes expected = before;
                if (f.width == 0) {
                    std::reverse(expected.begin() + static_cast<std::ptrdiff_t>(offset),
                                 expected.begin() + static_cast<std::ptrdiff_t>(offset + length));
                } else {
                    expected = GroupsReversed(before, offset, length / f.width, f.width);
                }
                REALobject block = simhost::NewBlock(before);
                f.call(block, static_cast<intptr_t>(offset), static_cast<intptr_t>(numBytes));
                ASSERT_EQ(Contents(block), expected)
                    << f.name << " offset " << offset << " numBytes " << numBytes;
                simhost::Release(block);
            }
        }
    }
}

TEST_F(EndianTest, BothFormsAreRegisteredUnderTheirDeclarations) {
    REALPluginMain(&simhost::Resolve);
    auto value = simhost::FindMethod("EndianS16_BtoNQVT(n as Int16) as Int16");
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(value->function, QVT_PROC(int16_t(int16_t), EndianS16_BtoNQVT));
    auto inPlace =
        simhost::FindMethod("EndianS16_BtoNQVT(offset as integer,count as integer)", "MemoryBlock");
    ASSERT_TRUE(inPlace.has_value());
    EXPECT_EQ(inPlace->function,
              QVT_PROC(void(REALobject, intptr_t, intptr_t), EndianS16_BtoNQVT));
    auto range = simhost::FindMethod("SwapBytes32QVT(offset as Integer, numBytes as Integer)",
                                     "MemoryBlock");
    ASSERT_TRUE(range.has_value());
    EXPECT_EQ(range->function, QVT_PROC(void(REALobject, intptr_t, intptr_t), SwapBytes32QVT));
}

}  // namespace
}  // namespace qvt
