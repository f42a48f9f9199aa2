// The colour kernels: tolerance limits, channel sums, the pixel range, the
// refusals, and 12-bit packing in place.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <random>

#include "kernel_fixture.h"
#include "kernels/colour.h"

namespace qvt {
namespace {

using test::Bytes;

class ColourTest : public test::KernelTest {};
class ColourDifferentialTest : public test::QuietKernelTest {};

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

// ---- Against literal transcriptions of the rules -----------------------------

struct Range {
    intptr_t offset, length;
};

// The pixels a range covers, from the block's size when the length isn't positive.
std::size_t PixelCount(std::size_t size, Range r) {
    const intptr_t bytes = r.length > 0 ? r.length : static_cast<intptr_t>(size) - r.offset;
    return bytes > 0 ? (static_cast<std::size_t>(bytes) + 3) / 4 : 0;
}

void Calc3teReference(Bytes &b, const intptr_t (&source)[4], const intptr_t (&dest)[4], double tolerance, Range r) {
    int32_t upper[4], lower[4];
    for (int c = 0; c < 4; ++c) {
        upper[c] = static_cast<int32_t>(static_cast<double>(source[c]) * (1.0 + tolerance));
        lower[c] = static_cast<int32_t>(static_cast<double>(source[c]) * (1.0 - tolerance));
    }
    for (std::size_t i = 0; i < PixelCount(b.size(), r); ++i) {
        uint8_t *p = b.data() + r.offset + 4 * i;
        bool matches = true;
        for (int c = 0; c < 4; ++c) matches = matches && p[c] >= lower[c] && p[c] <= upper[c];
        if (matches) {
            for (int c = 0; c < 4; ++c) p[c] = static_cast<uint8_t>(dest[c]);
        }
    }
}

void Calc2teReference(Bytes &b, int channels, intptr_t byteMax, bool withSum0, Range r) {
    for (std::size_t i = 0; i < PixelCount(b.size(), r); ++i) {
        uint8_t *p = b.data() + r.offset + 4 * i;
        intptr_t sum = 0;
        for (int c = 0; c < channels; ++c) sum += p[c];
        if (sum >= byteMax || (withSum0 && sum == 0)) {
            p[3] = 0;
        } else if (byteMax - sum >= 255) {
            p[3] = 255;
        } else {
            p[3] = static_cast<uint8_t>(byteMax - sum);
        }
    }
}

// Pixel counts around the vector widths, at every alignment; pixels near
// the source colour so that limits are met and missed, and small channels
// for sums of 0.
TEST_F(ColourDifferentialTest, PixelKernelsAreTheRules) {
    std::mt19937 random(13);
    const Range ranges[] = {{0, 0}, {1, 4 * 7 + 1}, {2, 4 * 8}, {3, 4 * 9 - 2}, {5, 4 * 16}, {6, 4 * 33}, {7, 4 * 100 + 3}, {8, 0}};
    const double tolerances[] = {0.0, 0.1, 0.25, -0.1, 1.0, 3.5, 0.003};
    const intptr_t sources[] = {0, 1, 9, 100, 128, 200, 254, 255, 256, 400, -3, 1000};
    const intptr_t byteMaxes[] = {-7, -1, 0, 1, 2, 100, 254, 255, 256, 300, 509, 510, 764, 765, 766, 1019, 1020, 1021, 1275, 1276, 2000, 2001, 1000000};
    for (int round = 0; round < 200; ++round) {
        const Range r = ranges[round % std::size(ranges)];
        Bytes before(4 * 110, 0);
        intptr_t source[4], dest[4];
        for (auto &v : source) v = sources[random() % std::size(sources)];
        for (auto &v : dest) v = static_cast<intptr_t>(random() % 600) - 100;
        const int spread = 1 << (random() % 8);
        for (std::size_t i = 0; i < before.size(); ++i) {
            const auto near = static_cast<int>(source[i % 4]) + static_cast<int>(random() % (2 * spread + 1)) - spread;
            before[i] = static_cast<uint8_t>(round % 3 == 0 ? random() % (spread + 1) : std::clamp(near, 0, 255));
        }
        const double tolerance = tolerances[random() % std::size(tolerances)];
        Bytes expected = before;
        Calc3teReference(expected, source, dest, tolerance, r);
        EXPECT_EQ(After(before, [&](REALobject b) {
                      Calc3te(b, source[0], source[1], source[2], source[3], dest[0], dest[1], dest[2], dest[3], tolerance, r.offset, r.length);
                  }),
                  expected)
            << round << " " << source[0] << " " << source[1] << " " << source[2] << " " << source[3] << " " << tolerance;
        for (int channels : {3, 4}) {
            const intptr_t byteMax = byteMaxes[random() % std::size(byteMaxes)];
            const bool withSum0 = random() % 2;
            Bytes expectedInks = before;
            Calc2teReference(expectedInks, channels, byteMax, withSum0, r);
            const auto kernel = channels == 3 ? &Calc2teCMY : &Calc2teCMYK;
            EXPECT_EQ(After(before, [&](REALobject b) { kernel(b, byteMax, r.offset, r.length, withSum0); }), expectedInks)
                << round << " " << channels << " " << byteMax << " " << withSum0;
        }
    }
}

// Widths from the first groups, which go one at a time, to long runs, and
// around every shuffle step's end, each in a block that ends with its last
// step or a few bytes later; the method, and each way of packing groups
// that this processor has, on its own, give the step loop's bytes.
TEST_F(ColourDifferentialTest, TwelveBitPackingIsTheStepLoop) {
    std::mt19937 random(17);
    std::vector<intptr_t> widths{64, 100, 333, 1000, 1001, 1002};
    for (intptr_t width = 1; width <= 40; ++width) widths.push_back(width);
    for (intptr_t width : widths) {
        const auto groups = 3 * static_cast<std::size_t>(width);
        const Bytes before = test::RandomBytes(3 * groups + (width % 2 == 0 ? 0 : 7), random);
        Bytes expected = before;
        for (std::size_t g = 0; g < groups; ++g) {
            const uint8_t b0 = expected[3 * g], b1 = expected[3 * g + 1], b2 = expected[3 * g + 2];
            expected[2 * g] = b0;
            expected[2 * g + 1] = static_cast<uint8_t>((b1 << 4) | (b2 >> 4));
        }
        EXPECT_EQ(After(before, [&](REALobject b) { ConvertRGB12BitTo8BitQVT(b, width); }), expected) << width;
        for (const kernels::GroupPacker &packer : kernels::GroupPackers()) {
            if (!packer.usable()) continue;
            Bytes packed = before;
            const std::size_t done = packer.pack(packed.data(), groups);
            EXPECT_LE(done, groups);
            Bytes partly = before;
            std::copy_n(expected.begin(), 2 * done, partly.begin());
            EXPECT_EQ(packed, partly) << width << " packer " << (&packer - kernels::GroupPackers().data());
        }
    }
}

}  // namespace
}  // namespace qvt
