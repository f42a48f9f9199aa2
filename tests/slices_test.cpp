// Slices, append, fill and invert on blocks of the simulated host, and the
// two globals that make blocks from raw memory.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "kernel_fixture.h"
#include "memory/slices.h"
#include "shell/binding.h"

namespace qvt {
namespace {

using test::Bytes;
using Result = std::optional<Bytes>;  // nullopt: nil

// The result's bytes, and the caller's reference given back.
Result Take(REALobject block) {
    if (!block) return std::nullopt;
    const auto bytes = simhost::Bytes(block);
    Result result = Bytes(bytes.begin(), bytes.end());
    simhost::Release(block);
    return result;
}

const Bytes kTen{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

class SlicesTest : public test::KernelTest {};

// 'L' Left(a), 'R' Right(a), 'M' Mid(a), 'm' Mid(a, b).
REALobject Slice(REALobject block, char form, intptr_t a, intptr_t b = 0) {
    switch (form) {
        case 'L': return LeftQVT(block, a);
        case 'R': return RightQVT(block, a);
        case 'M': return MidQVT(block, a);
        default: return MidQVT(block, a, b);
    }
}

TEST_F(SlicesTest, SlicesClipToTheBlock) {
    const struct { char form; intptr_t a, b; Result expected; } cases[] = {
        {'L', 3, 0, Bytes{0, 1, 2}}, {'L', 100, 0, kTen}, {'L', 0, 0, std::nullopt}, {'R', 3, 0, Bytes{7, 8, 9}},
        {'R', 100, 0, kTen}, {'R', 0, 0, std::nullopt}, {'M', 9, 0, Bytes{9}}, {'M', 10, 0, std::nullopt},
        {'M', -1, 0, std::nullopt}, {'m', 7, 100, Bytes{7, 8, 9}}, {'m', 2, 3, Bytes{2, 3, 4}}, {'m', 9, 1, Bytes{9}},
        {'m', 2, 0, std::nullopt}, {'m', 10, 1, std::nullopt}, {'m', -1, 2, std::nullopt},
        {'m', 3, INTPTR_MAX, Bytes{3, 4, 5, 6, 7, 8, 9}},  // offset + length past the integer range
    };
    REALobject block = simhost::NewBlock(kTen);
    for (const auto &c : cases) {
        REALobject slice = Balanced([&] { return Slice(block, c.form, c.a, c.b); });
        EXPECT_TRUE(!slice || simhost::Bytes(slice).data() != simhost::Bytes(block).data());  // a copy, even whole
        EXPECT_EQ(Take(slice), c.expected) << c.form << c.a << "," << c.b;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    EXPECT_EQ(Contents(block), kTen);
    simhost::Release(block);
}

TEST_F(SlicesTest, NilReceiverRaisesBeforeAnyOtherTest) {
    REALobject other = simhost::NewBlock(kTen);
    const std::function<REALobject()> calls[] = {
        [] { return LeftQVT(nullptr, -1); }, [] { return RightQVT(nullptr, -1); }, [] { return MidQVT(nullptr, -1); },
        [] { return MidQVT(nullptr, -1, -1); }, [&] { return AppendQVT(nullptr, other); },
        [&] { return AppendQVT(other, nullptr); },
        [] { return FillBytesQVT(nullptr, -1, -1, 0), REALobject{}; },
    };
    for (const auto &call : calls) {
        EXPECT_EQ(Balanced(call), nullptr);
        EXPECT_EQ(OneException(), "NilObjectException: memoryblock is nil");
    }
    simhost::Release(other);
}

TEST_F(SlicesTest, BlocksOfUnknownSizeOrWithoutMemorySliceToNil) {
    uint8_t foreign[4] = {1, 2, 3, 4};
    for (REALobject block :
         {simhost::NewForeignBlock(foreign), simhost::NewMemorylessBlock(), simhost::NewBlock(0)}) {
        for (char form : {'L', 'R', 'M', 'm'}) {
            EXPECT_EQ(Balanced([&] { return Slice(block, form, form == 'M' ? 0 : 2, 2); }), nullptr);
        }
        EXPECT_EQ(Balanced([&] { return AppendQVT(block, block); }), nullptr);
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(block);
    }
}

TEST_F(SlicesTest, AppendJoinsCopiesOfBothSides) {
    uint8_t foreign[2] = {7, 7};
    // An empty vector is a block of no bytes; a size the host doesn't know counts as empty.
    const struct { Bytes first, second; bool foreignSecond; Result expected; } cases[] = {
        {{1, 2}, {3}, false, Bytes{1, 2, 3}}, {{}, {}, false, std::nullopt}, {{5}, {}, true, Bytes{5}},
        {kTen, {}, false, kTen}, {{}, kTen, false, kTen},
    };
    for (const auto &c : cases) {
        REALobject a = simhost::NewBlock(c.first);
        REALobject b = c.foreignSecond ? simhost::NewForeignBlock(foreign) : simhost::NewBlock(c.second);
        REALobject joined = Balanced([&] { return AppendQVT(a, b); });
        EXPECT_TRUE(!joined || (simhost::Bytes(joined).data() != simhost::Bytes(a).data() &&
                                simhost::Bytes(joined).data() != simhost::Bytes(b).data()));
        EXPECT_EQ(Take(joined), c.expected);
        for (REALobject o : {a, b}) simhost::Release(o);
    }
    REALobject block = simhost::NewBlock(Bytes{1, 2});
    EXPECT_EQ(Take(Balanced([&] { return AppendQVT(block, block); })), (Bytes{1, 2, 1, 2}));
    EXPECT_TRUE(simhost::TakeExceptions().empty());
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
    for (REALobject o : {one, huge}) simhost::Release(o);
}

// Fill sets the low byte of value; a count below 1 with an offset runs to the end.
TEST_F(SlicesTest, FillAndInvertChangeTheRangeOnly) {
    const struct { bool fill; intptr_t offset, count; Bytes expected; } cases[] = {
        {true, 2, 3, {0, 1, 1, 1, 1, 5, 6, 7, 8, 9}}, {true, 0, 0, Bytes(10, 1)}, {true, -1, 3, kTen},
        {true, 3, 0, {0, 1, 2, 1, 1, 1, 1, 1, 1, 1}}, {true, 9, -5, {0, 1, 2, 3, 4, 5, 6, 7, 8, 1}},
        {true, 10, 0, kTen}, {false, 2, 3, {0, 1, 253, 252, 251, 5, 6, 7, 8, 9}}, {false, 0, 0, kTen},
        {false, 9, 1, {0, 1, 2, 3, 4, 5, 6, 7, 8, 246}},
    };
    for (const auto &c : cases) {
        auto call = [&](REALobject b) {
            c.fill ? FillBytesQVT(b, c.offset, c.count, 513) : InvertBytesQVT(b, c.offset, c.count);
        };
        EXPECT_EQ(After(kTen, call), c.expected) << c.fill << " " << c.offset << "," << c.count;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

// Fill defaults a count below 1 to the size, which a block of unknown size
// doesn't have; invert tests nothing but must not write through null.
TEST_F(SlicesTest, FillAndInvertOnBlocksOfUnknownSizeOrWithoutMemory) {
    uint8_t foreign[4] = {1, 2, 3, 4};
    REALobject unknown = simhost::NewForeignBlock(foreign), memoryless = simhost::NewMemorylessBlock();
    Balanced([&] { FillBytesQVT(unknown, 0, 0, 9); });
    EXPECT_EQ(Bytes(foreign, foreign + 4), (Bytes{1, 2, 3, 4}));
    Balanced([&] { FillBytesQVT(unknown, 1, 2, 9), InvertBytesQVT(unknown, 2, 2); });  // a positive count is trusted
    EXPECT_EQ(Bytes(foreign, foreign + 4), (Bytes{1, 9, 0xF6, 0xFB}));
    Balanced([&] { FillBytesQVT(memoryless, 0, 0, 9), FillBytesQVT(memoryless, 0, 4, 9); });
    Balanced([&] { InvertBytesQVT(memoryless, 0, 4), InvertBytesQVT(nullptr, 0, 4); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    for (REALobject o : {unknown, memoryless}) simhost::Release(o);
}

class SlicesDifferentialTest : public test::QuietKernelTest {};

// Runs across the word (4, 8) and vector (64) sizes, from offsets of every
// alignment, with bytes before and behind that must stay.
TEST_F(SlicesDifferentialTest, FillAndInvertEqualTheByteLoop) {
    Bytes pattern(200 + 32);
    for (std::size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<uint8_t>(i * 37 + 11);
    for (bool fill : {false, true}) {
        for (intptr_t offset : {0, 1, 3, 4, 7, 13}) {
            for (intptr_t count : {0, 1, 3, 4, 5, 7, 8, 9, 12, 15, 16, 17, 63, 64, 65, 68, 72, 76, 127, 128, 129}) {
                if (fill && count == 0) continue;
                const intptr_t value = 0x1A5 + count;
                Bytes expected = pattern;
                for (intptr_t i = offset; i < offset + count; ++i) {
                    auto &b = expected[static_cast<std::size_t>(i)];
                    b = static_cast<uint8_t>(fill ? value : ~b);
                }
                auto call = [&](REALobject b) {
                    fill ? FillBytesQVT(b, offset, count, value) : InvertBytesQVT(b, offset, count);
                };
                ASSERT_EQ(After(pattern, call), expected) << "fill " << fill << " @" << offset << " #" << count;
            }
        }
    }
}

TEST_F(SlicesTest, NewBlockWithBytesCopies) {
    uint8_t source[3] = {4, 5, 6};
    const struct { void *data; intptr_t size; Result expected; } cases[] = {
        {source, 3, Bytes{4, 5, 6}}, {nullptr, 3, std::nullopt}, {source, 0, std::nullopt}};
    for (const auto &c : cases) {
        REALobject block = Balanced([&] { return NewMemoryBlockWithBytesQVT(c.data, c.size); });
        EXPECT_TRUE(!block || simhost::Bytes(block).data() != source);
        EXPECT_EQ(Take(block), c.expected) << c.size;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(SlicesTest, NewBlockFromPtrWrapsWithoutCopying) {
    EXPECT_EQ(Balanced([] { return NewMemoryBlockFromPtrQVT(0); }), nullptr);
    EXPECT_EQ(simhost::CountCalls("PtrToMemoryBlock"), 0u);
    uint8_t memory[4] = {1, 2, 3, 4};
    const auto address = reinterpret_cast<intptr_t>(memory);
    REALobject block = Balanced([&] { return NewMemoryBlockFromPtrQVT(address); });
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
    REALobject block = simhost::NewBlock(kTen), empty = simhost::NewBlock(0);
    uint8_t source[2] = {};
    const struct { std::function<REALobject()> call; const char *raised; } cases[] = {  // raised null: nothing
        {[&] { return LeftQVT(block, 3); }, "3"}, {[&] { return RightQVT(block, 100); }, "10"},
        {[&] { return MidQVT(block, 4); }, "6"}, {[&] { return MidQVT(block, 4, 2); }, "2"},
        {[&] { return AppendQVT(empty, block); }, "10"}, {[&] { return AppendQVT(block, block); }, nullptr},
        {[&] { return NewMemoryBlockWithBytesQVT(source, 2); }, "2"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Balanced(c.call), nullptr);
        const auto raised = simhost::TakeExceptions();
        ASSERT_EQ(raised.size(), c.raised ? 1u : 0u);
        if (c.raised) {
            EXPECT_EQ(raised[0].className + ": " + raised[0].message.value_or(""),
                      std::string("OutOfMemoryException: Failed to allocate a memoryblock with ") + c.raised +
                          " bytes in size.");
        }
    }
    for (REALobject o : {block, empty}) simhost::Release(o);
}

}  // namespace
}  // namespace qvt
