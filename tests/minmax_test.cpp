// Element-wise minimum and maximum: readings of every width and sign, the
// range, the refusals, and the block loops against the plain element loop.
#include <gtest/gtest.h>

#include <algorithm>
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

TEST_F(MinMaxTest, TheRangeMovesTheDestinationOnly) {
    Bytes first = BytesOf<uint32_t>({5, 6}), second = BytesOf<uint32_t>({7, 1});
    const Bytes untouched(8, 0xAA), seven = BytesOf<uint32_t>({7});
    Bytes first7 = untouched, second7 = untouched;
    std::copy(seven.begin(), seven.end(), first7.begin());
    std::copy(seven.begin(), seven.end(), second7.begin() + 4);
    const struct {
        intptr_t offset, length;
        Bytes result;
    } cases[] = {
        {0, 7, first7}, {4, 0, second7}, {4, -1, second7},
        {1, 3, untouched}, {8, 0, untouched}, {20, 0, untouched},
    };
    for (const auto &c : cases) {
        auto max = [&](REALobject b) {
            EXPECT_TRUE(MaxQVT(b, first.data(), second.data(), 32, false, c.offset, c.length));
        };
        EXPECT_EQ(After(untouched, max), c.result) << c.offset << " " << c.length;
    }
}

TEST_F(MinMaxTest, RefusalsComeInOrderAndChangeNothing) {
    uint8_t some[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    const struct {
        bool nil;
        void *first, *second;
        intptr_t bits, offset;
        const char *raised;  // null: no exception, result false
    } cases[] = {
        {true, nullptr, nullptr, 24, -1, "NilObjectException: memoryblock is nil"},
        {false, nullptr, some, 8, -1, "NilObjectException: ptr is nil"},
        {false, some, nullptr, 8, 0, "NilObjectException: ptr is nil"},
        {false, some, some, 24, -1, "UnsupportedOperationException: offset < 0"},
        {false, some, some, 24, 0, nullptr}, {false, some, some, 0, 0, nullptr},
        {false, some, some, 65, 0, nullptr}, {false, some, some, 12, 8, nullptr},
    };
    for (Method method : {&MinQVT, &MaxQVT}) {
        for (const auto &c : cases) {
            REALobject block = simhost::NewBlock(Bytes(8, 0xAA));
            EXPECT_FALSE(Balanced([&] {
                return method(c.nil ? nullptr : block, c.first, c.second, c.bits, false, c.offset,
                              0);
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

const struct Flavour {
    Method method;
    intptr_t bits;
    bool isSigned;
    void (*plain)(uint8_t *, const uint8_t *, const uint8_t *, std::size_t);
} kFlavours[] = {
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

// Element counts around each vector width (unrolled up to 128 bytes), a
// trailing part of an element, an odd destination, and sources outside the
// block or inside it (in place and shifted either way): the result is that
// of the element loop run over the same memory, and the rest of the block
// stays.
TEST_F(MinMaxFastPathTest, AgreesWithThePlainLoop) {
    constexpr int kOutside = 1000;
    std::mt19937 random(5);
    for (const Flavour &f : kFlavours) {
        const auto size = static_cast<std::size_t>(f.bits / 8);
        for (std::size_t count : {1, 7, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 128, 129, 8195}) {
            const std::size_t length = count * size + count % size;
            for (int shift : {kOutside, -9, -1, 0, 1, 8, 64}) {
                const Bytes initial = test::RandomBytes(length + 170, random);
                Bytes outside = test::RandomBytes(2 * length + 3, random);
                const std::size_t dest = 81;
                // An overlapping source is the first pointer, or the second for
                // a shift down; without overlap both lie outside at odd places.
                auto sources = [&](uint8_t *memory) {
                    if (shift == kOutside) {
                        return std::pair(outside.data() + 1, outside.data() + length + 2);
                    }
                    uint8_t *inside = memory + dest + shift;
                    return shift < 0 ? std::pair(outside.data(), inside)
                                     : std::pair(inside, outside.data());
                };
                Bytes expected = initial;
                const auto [a, b] = sources(expected.data());
                f.plain(expected.data() + dest, a, b, count);
                REALobject block = simhost::NewBlock(initial);
                const auto [first, second] = sources(simhost::Bytes(block).data());
                ASSERT_TRUE(f.method(block, first, second, f.bits, f.isSigned,
                                     static_cast<intptr_t>(dest), static_cast<intptr_t>(length)));
                ASSERT_EQ(Contents(block), expected) << f.bits << " " << count << " " << shift;
                simhost::Release(block);
            }
        }
    }
}

}  // namespace
}  // namespace qvt
