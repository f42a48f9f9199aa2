// Slices, append, fill and invert on blocks of the simulated host, and the
// two globals that make blocks from raw memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host_fixture.h"
#include "memory/slices.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using Bytes = std::vector<uint8_t>;
using Result = std::optional<Bytes>;  // nullopt: nil

Bytes Contents(REALobject block) {
    auto bytes = simhost::Bytes(block);
    return Bytes(bytes.begin(), bytes.end());
}

// The result's bytes, and the caller's reference given back.
Result Take(REALobject block) {
    if (!block) return std::nullopt;
    Bytes bytes = Contents(block);
    simhost::Release(block);
    return bytes;
}

const Bytes kTen{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

class SlicesTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
    }
};

using Slice = std::function<REALobject(REALobject)>;

TEST_F(SlicesTest, SlicesClipToTheBlock) {
    const struct {
        const char *name;
        Slice slice;
        Result expected;
    } cases[] = {
        {"Left(3)", [](REALobject b) { return LeftQVT(b, 3); }, Bytes{0, 1, 2}},
        {"Left(100)", [](REALobject b) { return LeftQVT(b, 100); }, kTen},
        {"Left(0)", [](REALobject b) { return LeftQVT(b, 0); }, std::nullopt},
        {"Left(-1)", [](REALobject b) { return LeftQVT(b, -1); }, std::nullopt},
        {"Right(3)", [](REALobject b) { return RightQVT(b, 3); }, Bytes{7, 8, 9}},
        {"Right(100)", [](REALobject b) { return RightQVT(b, 100); }, kTen},
        {"Right(0)", [](REALobject b) { return RightQVT(b, 0); }, std::nullopt},
        {"Mid(7)", [](REALobject b) { return MidQVT(b, 7); }, Bytes{7, 8, 9}},
        {"Mid(0)", [](REALobject b) { return MidQVT(b, 0); }, kTen},
        {"Mid(9)", [](REALobject b) { return MidQVT(b, 9); }, Bytes{9}},
        {"Mid(10)", [](REALobject b) { return MidQVT(b, 10); }, std::nullopt},
        {"Mid(-1)", [](REALobject b) { return MidQVT(b, -1); }, std::nullopt},
        {"Mid(7,100)", [](REALobject b) { return MidQVT(b, 7, 100); }, Bytes{7, 8, 9}},
        {"Mid(2,3)", [](REALobject b) { return MidQVT(b, 2, 3); }, Bytes{2, 3, 4}},
        {"Mid(0,10)", [](REALobject b) { return MidQVT(b, 0, 10); }, kTen},
        {"Mid(9,1)", [](REALobject b) { return MidQVT(b, 9, 1); }, Bytes{9}},
        {"Mid(2,0)", [](REALobject b) { return MidQVT(b, 2, 0); }, std::nullopt},
        {"Mid(2,-1)", [](REALobject b) { return MidQVT(b, 2, -1); }, std::nullopt},
        {"Mid(10,1)", [](REALobject b) { return MidQVT(b, 10, 1); }, std::nullopt},
        {"Mid(-1,2)", [](REALobject b) { return MidQVT(b, -1, 2); }, std::nullopt},
        // offset + length beyond the integer range still clips
        {"Mid(3,max)", [](REALobject b) { return MidQVT(b, 3, INTPTR_MAX); },
         Bytes{3, 4, 5, 6, 7, 8, 9}},
    };
    REALobject block = simhost::NewBlock(kTen);
    for (const auto &c : cases) {
        EXPECT_EQ(Take(Balanced([&] { return c.slice(block); })), c.expected) << c.name;
        EXPECT_TRUE(simhost::TakeExceptions().empty()) << c.name;
        EXPECT_EQ(Contents(block), kTen) << c.name;
    }
    simhost::Release(block);
}

TEST_F(SlicesTest, AWholeBlockSliceIsACopy) {
    REALobject block = simhost::NewBlock(kTen);
    REALobject empty = simhost::NewBlock(0);
    for (REALobject copy : {LeftQVT(block, 10), RightQVT(block, 10), MidQVT(block, 0),
                            MidQVT(block, 0, 10), AppendQVT(block, empty), AppendQVT(empty, block)}) {
        ASSERT_NE(copy, nullptr);
        EXPECT_NE(copy, block);
        simhost::Bytes(copy)[0] = 0xEE;
        EXPECT_EQ(Contents(block), kTen);
        simhost::Release(copy);
    }
    simhost::Release(empty);
    simhost::Release(block);
}

