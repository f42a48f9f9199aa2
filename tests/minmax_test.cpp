// Element-wise minimum and maximum: readings of every width and sign, the
// range, the refusals, and the block loops against the plain element loop.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "kernel_fixture.h"
#include "kernels/minmax.h"

namespace qvt {
namespace {

using test::Bytes;
using Method = bool (*)(REALobject, void *, void *, intptr_t, bool, intptr_t, intptr_t);

template <typename T>
Bytes BytesOf(std::initializer_list<T> values) {
    Bytes bytes(values.size() * sizeof(T));
    std::memcpy(bytes.data(), values.begin(), bytes.size());
    return bytes;
}

class MinMaxTest : public test::KernelTest {};

TEST_F(MinMaxTest, ElementsCompareAsNumbersOfTheirWidthAndSign) {
    const struct {
        Method method;
        intptr_t bits;
        bool isSigned;
        Bytes first, second, result;
    } cases[] = {
        {&MaxQVT, 8, false, {1, 200}, {2, 100}, {2, 200}},
        {&MaxQVT, 8, true, {1, 200}, {2, 100}, {2, 100}},
        {&MinQVT, 8, true, {0x7F}, {0x80}, {0x80}},
        {&MinQVT, 16, true, BytesOf<uint16_t>({0xFFFF}), BytesOf<uint16_t>({1}),
         BytesOf<uint16_t>({0xFFFF})},
        {&MinQVT, 16, false, BytesOf<uint16_t>({0xFFFF}), BytesOf<uint16_t>({1}),
         BytesOf<uint16_t>({1})},
        {&MaxQVT, 32, true, BytesOf<uint32_t>({0x80000000}), BytesOf<uint32_t>({1}),
         BytesOf<uint32_t>({1})},
        {&MinQVT, 32, false, BytesOf<uint32_t>({0x00010000}), BytesOf<uint32_t>({0x0000FFFF}),
         BytesOf<uint32_t>({0x0000FFFF})},
        {&MaxQVT, 64, false, BytesOf<uint64_t>({0x8000000000000000}), BytesOf<uint64_t>({1}),
         BytesOf<uint64_t>({0x8000000000000000})},
        {&MaxQVT, 64, true, BytesOf<uint64_t>({0x8000000000000000}), BytesOf<uint64_t>({1}),
         BytesOf<uint64_t>({1})},
        {&MaxQVT, 64, false, BytesOf<uint64_t>({0x100000001}), BytesOf<uint64_t>({0x1FFFFFFFF}),
         BytesOf<uint64_t>({0x1FFFFFFFF})},
        {&MinQVT, 64, true, BytesOf<uint64_t>({0xFFFFFFFF00000001}),
         BytesOf<uint64_t>({0xFFFFFFFF00000002}), BytesOf<uint64_t>({0xFFFFFFFF00000001})},
    };
    for (const auto &c : cases) {
        Bytes first = c.first, second = c.second;
        REALobject block = simhost::NewBlock(Bytes(c.result.size(), 0xAA));
        EXPECT_TRUE(Balanced([&] {
            return c.method(block, first.data(), second.data(), c.bits, c.isSigned, 0, 0);
        }));
        EXPECT_EQ(Contents(block), c.result) << c.bits << (c.isSigned ? " signed" : "");
        simhost::Release(block);
    }
}

TEST_F(MinMaxTest, TheRangeMovesTheDestinationOnly) {
    Bytes first = BytesOf<uint32_t>({5, 6}), second = BytesOf<uint32_t>({7, 1});
    const struct {
        intptr_t offset, length;
        Bytes result;
    } cases[] = {
        {0, 7, Bytes{7, 0, 0, 0, 0xAA, 0xAA, 0xAA, 0xAA}},
        {4, 0, Bytes{0xAA, 0xAA, 0xAA, 0xAA, 7, 0, 0, 0}},
        {4, -1, Bytes{0xAA, 0xAA, 0xAA, 0xAA, 7, 0, 0, 0}},
        {1, 3, Bytes(8, 0xAA)},
        {8, 0, Bytes(8, 0xAA)},
        {20, 0, Bytes(8, 0xAA)},
    };
    for (const auto &c : cases) {
        REALobject block = simhost::NewBlock(Bytes(8, 0xAA));
        EXPECT_TRUE(Balanced([&] {
            return MaxQVT(block, first.data(), second.data(), 32, false, c.offset, c.length);
        }));
        EXPECT_EQ(Contents(block), c.result) << c.offset << " " << c.length;
        simhost::Release(block);
    }
}

TEST_F(MinMaxTest, RefusalsComeInOrderAndChangeNothing) {
    uint8_t some[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    const struct {
        bool nil;
        void *first, *second;
        intptr_t bits, offset, length;
        const char *raised;  // null: no exception, result false
    } cases[] = {
        {true, nullptr, nullptr, 24, -1, 0, "NilObjectException: memoryblock is nil"},
        {false, nullptr, some, 8, -1, 0, "NilObjectException: ptr is nil"},
        {false, some, nullptr, 8, 0, 0, "NilObjectException: ptr is nil"},
        {false, some, some, 24, -1, 0, "UnsupportedOperationException: offset < 0"},
        {false, some, some, 24, 0, 0, nullptr},
        {false, some, some, 0, 0, 0, nullptr},
        {false, some, some, -8, 0, 0, nullptr},
        {false, some, some, 65, 0, 0, nullptr},
        {false, some, some, 128, 0, 0, nullptr},
        {false, some, some, 12, 8, 0, nullptr},
    };
    for (Method method : {&MinQVT, &MaxQVT}) {
        for (const auto &c : cases) {
            REALobject block = simhost::NewBlock(Bytes(8, 0xAA));
            REALobject receiver = c.nil ? nullptr : block;
            EXPECT_FALSE(Balanced([&] {
                return method(receiver, c.first, c.second, c.bits, false, c.offset, c.length);
            }));
            if (c.raised) {
                EXPECT_EQ(OneException(), c.raised);
            } else {
                EXPECT_TRUE(simhost::TakeExceptions().empty()) << c.bits;
            }
            EXPECT_EQ(Contents(block), Bytes(8, 0xAA));
            simhost::Release(block);
        }
    }
    // A valid width with nothing to do succeeds.
    REALobject block = simhost::NewBlock(Bytes(8, 0xAA));
    EXPECT_TRUE(MinQVT(block, some, some, 64, false, 8, 0));
    simhost::Release(block);
}

// The element loop in ascending order, the reference for every path.
template <typename T, bool Max>
void Plain(uint8_t *dest, const uint8_t *first, const uint8_t *second, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        T a, b;
        std::memcpy(&a, first + i * sizeof(T), sizeof(T));
        std::memcpy(&b, second + i * sizeof(T), sizeof(T));
        const T r = Max ? (a < b ? b : a) : (b < a ? b : a);
        std::memcpy(dest + i * sizeof(T), &r, sizeof(T));
    }
}

using Reference = void (*)(uint8_t *, const uint8_t *, const uint8_t *, std::size_t);

struct Flavour {
    Method method;
    intptr_t bits;
    bool isSigned;
    Reference plain;
};

const Flavour kFlavours[] = {
    {&MinQVT, 8, false, &Plain<uint8_t, false>},   {&MaxQVT, 8, false, &Plain<uint8_t, true>},
    {&MinQVT, 8, true, &Plain<int8_t, false>},     {&MaxQVT, 8, true, &Plain<int8_t, true>},
    {&MinQVT, 16, false, &Plain<uint16_t, false>}, {&MaxQVT, 16, false, &Plain<uint16_t, true>},
    {&MinQVT, 16, true, &Plain<int16_t, false>},   {&MaxQVT, 16, true, &Plain<int16_t, true>},
    {&MinQVT, 32, false, &Plain<uint32_t, false>}, {&MaxQVT, 32, false, &Plain<uint32_t, true>},
    {&MinQVT, 32, true, &Plain<int32_t, false>},   {&MaxQVT, 32, true, &Plain<int32_t, true>},
    {&MinQVT, 64, false, &Plain<uint64_t, false>}, {&MaxQVT, 64, false, &Plain<uint64_t, true>},
    {&MinQVT, 64, true, &Plain<int64_t, false>},   {&MaxQVT, 64, true, &Plain<int64_t, true>},
};

class MinMaxFastPathTest : public test::QuietKernelTest {};

// Separate sources and destination at odd places, every length from 1 to 200
// bytes and a few large ones: the block loops must give the element loop's
// bytes, and leave the rest of the block alone.
TEST_F(MinMaxFastPathTest, SeparateBlocksAgreeWithThePlainLoop) {
    std::mt19937 random(5);
    std::vector<std::size_t> lengths;
    for (std::size_t n = 1; n <= 200; ++n) lengths.push_back(n);
    for (std::size_t n : {4096, 65541}) lengths.push_back(n);
    for (const Flavour &f : kFlavours) {
        for (std::size_t length : lengths) {
            const std::size_t offset = length % 3 == 0 ? 0 : 1 + length % 7;
            Bytes sources(2 * length + 9);
            for (auto &b : sources) b = static_cast<uint8_t>(random());
            uint8_t *first = sources.data() + 1;
            uint8_t *second = sources.data() + length + 4;
            Bytes expected(offset + length + 3, 0x5C);
            f.plain(expected.data() + offset, first, second, length / (f.bits / 8));

            REALobject block = simhost::NewBlock(Bytes(expected.size(), 0x5C));
            ASSERT_TRUE(f.method(block, first, second, f.bits, f.isSigned,
                                 static_cast<intptr_t>(offset), static_cast<intptr_t>(length)));
            ASSERT_EQ(Contents(block), expected) << f.bits << " " << f.isSigned << " " << length;
            simhost::Release(block);
        }
    }
}

// Sources inside the destination block, in place and shifted either way:
// the result is that of the element loop run over the same memory.
TEST_F(MinMaxFastPathTest, OverlappingRangesAgreeWithThePlainLoop) {
    std::mt19937 random(6);
    for (const Flavour &f : kFlavours) {
        for (std::size_t count : {1, 15, 16, 17, 31, 32, 33, 63, 64, 65, 130}) {
            const std::size_t bytes = count * static_cast<std::size_t>(f.bits / 8);
            for (std::ptrdiff_t shift : {-9, -1, 0, 1, 8, 64}) {
                Bytes initial(bytes + 160);
                for (auto &b : initial) b = static_cast<uint8_t>(random());
                const std::size_t dest = 80;
                const auto source = static_cast<std::size_t>(80 + shift);
                Bytes outside(bytes);
                for (auto &b : outside) b = static_cast<uint8_t>(random());

                // The overlapping source is the first or the second pointer.
                const bool second = shift < 0;
                Bytes expected = initial;
                uint8_t *inside = expected.data() + source;
                f.plain(expected.data() + dest, second ? outside.data() : inside,
                        second ? inside : outside.data(), count);
                REALobject block = simhost::NewBlock(initial);
                inside = simhost::Bytes(block).data() + source;
                ASSERT_TRUE(f.method(block, second ? outside.data() : inside,
                                     second ? inside : outside.data(), f.bits, f.isSigned,
                                     static_cast<intptr_t>(dest), static_cast<intptr_t>(bytes)));
                ASSERT_EQ(Contents(block), expected) << f.bits << " " << count << " " << shift;
                simhost::Release(block);
            }
        }
    }
}

}  // namespace
}  // namespace qvt
