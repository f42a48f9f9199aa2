// The six bit methods through their functions, on blocks of the simulated host.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "kernel_fixture.h"
#include "memory/bits.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using test::Bytes;
using BitsTest = test::KernelTest;

using Write = std::function<void(REALobject, uint64_t)>;

const Write kSetOne = [](REALobject b, uint64_t bit) { SetBitQVT(b, bit); };
const Write kSetTrue = [](REALobject b, uint64_t bit) { SetBitQVT(b, bit, true); };
const Write kSetFalse = [](REALobject b, uint64_t bit) { SetBitQVT(b, bit, false); };
const Write kClear = [](REALobject b, uint64_t bit) { ClearBitQVT(b, bit); };
Write SetValue(intptr_t value) {
    return [value](REALobject b, uint64_t bit) { SetBitQVT(b, bit, value); };
}

TEST_F(BitsTest, WritesChangeExactlyTheNamedBits) {
    const struct {
        Bytes before;
        Write write;
        uint64_t bit;
        Bytes after;
    } cases[] = {
        {{0x00, 0x00}, kSetOne, 9, {0x00, 0x40}},
        {{0x00, 0x40}, kClear, 9, {0x00, 0x00}},
        {{0x00}, SetValue(1), 0, {0x80}},
        {{0x00}, SetValue(3), 7, {0x03}},
        {{0x00}, SetValue(3), 0, {0x80}},  // the upper bit of Value falls off the byte
        {{0x02}, SetValue(2), 6, {0x04}},  // named bit cleared, the one above set
        {{0x00}, SetValue(-1), 5, {0xFC}},
        {{0xFF}, SetValue(0), 3, {0xEF}},
        {{0x00, 0x00}, kSetTrue, 15, {0x00, 0x01}},
        {{0xFF, 0xFF}, kSetFalse, 8, {0xFF, 0x7F}},
        {{0xFF}, kClear, 0, {0x7F}},
    };
    for (const auto &c : cases) {
        REALobject block = simhost::NewBlock(c.before);
        Balanced([&] { c.write(block, c.bit); });
        EXPECT_EQ(Contents(block), c.after) << "bit " << c.bit;
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(block);
    }
}

TEST_F(BitsTest, ReadsFollowTheBitNumbering) {
    const struct {
        uint8_t byte;
        uint64_t bit;
        intptr_t value;
    } cases[] = {{0x80, 0, 1}, {0x80, 7, 0}, {0x01, 0, 0}, {0x01, 7, 1}, {0x10, 3, 1}, {0x10, 4, 0}};
    for (const auto &c : cases) {
        REALobject block = simhost::NewBlock(Bytes{0x00, c.byte});
        EXPECT_EQ(Balanced([&] { return GetBitQVT(block, 8 + c.bit); }), c.value);
        EXPECT_EQ(Balanced([&] { return IsBitSetQVT(block, 8 + c.bit); }), c.value == 1);
        simhost::Release(block);
    }
}

const char *const kTooBig80 =
    "OutOfBoundsException: The parameter Bit to method %s is too big. Range is 0 to 79, but "
    "value is %s.";

std::string Text(const char *format, const char *method, const char *value) {
    char text[256];
    std::snprintf(text, sizeof text, format, method, value);
    return text;
}

TEST_F(BitsTest, OutOfRangeBitsRaiseUnderTheWorkingRoutinesName) {
    using Call = std::function<void(REALobject, uint64_t)>;
    const struct {
        Call call;
        const char *method;
    } methods[] = {
        {[](REALobject b, uint64_t bit) { GetBitQVT(b, bit); }, "GetBitQVT"},
        {[](REALobject b, uint64_t bit) { IsBitSetQVT(b, bit); }, "GetBitQVT"},
        {SetValue(1), "SetBitQVT"},
        {kSetOne, "SetBitQVT"},
        {kSetTrue, "SetBitQVT"},
        {kClear, "SetBitQVT"},
    };
    const struct {
        uint64_t bit;
        const char *format;
        const char *value;
    } bits[] = {
        {80, kTooBig80, "80"},
        {4294967296, kTooBig80, "4294967296"},
        {UINT64_MAX,
         "OutOfBoundsException: The parameter Bit to method %s is too small. Range is 0 to 79, "
         "but value is %s.",
         "-1"},
    };
    for (const auto &m : methods) {
        for (const auto &b : bits) {
            REALobject block = simhost::NewBlock(Bytes(10, 0x5A));
            Balanced([&] { m.call(block, b.bit); });
            EXPECT_EQ(OneException(), Text(b.format, m.method, b.value));
            EXPECT_EQ(Contents(block), Bytes(10, 0x5A));
            simhost::Release(block);
        }
    }
}

TEST_F(BitsTest, NilBlocksAndBlocksWithoutMemoryRaiseNilObject) {
    REALobject memoryless = simhost::NewMemorylessBlock();
    for (REALobject block : {static_cast<REALobject>(nullptr), memoryless}) {
        EXPECT_EQ(Balanced([&] { return GetBitQVT(block, 0); }), 0);
        EXPECT_EQ(OneException(), "NilObjectException: Memoryblock is nil?");
        EXPECT_FALSE(Balanced([&] { return IsBitSetQVT(block, 0); }));
        EXPECT_EQ(OneException(), "NilObjectException: Memoryblock is nil?");
        for (const Write &write : {SetValue(1), kSetOne, kSetTrue, kSetFalse, kClear}) {
            Balanced([&] { write(block, 0); });
            EXPECT_EQ(OneException(), "NilObjectException: Memoryblock is nil?");
        }
    }
    simhost::Release(memoryless);
}

TEST_F(BitsTest, BlocksOfUnknownSizeAreNotBoundsChecked) {
    uint8_t memory[16] = {};
    memory[12] = 0x20;
    REALobject block = simhost::NewForeignBlock(memory);
    EXPECT_EQ(Balanced([&] { return GetBitQVT(block, 12 * 8 + 2); }), 1);
    Balanced([&] { SetBitQVT(block, 15 * 8 + 7); });
    EXPECT_EQ(memory[15], 0x01);
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
}

TEST_F(BitsTest, LastBitOfTheBlockIsReachable) {
    REALobject block = simhost::NewBlock(Bytes(10, 0));
    Balanced([&] { SetBitQVT(block, 79); });
    EXPECT_EQ(Balanced([&] { return GetBitQVT(block, 79); }), 1);
    EXPECT_EQ(Contents(block)[9], 0x01);
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
}

}  // namespace
}  // namespace qvt