TEST_F(SlicesTest, NilReceiverRaisesBeforeAnyOtherTest) {
    REALobject other = simhost::NewBlock(kTen);
    const struct {
        const char *name;
        std::function<REALobject()> call;
    } cases[] = {
        {"Left", [] { return LeftQVT(nullptr, -1); }},
        {"Right", [] { return RightQVT(nullptr, -1); }},
        {"Mid", [] { return MidQVT(nullptr, -1); }},
        {"Mid2", [] { return MidQVT(nullptr, -1, -1); }},
        {"Append receiver", [&] { return AppendQVT(nullptr, other); }},
        {"Append other", [&] { return AppendQVT(other, nullptr); }},
        {"Append both", [] { return AppendQVT(nullptr, nullptr); }},
        {"Fill", [] { FillBytesQVT(nullptr, -1, -1, 0); return REALobject{}; }},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Balanced(c.call), nullptr) << c.name;
        EXPECT_EQ(OneException(), "NilObjectException: memoryblock is nil") << c.name;
    }
    simhost::Release(other);
}

TEST_F(SlicesTest, BlocksOfUnknownSizeOrWithoutMemorySliceToNil) {
    uint8_t foreign[4] = {1, 2, 3, 4};
    for (REALobject block : {simhost::NewForeignBlock(foreign), simhost::NewMemorylessBlock(),
                             simhost::NewBlock(0)}) {
        for (REALobject result :
             {Balanced([&] { return LeftQVT(block, 2); }),
              Balanced([&] { return RightQVT(block, 2); }),
              Balanced([&] { return MidQVT(block, 0); }),
              Balanced([&] { return MidQVT(block, 0, 2); }),
              Balanced([&] { return AppendQVT(block, block); })}) {
            EXPECT_EQ(result, nullptr) << simhost::Name(block);
        }
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(block);
    }
}

TEST_F(SlicesTest, AppendJoinsCopiesOfBothSides) {
    uint8_t foreign[2] = {7, 7};
    const struct {
        const char *name;
        Bytes first;  // empty: a block of no bytes
        Bytes second;
        bool foreignSecond;
        Result expected;
    } cases[] = {
        {"both filled", {1, 2}, {3}, false, Bytes{1, 2, 3}},
        {"other empty", kTen, {}, false, kTen},
        {"receiver empty", {}, kTen, false, kTen},
        {"both empty", {}, {}, false, std::nullopt},
        // a size the host doesn't know counts as empty
        {"other of unknown size", {5}, {}, true, Bytes{5}},
    };
    for (const auto &c : cases) {
        REALobject a = simhost::NewBlock(c.first);
        REALobject b = c.foreignSecond ? simhost::NewForeignBlock(foreign) : simhost::NewBlock(c.second);
        EXPECT_EQ(Take(Balanced([&] { return AppendQVT(a, b); })), c.expected) << c.name;
        EXPECT_TRUE(simhost::TakeExceptions().empty()) << c.name;
        simhost::Release(a);
        simhost::Release(b);
    }
}

TEST_F(SlicesTest, AppendToItself) {
    REALobject block = simhost::NewBlock(kTen);
    Bytes twice = kTen;
    twice.insert(twice.end(), kTen.begin(), kTen.end());
    EXPECT_EQ(Take(Balanced([&] { return AppendQVT(block, block); })), twice);
    simhost::Release(block);
}

TEST_F(SlicesTest, AppendPastTheLargestBlockIsNilWithoutAsking) {
    REALobject huge = simhost::NewBlock(RBInteger{0x7FFFFFFE});
    if (!huge) GTEST_SKIP() << "no room for a block of 2 GB here";
    REALobject one = simhost::NewBlock(1);
    simhost::ClearCalls();
    EXPECT_EQ(Balanced([&] { return AppendQVT(huge, one); }), nullptr);
    EXPECT_EQ(simhost::CountCalls("newMemoryBlock"), 0u);
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(one);
    simhost::Release(huge);
}

TEST_F(SlicesTest, FillSetsTheLowByteOfValue) {
    const struct {
        intptr_t offset, count, value;
        Bytes expected;
    } cases[] = {
        {2, 3, 255, {0, 1, 255, 255, 255, 5, 6, 7, 8, 9}},
        {2, 3, 513, {0, 1, 1, 1, 1, 5, 6, 7, 8, 9}},
        {0, 10, -1, Bytes(10, 0xFF)},
        {9, 1, 0x42, {0, 1, 2, 3, 4, 5, 6, 7, 8, 0x42}},
        {0, 0, 7, Bytes(10, 7)},
        {0, -1, 7, Bytes(10, 7)},
        {-1, 3, 7, kTen},
        {-1, 0, 7, kTen},
        // count below 1 with an offset: from the offset to the end
        {3, 0, 7, {0, 1, 2, 7, 7, 7, 7, 7, 7, 7}},
        {9, -5, 7, {0, 1, 2, 3, 4, 5, 6, 7, 8, 7}},
        {10, 0, 7, kTen},
        {50, 0, 7, kTen},
    };
    for (const auto &c : cases) {
        REALobject block = simhost::NewBlock(kTen);
        Balanced([&] { FillBytesQVT(block, c.offset, c.count, c.value); });
        EXPECT_EQ(Contents(block), c.expected) << c.offset << "," << c.count << "," << c.value;
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(block);
    }
}

