// The colour kernels: tolerance limits, channel sums, the pixel range, the
// refusals, and 12-bit packing in place.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

#include "kernel_fixture.h"
#include "kernels/colour.h"

namespace qvt {
namespace {

using test::Bytes;

class ColourTest : public test::KernelTest {};

// One channel's source and tolerance, with bytes that must and must not
// match; the other channels match exactly.
TEST_F(ColourTest, ToleranceLimitsAreCutTowardZeroAndIncluded) {
    const struct { intptr_t source; double tolerance; Bytes matching, other; } cases[] = {
        {100, 0.1, {90, 100, 110}, {89, 111}},
        {100, 0.0, {100}, {99, 101}},
        {100, -0.1, {}, {90, 100, 110}},
        {255, 0.1, {229, 255}, {228}},
        {0, 0.5, {0}, {1}},
        {100, std::numeric_limits<double>::quiet_NaN(), {}, {100}},
        {100, 1e30, {0, 255}, {}}};
    for (const auto &c : cases) {
        for (bool matches : {true, false}) {
            for (uint8_t value : matches ? c.matching : c.other) {
                const Bytes pixel{7, value, 7, 7};
                EXPECT_EQ(After(pixel, [&](REALobject b) { Calc3te(b, 7, c.source, 7, 7, 1, 2, 3, 4, c.tolerance, 0, 0); }),
                          matches ? Bytes({1, 2, 3, 4}) : pixel)
                    << c.source << " " << c.tolerance << " " << int{value};
            }
        }
    }
}

TEST_F(ColourTest, MatchingPixelsTakeTheLowBytesOfTheDestination) {
    const Bytes pixels{10, 20, 30, 40, 10, 20, 30, 41, 10, 20, 30, 40};
    auto calc = [](REALobject b) { Calc3te(b, 10, 20, 30, 40, 257, -1, 0, 511, 0.0, 0, 0); };
    EXPECT_EQ(After(pixels, calc), (Bytes{1, 255, 0, 255, 10, 20, 30, 41, 1, 255, 0, 255}));
}

TEST_F(ColourTest, FourthByteComesFromTheChannelSum) {
    using Kernel = void (*)(REALobject, intptr_t, intptr_t, intptr_t, bool);
    const Kernel cmy = &Calc2teCMY, cmyk = &Calc2teCMYK;
    const struct { Kernel kernel; intptr_t iByteMax; bool withSum0; Bytes pixel; uint8_t fourth; } cases[] = {
        {cmy, 255, true, {10, 20, 30, 99}, 195},   {cmy, 255, true, {100, 100, 100, 99}, 0},
        {cmy, 255, false, {0, 0, 0, 99}, 255},     {cmy, 255, true, {85, 85, 84, 9}, 1},
        {cmy, 255, true, {85, 85, 85, 9}, 0},      {cmyk, 255, true, {10, 20, 30, 40}, 155},
        {cmyk, 255, true, {0, 0, 0, 0}, 0},        {cmyk, 255, false, {0, 0, 0, 0}, 255},
        {cmy, 300, true, {15, 15, 15, 0}, 255},    {cmy, 300, true, {20, 20, 20, 0}, 240},
        {cmy, -5, false, {1, 2, 3, 9}, 0},         {cmyk, 1000000, false, {255, 255, 255, 255}, 255}};
    for (const auto &c : cases) {
        Bytes expected = c.pixel;
        expected[3] = c.fourth;
        EXPECT_EQ(After(c.pixel, [&](REALobject b) { c.kernel(b, c.iByteMax, 0, 0, c.withSum0); }), expected)
            << c.iByteMax << " " << c.withSum0;
    }
    // Pixels follow the offset whatever its alignment; sums of 0 stay 0.
    EXPECT_EQ(After(Bytes(10, 0), [](REALobject b) { Calc2teCMY(b, 100, 1, 8, true); }), Bytes(10, 0));
    EXPECT_EQ(After(Bytes(10, 0), [](REALobject b) { Calc2teCMY(b, 100, 1, 8, false); }),
              (Bytes{0, 0, 0, 0, 100, 0, 0, 0, 100, 0}));
}

// Each kernel turns a pixel of 0, 0, 0, 0 into something else, so the
// changed pixels show the range.
using Ranged = std::function<void(REALobject, intptr_t, intptr_t)>;
const Ranged kKernels[] = {
    [](REALobject b, intptr_t o, intptr_t l) { Calc3te(b, 0, 0, 0, 0, 9, 9, 9, 9, 0.1, o, l); },
    [](REALobject b, intptr_t o, intptr_t l) { Calc2teCMY(b, 255, o, l, false); },
    [](REALobject b, intptr_t o, intptr_t l) { Calc2teCMYK(b, 255, o, l, false); },
};

TEST_F(ColourTest, RangesCountBytesAndRoundUpToWholePixels) {
    // changed: per pixel of a 4-pixel block.
    const struct { intptr_t offset, length; std::vector<bool> changed; } cases[] = {{4, 8, {false, true, true, false}},  {0, 5, {true, true, false, false}},
                 {0, 0, {true, true, true, true}},    {8, -3, {false, false, true, true}},
                 {16, 0, {false, false, false, false}}, {40, 0, {false, false, false, false}}};
    for (const Ranged &kernel : kKernels) {
        for (const auto &c : cases) {
            const Bytes after = After(Bytes(16, 0), [&](REALobject b) { kernel(b, c.offset, c.length); });
            for (std::size_t p = 0; p < 4; ++p) EXPECT_EQ(after[4 * p + 3] != 0, c.changed[p]) << c.offset << " " << p;
        }
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(ColourTest, RefusalsComeBeforeThePinAndChangeNothing) {
    uint8_t memory[8] = {};
    REALobject foreign = simhost::NewForeignBlock(memory);
    REALobject memoryless = simhost::NewMemorylessBlock();
    for (const Ranged &kernel : kKernels) {
        REALobject block = simhost::NewBlock(Bytes(8, 0));
        Balanced([&] { kernel(nullptr, -1, 0); });
        EXPECT_EQ(OneException(), "NilObjectException: memoryblock is nil");
        simhost::ClearCalls();
        Balanced([&] { kernel(block, -1, 0); });
        EXPECT_EQ(OneException(), "UnsupportedOperationException: offset < 0");
        EXPECT_EQ(simhost::CountCalls("REALLockObject"), 0u);
        EXPECT_EQ(Contents(block), Bytes(8, 0));
        // Without a known size only a named length does anything.
        Balanced([&] { kernel(foreign, 0, 0); });
        EXPECT_EQ(Bytes(memory, memory + 8), Bytes(8, 0));
        Balanced([&] { kernel(foreign, 4, 4); });
        EXPECT_NE(memory[7], 0);
        std::fill(memory, memory + 8, 0);
        Balanced([&] { kernel(memoryless, 0, 4); });
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(block);
    }
    simhost::Release(foreign);
    simhost::Release(memoryless);
}

TEST_F(ColourTest, TwelveBitSamplesKeepTheirTopEightBitsInPlace) {
    const Bytes packed{0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
    Bytes two = packed;
    two.insert(two.end(), {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xF0, 0x77});
    const struct { Bytes before; intptr_t width; Bytes after; } cases[] = {
        {packed, 1, {0xAB, 0xDE, 0x12, 0x45, 0x78, 0xAB, 0x78, 0x9A, 0xBC}},
        {packed, 0, packed},
        {two, 2, {0xAB, 0xDE, 0x12, 0x45, 0x78, 0xAB, 0x01, 0x34, 0x67, 0x9A, 0xCD, 0xFF, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xF0, 0x77}}};
    for (const auto &c : cases) {
        EXPECT_EQ(After(c.before, [&](REALobject b) { ConvertRGB12BitTo8BitQVT(b, c.width); }), c.after) << c.width;
    }
    Balanced([] { ConvertRGB12BitTo8BitQVT(nullptr, 3); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

}  // namespace
}  // namespace qvt
