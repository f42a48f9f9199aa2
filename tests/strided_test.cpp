// Strided copies of bytes and bits, and bit expansion, through their
// functions, against literal transcriptions of their rules.
#include <gtest/gtest.h>

#include <random>

#include "kernel_fixture.h"
#include "memory/strided.h"

namespace qvt {
namespace {

using test::Bytes;
using test::RandomBytes;

class StridedTest : public test::QuietKernelTest {};

// ---- Byte runs -------------------------------------------------------------

struct Stride {
    intptr_t from, to, count, step, steps;
};

// The plain byte loop, step after step, on raw memory.
void CopyNthBytesReference(const uint8_t *source, uint8_t *dest, const Stride &s) {
    for (intptr_t step = 0; step < s.steps; ++step) {
        for (intptr_t i = 0; i < s.count; ++i) {
            dest[s.to + step * s.count + i] = source[s.from + step * s.step + i];
        }
    }
}

// ---- Bit runs ---------------------------------------------------------------

// The reader and writer of the rule, bit by bit, on raw memory.
void CopyNthBitsReference(const uint8_t *source, uint8_t *dest, const Stride &s) {
    const uint8_t *in = source + s.from / 8;
    unsigned current = *in;
    int readPosition = static_cast<int>(7 - s.from % 8);
    uint8_t *out = dest + s.to / 8;
    int writePosition = static_cast<int>(7 - s.to % 8);
    unsigned accumulator = 0;
    auto next = [&] {
        if (readPosition == -1) {
            current = *++in;
            readPosition = 7;
        }
        return (current >> readPosition--) & 1;
    };
    for (intptr_t step = 0; step < s.steps; ++step) {
        for (intptr_t i = 0; i < s.count; ++i) {
            accumulator |= next() << writePosition--;
            if (writePosition == -1) {
                *out++ = static_cast<uint8_t>(accumulator);
                writePosition = 7;
                accumulator = 0;
            }
        }
        for (intptr_t i = 0; i < s.step; ++i) next();
    }
    if (writePosition != 7) *out = static_cast<uint8_t>(accumulator);
}

TEST_F(StridedTest, BitReferenceWritesWholeBytesOfCopiedBits) {
    const struct { Bytes source; Stride s; Bytes before, after; } cases[] = {
        {{0xF0, 0xF0}, {0, 0, 1, 3, 4}, {0xFF, 0xFF}, {0xA0, 0xFF}},
        {{0x12, 0x34, 0x56, 0x78}, {4, 0, 4, 4, 3}, {0xFF, 0xFF}, {0x24, 0x60}},
        {{0xC0, 0xFF}, {0, 8, 2, -5, 2}, {0xFF, 0xFF}, {0xFF, 0xC0}},
        // Nothing copied at an unaligned offset still stores the empty byte.
        {{0xC0}, {0, 12, 4, 0, 0}, {0xFF, 0xFF}, {0xFF, 0x00}},
    };
    // The function is held to this reference below.
    for (const auto &c : cases) {
        Bytes dest = c.before;
        CopyNthBitsReference(c.source.data(), dest.data(), c.s);
        EXPECT_EQ(dest, c.after) << c.s.from << " " << c.s.to;
    }
}

using Copy = bool (*)(REALobject, REALobject, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t);

// Separate blocks, and one block as both source and receiver: later runs
// read what earlier ones wrote, byte runs that overlap their destination go
// ascending, and the bit reader enters bytes the writer has already stored.
// Runs of several bytes, gaps longer than a byte; negative counts copy nothing.
TEST_F(StridedTest, CopiesAreThePlainRuleEvenOnOneBlock) {
    std::mt19937 random(5);
    const Bytes before = RandomBytes(256, random);
    auto draw = [&](intptr_t low, intptr_t span) {
        return low + static_cast<intptr_t>(random() % static_cast<unsigned>(span));
    };
    const struct {
        Copy copy;
        void (*reference)(const uint8_t *, uint8_t *, const Stride &);
        Stride low, span;  // each field drawn from [low, low + span)
    } families[] = {
        {&CopyNthBytesQVT, &CopyNthBytesReference, {80, 0, -2, -4, -1}, {40, 40, 22, 15, 7}},
        {&CopyNthBitsQVT, &CopyNthBitsReference, {0, 0, -2, -2, 0}, {40, 40, 30, 30, 5}},
    };
    for (const auto &f : families) {
        for (int round = 0; round < 2000; ++round) {
            const bool oneBlock = round % 2;
            const Stride &l = f.low, &n = f.span;
            const Stride s{draw(l.from, n.from), draw(l.to, n.to), draw(l.count, n.count),
                           draw(l.step, n.step), draw(l.steps, n.steps)};
            Bytes expectedSource = before, expectedDest = before;
            f.reference(expectedSource.data(), oneBlock ? expectedSource.data() : expectedDest.data(), s);
            REALobject source = simhost::NewBlock(before);
            REALobject dest = oneBlock ? source : simhost::NewBlock(before);
            EXPECT_TRUE(Balanced([&] { return f.copy(dest, source, s.from, s.to, s.count, s.step, s.steps); }));
            ASSERT_EQ(Contents(source), expectedSource)
                << s.from << " " << s.to << " " << s.count << " " << s.step << " " << s.steps;
            if (!oneBlock) {
                ASSERT_EQ(Contents(dest), expectedDest);
                simhost::Release(dest);
            }
            simhost::Release(source);
        }
    }
}

// Long runs take the gathers and the bit tables: every fixed width and step,
// others, sizes around the vector widths, odd offsets, apart and on one
// block (where ranges may overlap).
TEST_F(StridedTest, LongCopiesAreThePlainRule) {
    std::mt19937 random(11);
    const Bytes before = RandomBytes(8192, random);
    const struct {
        Copy copy;
        void (*reference)(const uint8_t *, uint8_t *, const Stride &);
        std::vector<std::pair<intptr_t, intptr_t>> shapes;  // count, step
        std::vector<intptr_t> steps;
    } families[] = {
        {&CopyNthBytesQVT, &CopyNthBytesReference,
         {{1, 2}, {1, 3}, {2, 3}, {1, 4}, {2, 4}, {3, 4}, {3, 6}, {4, 8}, {3, 3}, {5, 7}, {8, 9}, {4, 5}, {2, -3}, {3, 0}, {4, 2},
          {1, 5}, {2, 7}, {4, 13}, {1, -13}, {2, -5}, {4, -9}, {6, 11}, {7, 13}, {10, 13}},
         {1, 7, 8, 31, 32, 33, 65, 200, 511}},
        {&CopyNthBitsQVT, &CopyNthBitsReference,
         {{1, 1}, {1, 3}, {2, 2}, {3, 1}, {1, 7}, {5, 3}, {7, 1}, {4, 4}, {2, 5}, {3, 0}},
         {1, 63, 64, 65, 127, 128, 129, 1000, 4001}},
    };
    for (const auto &f : families) {
        for (const auto &[count, step] : f.shapes) {
            for (intptr_t steps : f.steps) {
                const bool oneBlock = random() % 2;
                const intptr_t unit = f.copy == &CopyNthBitsQVT ? 8 : 1;
                const intptr_t from = static_cast<intptr_t>(random() % (1500 * unit)) + (step < 0 ? -step * (steps - 1) : 0);
                const intptr_t to = static_cast<intptr_t>(random() % (3000 * unit));
                const Stride s{from, to, count, step, steps};
                Bytes expectedSource = before, expectedDest = before;
                f.reference(expectedSource.data(), oneBlock ? expectedSource.data() : expectedDest.data(), s);
                REALobject source = simhost::NewBlock(before);
                REALobject dest = oneBlock ? source : simhost::NewBlock(before);
                EXPECT_TRUE(Balanced([&] { return f.copy(dest, source, s.from, s.to, s.count, s.step, s.steps); }));
                ASSERT_EQ(Contents(source), expectedSource) << s.from << " " << s.to << " " << count << " " << step << " " << steps;
                if (!oneBlock) {
                    ASSERT_EQ(Contents(dest), expectedDest) << s.from << " " << s.to << " " << count << " " << step << " " << steps;
                    simhost::Release(dest);
                }
                simhost::Release(source);
            }
        }
    }
}

TEST_F(StridedTest, CopyingFromOrToNilRaisesAndCopiesNothing) {
    REALobject block = simhost::NewBlock(Bytes{1, 2});
    for (Copy copy : {&CopyNthBytesQVT, &CopyNthBitsQVT}) {
        for (const auto &sides : {std::pair<REALobject, REALobject>{block, nullptr}, {nullptr, block}, {nullptr, nullptr}}) {
            EXPECT_FALSE(Balanced([&] { return copy(sides.first, sides.second, 0, 1, 1, 1, 1); }));
            EXPECT_EQ(OneException(), "NilObjectException: memoryblock is nil");
        }
    }
    // Nothing asked for: a source without memory is not read.
    REALobject memoryless = simhost::NewMemorylessBlock();
    EXPECT_TRUE(Balanced([&] { return CopyNthBitsQVT(block, memoryless, 0, 8, 1, 1, 0); }));
    EXPECT_TRUE(Balanced([&] { return CopyNthBytesQVT(block, memoryless, 0, 0, 1, 1, 0); }));
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    EXPECT_EQ(Contents(block), (Bytes{1, 2}));
    for (REALobject b : {memoryless, block}) simhost::Release(b);
}

// ---- Bit expansion ----------------------------------------------------------

// Each group of four destination bytes as one 32-bit number, low byte first.
Bytes ExpandReference(const Bytes &source, intptr_t count, intptr_t low, intptr_t high,
                      size_t destSize, uint8_t fill) {
    Bytes dest(destSize, fill);
    for (intptr_t b = 0; b < (count + 3) / 4 * 4; ++b) {
        for (int half = 0; half < 2; ++half) {
            uint32_t word = 0;
            for (int k = 0; k < 4; ++k) {
                const bool set = source[b] >> (7 - 4 * half - k) & 1;
                word |= static_cast<uint32_t>(set ? high : low) << (8 * k);
            }
            for (int k = 0; k < 4; ++k) dest[8 * b + 4 * half + k] = static_cast<uint8_t>(word >> 8 * k);
        }
    }
    return dest;
}

TEST_F(StridedTest, ExpandBitsExpandsWholeGroupsOfFourSourceBytes) {
    // The first source byte, as the reference expands it.
    const struct { uint8_t first; intptr_t low, high; Bytes expanded; } worked[] = {
        {0xA5, 7, 9, {9, 7, 9, 7, 7, 9, 7, 9}},
        {0xC0, 0, 0x1FF, {0xFF, 0xFF, 0x01, 0, 0, 0, 0, 0}},
        {0x01, 0, 0x12345678, {0, 0, 0, 0, 0, 0, 0, 0x78}},
    };
    for (const auto &w : worked) {
        const Bytes all = ExpandReference({w.first, 0, 0, 0}, 1, w.low, w.high, 32, 0xEE);
        EXPECT_EQ(Bytes(all.begin(), all.begin() + 8), w.expanded);
    }
    std::mt19937 random(7);
    const Bytes source = RandomBytes(144, random);
    const intptr_t values[] = {0, 255, 7, 0x1FF, -2, 0x12345678};
    // Values within a byte and others; sizes around the vector widths.
    const intptr_t counts[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 31, 32, 33, 63, 64, 65, 97, 129, 140};
    // The last rounds spill at every count.
    for (std::size_t round = 0; round < 4 * std::size(counts); ++round) {
        const intptr_t count = counts[round % std::size(counts)];
        intptr_t low = values[random() % (round < std::size(counts) ? 3 : 6)], high = values[random() % 6];
        if (round >= 3 * std::size(counts)) low = -2, high = 0x1FF;
        REALobject from = simhost::NewBlock(source);
        REALobject dest = simhost::NewBlock(Bytes(8 * 144 + 8, 0xEE));
        EXPECT_TRUE(Balanced([&] { return ExpandBitsQVT(from, dest, count, low, high); }));
        EXPECT_EQ(Contents(dest), ExpandReference(source, count, low, high, 8 * 144 + 8, 0xEE))
            << count << " " << low << " " << high;
        for (REALobject block : {from, dest}) simhost::Release(block);
    }
}

TEST_F(StridedTest, ExpandBitsRefusesUnusableArgumentsWithoutRaising) {
    REALobject source = simhost::NewBlock(Bytes(4, 0xFF));
    REALobject dest = simhost::NewBlock(Bytes(32, 0xEE));
    REALobject memoryless = simhost::NewMemorylessBlock();
    const struct { REALobject from, to; intptr_t count; } cases[] = {
        {source, dest, 0},    {source, dest, -4},    {nullptr, dest, 1},
        {source, nullptr, 1}, {memoryless, dest, 1}, {source, memoryless, 1},
    };
    for (const auto &c : cases) EXPECT_FALSE(Balanced([&] { return ExpandBitsQVT(c.from, c.to, c.count, 0, 255); }));
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    EXPECT_EQ(Contents(dest), Bytes(32, 0xEE));
    for (REALobject block : {source, dest, memoryless}) simhost::Release(block);
}

}  // namespace
}  // namespace qvt
