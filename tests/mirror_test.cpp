// The three mirroring methods through their functions, against the plain
// reversals of bits and bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

#include "host_fixture.h"
#include "memory/mirror.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using Bytes = std::vector<uint8_t>;

class MirrorTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
    }
    simhost::Options options() const override {
        simhost::Options quiet;
        quiet.logCalls = false;
        return quiet;
    }
    // Runs `call` on a block holding `before` and gives back its bytes.
    template <typename Call>
    Bytes After(const Bytes &before, Call call) {
        REALobject block = simhost::NewBlock(before);
        Balanced([&] { call(block); });
        auto bytes = simhost::Bytes(block);
        Bytes after(bytes.begin(), bytes.end());
        simhost::Release(block);
        return after;
    }
};

Bytes RandomBytes(size_t count, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (auto &b : bytes) b = static_cast<uint8_t>(random());
    return bytes;
}

bool Bit(const Bytes &bytes, intptr_t k) { return bytes[k / 8] >> (7 - k % 8) & 1; }

// The plain rules: bits and bytes reversed one by one.
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

TEST_F(MirrorTest, BitMirrorTableReversesEachByteAndUndoesItself) {
    for (unsigned v = 0; v < 256; ++v) {
        EXPECT_EQ(BitMirrorTable[BitMirrorTable[v]], v);
        EXPECT_EQ(ReversedBits({static_cast<uint8_t>(v)}, 0, 8), Bytes{BitMirrorTable[v]});
    }
}

TEST_F(MirrorTest, MirrorBitsExchangesBitsAcrossAndWithinBytes) {
    const struct {
        Bytes before;
        intptr_t offset, length;
        Bytes after;
    } cases[] = {
        {{0x80}, 0, 8, {0x01}},
        {{0xC0}, 0, 3, {0x60}},
        {{0xAB, 0xCD}, 4, 8, {0xA3, 0xDD}},
        {{0x12, 0x34}, 0, 16, {0x2C, 0x48}},
        {{0x12, 0x34}, 0, 15, {0x58, 0x90}},
        {{0x40}, 1, 6, {0x02}},
        {{0x00, 0x01, 0x7F}, 15, 2, {0x00, 0x00, 0xFF}},
        {{0x5A}, 5, 1, {0x5A}},
        {{0x5A}, 5, 0, {0x5A}},
        {{0x5A}, 5, -3, {0x5A}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(After(c.before, [&](REALobject b) { MirrorBitsQVT(b, c.offset, c.length); }),
                  c.after)
            << c.offset << ", " << c.length;
    }
}

TEST_F(MirrorTest, MirrorBitsIsThePlainReversalAndItsOwnInverse) {
    const Bytes before = RandomBytes(8, 1);
    for (intptr_t offset = 0; offset < 17; ++offset) {
        for (intptr_t length = 1; offset + length <= 64; length += 3) {
            const Bytes once =
                After(before, [&](REALobject b) { MirrorBitsQVT(b, offset, length); });
            ASSERT_EQ(once, ReversedBits(before, offset, length)) << offset << ", " << length;
            EXPECT_EQ(After(once, [&](REALobject b) { MirrorBitsQVT(b, offset, length); }), before);
        }
    }
}

TEST_F(MirrorTest, WholeBytesOfBitsAreBytesThenBitsInBytes) {
    const Bytes before = RandomBytes(9, 2);
    for (intptr_t n = 1; n <= 9; ++n) {
        EXPECT_EQ(After(before, [&](REALobject b) { MirrorBitsQVT(b, 0, 8 * n); }),
                  After(before, [&](REALobject b) {
                      MirrorBytesQVT(b, 0, n);
                      MirrorBitsInBytesQVT(b, 0, n);
                  }));
    }
}

Bytes Count(uint8_t from, uint8_t to) {
    Bytes bytes;
    for (int v = from; v <= to; ++v) bytes.push_back(static_cast<uint8_t>(v));
    return bytes;
}

TEST_F(MirrorTest, MirrorBytesRanges) {
    const struct {
        Bytes before;
        intptr_t offset, length;
        Bytes after;
    } cases[] = {
        {{1, 2, 3, 4, 5}, 1, 3, {1, 4, 3, 2, 5}},
        {{1, 2, 3}, 0, 0, {1, 2, 3}},
        {{}, 0, -1, {}},
        {{1, 2, 3, 4, 5}, 2, -7, {1, 2, 5, 4, 3}},  // a positive offset takes the rest
        {{1, 2, 3}, 3, -1, {1, 2, 3}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(After(c.before, [&](REALobject b) { MirrorBytesQVT(b, c.offset, c.length); }),
                  c.after);
    }
    for (uint8_t n : {3, 4, 8, 12}) {
        Bytes reversed = Count(1, n);
        std::reverse(reversed.begin(), reversed.end());
        EXPECT_EQ(After(Count(1, n), [](REALobject b) { MirrorBytesQVT(b, 0, -1); }), reversed);
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
    const Bytes before = RandomBytes(160, 3);
    for (intptr_t offset : {0, 1, 3, 7, 8, 13}) {
        for (intptr_t length = 1; length <= 140; length += length < 70 ? 1 : 29) {
            Bytes expected = before;
            std::reverse(expected.begin() + offset, expected.begin() + offset + length);
            const Bytes once =
                After(before, [&](REALobject b) { MirrorBytesQVT(b, offset, length); });
            ASSERT_EQ(once, expected) << offset << ", " << length;
            EXPECT_EQ(After(once, [&](REALobject b) { MirrorBytesQVT(b, offset, length); }),
                      before);
        }
    }
}

TEST_F(MirrorTest, MirrorBitsInBytesMirrorsEachByteOfTheRange) {
    EXPECT_EQ(After({0x01, 0x12}, [](REALobject b) { MirrorBitsInBytesQVT(b, 0, 2); }),
              (Bytes{0x80, 0x48}));
    for (intptr_t length : {0, -1}) {
        EXPECT_EQ(After({0x01, 0x12}, [&](REALobject b) { MirrorBitsInBytesQVT(b, 0, length); }),
                  (Bytes{0x01, 0x12}));
    }
    const Bytes before = RandomBytes(20, 4);
    Bytes expected = before;
    for (intptr_t k = 3; k < 3 + 13; ++k) expected = ReversedBits(expected, 8 * k, 8);
    EXPECT_EQ(After(before, [](REALobject b) { MirrorBitsInBytesQVT(b, 3, 13); }), expected);
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
