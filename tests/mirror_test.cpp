// The three mirroring methods through their functions, against the plain
// reversals of bits and bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "kernel_fixture.h"
#include "memory/mirror.h"

namespace qvt {
namespace {

using test::Bytes;

class MirrorTest : public test::QuietKernelTest {
protected:
    // Whether mirroring [offset, offset + length) gives `expected` and, done
    // again, the bytes it started from.
    template <typename Mirror>
    void ExpectInvolution(Mirror mirror, const Bytes &before, intptr_t offset, intptr_t length,
                          const Bytes &expected) {
        auto call = [&](REALobject b) { mirror(b, offset, length); };
        const Bytes once = After(before, call);
        ASSERT_EQ(once, expected) << offset << ", " << length;
        EXPECT_EQ(After(once, call), before) << offset << ", " << length;
    }
};

bool Bit(const Bytes &bytes, intptr_t k) { return bytes[k / 8] >> (7 - k % 8) & 1; }

// The plain rule: bits reversed one by one.
Bytes ReversedBits(Bytes bytes, intptr_t offset, intptr_t length) {
    const Bytes before = bytes;
    for (intptr_t k = 0; k < length; ++k) {
        const intptr_t to = offset + k;
        const auto mask = static_cast<uint8_t>(0x80 >> to % 8);
        bytes[to / 8] =
            Bit(before, offset + length - 1 - k) ? bytes[to / 8] | mask : bytes[to / 8] & ~mask;
    }
    return bytes;
}

TEST_F(MirrorTest, MirrorBitsIsThePlainReversalAndItsOwnInverse) {
    // The reference pinned once, and lengths that do nothing.
    EXPECT_EQ(ReversedBits({0x12, 0x34}, 0, 15), (Bytes{0x58, 0x90}));
    for (intptr_t length : {0, -3}) {
        EXPECT_EQ(After({0x5A}, [&](REALobject b) { MirrorBitsQVT(b, 5, length); }), Bytes{0x5A});
    }
    std::mt19937 random(1);
    const Bytes before = test::RandomBytes(8, random);
    for (intptr_t offset = 0; offset < 17; ++offset) {
        for (intptr_t length = 1; offset + length <= 64; length += 3) {
            ExpectInvolution(&MirrorBitsQVT, before, offset, length,
                             ReversedBits(before, offset, length));
        }
    }
}

TEST_F(MirrorTest, MirrorBytesRanges) {
    const struct {
        Bytes before;
        intptr_t offset, length;
        Bytes after;
    } cases[] = {
        {{1, 2, 3}, 0, 0, {1, 2, 3}},
        {{}, 0, -1, {}},
        {{1, 2, 3, 4, 5}, 0, -1, {5, 4, 3, 2, 1}},
        {{1, 2, 3, 4, 5}, 2, -7, {1, 2, 5, 4, 3}},  // a positive offset takes the rest
        {{1, 2, 3}, 3, -1, {1, 2, 3}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(After(c.before, [&](REALobject b) { MirrorBytesQVT(b, c.offset, c.length); }),
                  c.after);
    }
}

TEST_F(MirrorTest, MirrorBytesOfUnknownSizeDoesNothingByDefault) {
    uint8_t memory[4] = {1, 2, 3, 4};
    REALobject block = simhost::NewForeignBlock(memory);
    Balanced([&] { MirrorBytesQVT(block, 0, -1); });
    Balanced([&] { MirrorBytesQVT(block, 1, -1); });
    EXPECT_EQ(Bytes(memory, memory + 4), (Bytes{1, 2, 3, 4}));
    Balanced([&] { MirrorBytesQVT(block, 0, 4); });
    EXPECT_EQ(Bytes(memory, memory + 4), (Bytes{4, 3, 2, 1}));
    simhost::Release(block);
}

// Word exchanges begin at 16 bytes; lengths around every multiple of 8 and
// odd offsets leave the words unaligned.
TEST_F(MirrorTest, MirrorBytesIsThePlainReversalAndItsOwnInverse) {
    std::mt19937 random(3);
    const Bytes before = test::RandomBytes(160, random);
    for (intptr_t offset : {0, 1, 3, 7, 8, 13}) {
        for (intptr_t length = 1; length <= 140; length += length < 70 ? 1 : 29) {
            Bytes expected = before;
            std::reverse(expected.begin() + offset, expected.begin() + offset + length);
            ExpectInvolution(&MirrorBytesQVT, before, offset, length, expected);
        }
    }
}

// Every byte value, at odd offsets and over lengths around each vector
// width, against the bit-by-bit rule.
TEST_F(MirrorTest, MirrorBitsInBytesMirrorsEachByteOfTheRange) {
    for (intptr_t length : {0, -1}) {
        EXPECT_EQ(After({0x01, 0x12}, [&](REALobject b) { MirrorBitsInBytesQVT(b, 0, length); }),
                  (Bytes{0x01, 0x12}));
    }
    std::mt19937 random(4);
    Bytes before = test::RandomBytes(300, random);
    for (unsigned v = 0; v < 256; ++v) before[v + 3] = static_cast<uint8_t>(v);
    const intptr_t lengths[] = {1, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 128, 129, 269};
    for (intptr_t offset : {0, 1, 3, 31}) {
        for (intptr_t length : lengths) {
            if (offset + length > 300) continue;
            Bytes expected = before;
            for (intptr_t k = offset; k < offset + length; ++k) {
                expected = ReversedBits(expected, 8 * k, 8);
            }
            ExpectInvolution(&MirrorBitsInBytesQVT, before, offset, length, expected);
        }
    }
}

TEST_F(MirrorTest, NilReceiverRaisesAndChangesNothing) {
    using Call = std::function<void(REALobject, intptr_t)>;
    const Call calls[] = {
        [](REALobject b, intptr_t n) { MirrorBitsQVT(b, 0, n); },
        [](REALobject b, intptr_t n) { MirrorBytesQVT(b, 0, n); },
        [](REALobject b, intptr_t n) { MirrorBitsInBytesQVT(b, 0, n); },
    };
    REALobject memoryless = simhost::NewMemorylessBlock();
    for (const Call &call : calls) {
        Balanced([&] { call(nullptr, 1); });
        EXPECT_EQ(OneException(), "NilObjectException: memoryblock is nil");
        // Without memory but with nothing to do: no raise and no access.
        Balanced([&] { call(memoryless, 0); });
        EXPECT_TRUE(simhost::TakeExceptions().empty());
    }
    Balanced([&] { MirrorBytesQVT(memoryless, 0, -1); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(memoryless);
}

}  // namespace
}  // namespace qvt
