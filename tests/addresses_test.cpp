// Addresses, four-character codes and fixed strings on a block of six bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <optional>
#include <string>
#include <vector>

#include "kernel_fixture.h"
#include "memory/addresses.h"

namespace qvt {
namespace {

using test::Bytes;
const Bytes kSix{1, 2, 3, 4, 5, 6};

// A code's bytes in memory, given as a little-endian machine holds them.
Bytes InMemory(Bytes littleEndian) {
    if constexpr (std::endian::native == std::endian::big) {
        std::reverse(littleEndian.begin(), littleEndian.end());
    }
    return littleEndian;
}

Bytes Join(Bytes head, const Bytes &tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

// "abcd" as its code lies in memory.
const Bytes kCode = InMemory({0x64, 0x63, 0x62, 0x61});

class AddressesTest : public test::KernelTest {
protected:
    void SetUp() override {
        KernelTest::SetUp();
        block = simhost::NewBlock(kSix);
    }
    void TearDown() override {
        // Ending the block checks its guard bytes: nothing written past it.
        simhost::Release(block);
        KernelTest::TearDown();
    }
    // A returned string's bytes, or nullopt for nil; the string is given back.
    static std::optional<Bytes> Taken(REALstring string) {
        if (!string) return std::nullopt;
        const std::string bytes = simhost::StringBytes(string);
        simhost::Release(string);
        return Bytes(bytes.begin(), bytes.end());
    }

    REALobject block = nullptr;
};

TEST_F(AddressesTest, AddressesReachOnePastTheEndAndNoFurther) {
    const auto base = reinterpret_cast<uintptr_t>(simhost::Bytes(block).data());
    const struct {
        int64_t offset;
        uintptr_t address;
    } cases[] = {{0, base}, {3, base + 3}, {6, base + 6}, {7, 0}, {-1, 0}, {INT64_MIN, 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(Balanced([&] { return AddressQVT(block, c.offset); }), c.address) << c.offset;
        EXPECT_EQ(Balanced([&] { return AddressPtrQVT(block, c.offset); }),
                  reinterpret_cast<void *>(c.address)) << c.offset;
    }
    // A size the host doesn't know bounds nothing.
    uint8_t memory[4] = {};
    REALobject foreign = simhost::NewForeignBlock(memory);
    const auto beyond = reinterpret_cast<uintptr_t>(memory) + 100;
    EXPECT_EQ(AddressPtrQVT(foreign, 100), reinterpret_cast<void *>(beyond));
    simhost::Release(foreign);
}

// Codes read four bytes, first character highest; strings clip to the block
// and keep every byte, labelled ASCII only when they are.
TEST_F(AddressesTest, ReadingFormsTakeTheBytesInTheBlock) {
    const Bytes text{'a', 0, 'b', 0xE4};
    const struct {
        Bytes block;
        intptr_t offset, numBytes;  // numBytes < 0: the code
        std::optional<Bytes> string;
        uint32_t encoding;
    } cases[] = {
        {kSix, 2, -1, InMemory({6, 5, 4, 3}), hostabi::kEncodingASCII},
        {kSix, 3, -1, std::nullopt, 0},
        {kSix, -1, -1, std::nullopt, 0},
        {kCode, 0, -1, Bytes{'a', 'b', 'c', 'd'}, hostabi::kEncodingASCII},
        {InMemory({0x64, 0x63, 0xE4, 0x61}), 0, -1, Bytes{'a', 0xE4, 'c', 'd'}, hostabi::kEncodingMacRoman},
        // A zero byte does not end the code.
        {InMemory({0x64, 0x00, 0x62, 0x61}), 0, -1, Bytes{'a', 'b', 0, 'd'}, hostabi::kEncodingASCII},
        {kSix, 1, 3, Bytes{2, 3, 4}, hostabi::kEncodingASCII},
        {kSix, 4, 100, Bytes{5, 6}, hostabi::kEncodingASCII},
        {kSix, 0, 6, kSix, hostabi::kEncodingASCII},
        {kSix, 6, 1, std::nullopt, 0},
        {kSix, 0, 0, std::nullopt, 0},
        {kSix, -1, 1, std::nullopt, 0},
        {text, 0, 3, Bytes{'a', 0, 'b'}, hostabi::kEncodingASCII},
        {text, 0, 4, text, hostabi::kEncodingUnknown},
    };
    for (const auto &c : cases) {
        REALobject source = simhost::NewBlock(c.block);
        REALstring read = Balanced([&] {
            return c.numBytes < 0 ? OSTypeQVT(source, c.offset) : GetStringQVT(source, c.offset, c.numBytes);
        });
        if (read) {
            EXPECT_EQ(simhost::StringEncoding(read), c.encoding) << c.offset << ", " << c.numBytes;
        }
        EXPECT_EQ(Taken(read), c.string) << c.offset << ", " << c.numBytes;
        simhost::Release(source);
    }
    EXPECT_EQ(Taken(GetStringQVT(block, 0, -1)), std::nullopt);
}

// A code takes four bytes, padded with spaces; a string writes what fits.
TEST_F(AddressesTest, AssignmentsFitOrChangeNothing) {
    const Bytes spaces = Join({0x20, 0x20, 0x20, 0x20}, {5, 6});
    // code: OSTypeQVT, else SetStringQVT; text: nullopt for a nil string.
    const struct { bool code; std::optional<std::string> text; intptr_t offset; Bytes after; } cases[] = {
        {true, "abcd", 0, Join(kCode, {5, 6})},
        {true, "abcdefg", 0, Join(kCode, {5, 6})},
        {true, "abcd", 2, Join({1, 2}, kCode)},
        {true, "", 0, spaces},
        {true, std::nullopt, 0, spaces},
        {true, "abcd", 3, kSix},
        {true, "abcd", -1, kSix},
        {false, "xyz", 1, {1, 'x', 'y', 'z', 5, 6}},
        {false, "xyz", 5, {1, 2, 3, 4, 5, 'x'}},
        {false, "xyz", 6, kSix},
        {false, "xyz", -1, kSix},
        {false, std::nullopt, 0, kSix},
        {false, std::string("\0\xE4", 2), 2, {1, 2, 0, 0xE4, 5, 6}},
    };
    for (const auto &c : cases) {
        std::copy(kSix.begin(), kSix.end(), simhost::Bytes(block).begin());
        REALstring value =
            c.text ? simhost::NewString(*c.text, hostabi::kEncodingLatin1) : nullptr;
        Balanced([&] {
            c.code ? OSTypeQVT(block, c.offset, value) : SetStringQVT(block, value, c.offset);
        });
        EXPECT_EQ(Contents(block), c.after) << c.code << " " << c.text.value_or("nil") << " at " << c.offset;
        if (value) simhost::Release(value);
    }
    EXPECT_EQ(simhost::OpenStringData(), 0u);
}

TEST_F(AddressesTest, BlocksOfUnknownSizeTakeExactlyTheBytesAsked) {
    uint8_t memory[12] = {};
    std::copy(kCode.begin(), kCode.end(), memory + 8);
    REALobject foreign = simhost::NewForeignBlock(memory);
    EXPECT_EQ(Taken(OSTypeQVT(foreign, 8)), (Bytes{'a', 'b', 'c', 'd'}));
    EXPECT_EQ(Taken(GetStringQVT(foreign, 9, 2)), (Bytes{memory[9], memory[10]}));
    REALstring value = simhost::NewString("xyz");
    SetStringQVT(foreign, value, 2);
    // No terminator, no filler: the bytes around stay.
    EXPECT_EQ(Bytes(memory, memory + 6), (Bytes{0, 0, 'x', 'y', 'z', 0}));
    simhost::Release(value);
    simhost::Release(foreign);
}

TEST_F(AddressesTest, StringInTheBlockItselfMovesLikeMemmove) {
    REALstring inside = GetStringQVT(block, 0, 4);
    SetStringQVT(block, inside, 1);
    EXPECT_EQ(Contents(block), (Bytes{1, 1, 2, 3, 4, 6}));
    simhost::Release(inside);
}

// Through the registered forms, a code of any bytes comes back as it went in.
TEST_F(AddressesTest, AssigningFormIsRegisteredWithTheReadingForm) {
    REALPluginMain(&simhost::Resolve);
    auto setter = simhost::FindMethod("OSTypeQVT(offset as Integer, assigns value as String)",
                                      "MemoryBlock");
    auto getter = simhost::FindMethod("OSTypeQVT(offset as Integer) as String", "MemoryBlock");
    ASSERT_TRUE(setter.has_value() && getter.has_value());
    const std::string code("\x01\xFF\x00z", 4);
    REALstring value = simhost::NewString(code, hostabi::kEncodingMacRoman);
    reinterpret_cast<void (*)(REALobject, intptr_t, REALstring)>(setter->function)(block, 1, value);
    simhost::Release(value);
    auto get = reinterpret_cast<REALstring (*)(REALobject, intptr_t)>(getter->function);
    EXPECT_EQ(Taken(get(block, 1)), (Bytes{0x01, 0xFF, 0x00, 'z'}));
}

}  // namespace
}  // namespace qvt