TEST_F(SlicesTest, FillOnBlocksOfUnknownSizeOrWithoutMemory) {
    uint8_t foreign[4] = {1, 2, 3, 4};
    REALobject unknown = simhost::NewForeignBlock(foreign);
    Balanced([&] { FillBytesQVT(unknown, 0, 0, 9); });  // no size to default to
    EXPECT_EQ(Bytes(foreign, foreign + 4), (Bytes{1, 2, 3, 4}));
    Balanced([&] { FillBytesQVT(unknown, 1, 2, 9); });  // a positive count is trusted
    EXPECT_EQ(Bytes(foreign, foreign + 4), (Bytes{1, 9, 9, 4}));

    REALobject memoryless = simhost::NewMemorylessBlock();
    Balanced([&] { FillBytesQVT(memoryless, 0, 0, 9); });
    Balanced([&] { FillBytesQVT(memoryless, 0, 4, 9); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(unknown);
    simhost::Release(memoryless);
}

TEST_F(SlicesTest, InvertComplementsTheRangeOnly) {
    const struct {
        intptr_t offset, count;
        Bytes expected;
    } cases[] = {
        {2, 3, {0, 1, 253, 252, 251, 5, 6, 7, 8, 9}},
        {0, 10, {255, 254, 253, 252, 251, 250, 249, 248, 247, 246}},
        {9, 1, {0, 1, 2, 3, 4, 5, 6, 7, 8, 246}},
        {0, 0, kTen},
        {0, -8, kTen},
    };
    for (const auto &c : cases) {
        REALobject block = simhost::NewBlock(kTen);
        Balanced([&] { InvertBytesQVT(block, c.offset, c.count); });
        EXPECT_EQ(Contents(block), c.expected) << c.offset << "," << c.count;
        InvertBytesQVT(block, c.offset, c.count);
        EXPECT_EQ(Contents(block), kTen) << "twice " << c.offset << "," << c.count;
        simhost::Release(block);
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(SlicesTest, InvertTestsNothingButDoesNotWriteThroughNull) {
    uint8_t foreign[3] = {0x00, 0x5A, 0xFF};
    REALobject unknown = simhost::NewForeignBlock(foreign);
    Balanced([&] { InvertBytesQVT(unknown, 0, 3); });
    EXPECT_EQ(Bytes(foreign, foreign + 3), (Bytes{0xFF, 0xA5, 0x00}));

    REALobject memoryless = simhost::NewMemorylessBlock();
    Balanced([&] { InvertBytesQVT(memoryless, 0, 4); });
    Balanced([] { InvertBytesQVT(nullptr, 0, 4); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(unknown);
    simhost::Release(memoryless);
}

// Differential runs: thousands of calls, so the host keeps no call log.
class SlicesDifferentialTest : public SlicesTest {
    simhost::Options options() const override {
        simhost::Options o;
        o.logCalls = false;
        return o;
    }
};

constexpr intptr_t kLongestRun = 200;
constexpr intptr_t kOffsets[] = {0, 1, 3, 5, 7, 13, 63};

// Bytes before and behind every range, to see that none of them is touched.
Bytes Pattern(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 37 + 11);
    return bytes;
}

TEST_F(SlicesDifferentialTest, InvertEqualsTheByteLoop) {
    const Bytes pattern = Pattern(kLongestRun + 64 + 16);
    REALobject block = simhost::NewBlock(pattern);
    for (intptr_t offset : kOffsets) {
        for (intptr_t count = 0; count <= kLongestRun; ++count) {
            auto bytes = simhost::Bytes(block);
            std::copy(pattern.begin(), pattern.end(), bytes.begin());
            Bytes expected = pattern;
            for (intptr_t i = 0; i < count; ++i) {
                expected[static_cast<std::size_t>(offset + i)] =
                    static_cast<uint8_t>(~expected[static_cast<std::size_t>(offset + i)]);
            }
            InvertBytesQVT(block, offset, count);
            ASSERT_EQ(Contents(block), expected) << "offset " << offset << " count " << count;
        }
    }
    simhost::Release(block);
}

TEST_F(SlicesDifferentialTest, FillEqualsTheByteLoop) {
    const Bytes pattern = Pattern(kLongestRun + 64 + 16);
    REALobject block = simhost::NewBlock(pattern);
    for (intptr_t offset : kOffsets) {
        for (intptr_t count = 1; count <= kLongestRun; ++count) {
            auto bytes = simhost::Bytes(block);
            std::copy(pattern.begin(), pattern.end(), bytes.begin());
            Bytes expected = pattern;
            const intptr_t value = 0x1A5 + count;
            for (intptr_t i = 0; i < count; ++i) {
                expected[static_cast<std::size_t>(offset + i)] = static_cast<uint8_t>(value);
            }
            FillBytesQVT(block, offset, count, value);
            ASSERT_EQ(Contents(block), expected) << "offset " << offset << " count " << count;
        }
    }
    simhost::Release(block);
}

TEST_F(SlicesTest, NewBlockWithBytesCopies) {
    uint8_t source[3] = {4, 5, 6};
    const struct {
        void *data;
        intptr_t size;
        Result expected;
    } cases[] = {
        {source, 3, Bytes{4, 5, 6}},
        {source, 1, Bytes{4}},
        {nullptr, 3, std::nullopt},
        {source, 0, std::nullopt},
        {source, -1, std::nullopt},
    };
    for (const auto &c : cases) {
        REALobject block = Balanced([&] { return NewMemoryBlockWithBytesQVT(c.data, c.size); });
        if (block) {
            EXPECT_NE(simhost::Bytes(block).data(), source);
        }
        EXPECT_EQ(Take(block), c.expected) << c.size;
        EXPECT_TRUE(simhost::TakeExceptions().empty());
    }
}

TEST_F(SlicesTest, NewBlockFromPtrWrapsWithoutCopying) {
    EXPECT_EQ(Balanced([] { return NewMemoryBlockFromPtrQVT(0); }), nullptr);
    EXPECT_EQ(simhost::CountCalls("PtrToMemoryBlock"), 0u);

    uint8_t memory[4] = {1, 2, 3, 4};
    REALobject block =
        Balanced([&] { return NewMemoryBlockFromPtrQVT(reinterpret_cast<intptr_t>(memory)); });
    ASSERT_NE(block, nullptr);
    FillBytesQVT(block, 1, 2, 0);
    EXPECT_EQ(Bytes(memory, memory + 4), (Bytes{1, 0, 0, 4}));
    EXPECT_EQ(LeftQVT(block, 2), nullptr);  // the slices see no size
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
}

class SlicesWithoutNewMemoryBlockTest : public SlicesTest {
    simhost::Options options() const override {
        simhost::Options o;
        o.missingEntries = {"newMemoryBlock"};
        return o;
    }
};

TEST_F(SlicesWithoutNewMemoryBlockTest, CopiesRaiseButAJoinIsQuietlyNil) {
    // A missing entry is only honoured while its binding is still unbound.
    if (host::newMemoryBlock.Find() != nullptr) GTEST_SKIP() << "newMemoryBlock bound earlier";
    REALobject block = simhost::NewBlock(kTen);
    REALobject empty = simhost::NewBlock(0);
    uint8_t source[2] = {};
    const struct {
        const char *name;
        std::function<REALobject()> call;
        const char *raised;  // null: nothing
    } cases[] = {
        {"Left", [&] { return LeftQVT(block, 3); }, "3"},
        {"Right", [&] { return RightQVT(block, 100); }, "10"},
        {"Mid", [&] { return MidQVT(block, 4); }, "6"},
        {"Mid2", [&] { return MidQVT(block, 4, 2); }, "2"},
        {"Append one side empty", [&] { return AppendQVT(empty, block); }, "10"},
        {"WithBytes", [&] { return NewMemoryBlockWithBytesQVT(source, 2); }, "2"},
        {"Append both filled", [&] { return AppendQVT(block, block); }, nullptr},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Balanced(c.call), nullptr) << c.name;
        if (c.raised) {
            EXPECT_EQ(OneException(), std::string("OutOfMemoryException: Failed to allocate a "
                                                  "memoryblock with ") +
                                          c.raised + " bytes in size.")
                << c.name;
        } else {
            EXPECT_TRUE(simhost::TakeExceptions().empty()) << c.name;
        }
    }
    simhost::Release(block);
    simhost::Release(empty);
}

}  // namespace
}  // namespace qvt
