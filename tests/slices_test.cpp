// Slices, append, fill and invert on blocks of the simulated host, and the
// two globals that make blocks from raw memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

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
    auto bytes = simhost::Bytes(block);
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
    const struct {
        char form;
        intptr_t a, b;
        Result expected;
    } cases[] = {
        {'L', 3, 0, Bytes{0, 1, 2}},    {'L', 100, 0, kTen},          {'L', 0, 0, std::nullopt},
        {'R', 3, 0, Bytes{7, 8, 9}},    {'R', 100, 0, kTen},          {'R', 0, 0, std::nullopt},
        {'M', 7, 0, Bytes{7, 8, 9}},    {'M', 9, 0, Bytes{9}},        {'M', 10, 0, std::nullopt},
        {'M', -1, 0, std::nullopt},     {'m', 7, 100, Bytes{7, 8, 9}}, {'m', 2, 3, Bytes{2, 3, 4}},
        {'m', 9, 1, Bytes{9}},          {'m', 2, 0, std::nullopt},    {'m', 10, 1, std::nullopt},
        {'m', -1, 2, std::nullopt},
        // offset + length beyond the integer range still clips
        {'m', 3, INTPTR_MAX, Bytes{3, 4, 5, 6, 7, 8, 9}},
    };
    REALobject block = simhost::NewBlock(kTen);
    for (const auto &c : cases) {
        EXPECT_EQ(Take(Balanced([&] { return Slice(block, c.form, c.a, c.b); })), c.expected)
            << c.form << c.a << "," << c.b;
        EXPECT_TRUE(simhost::TakeExceptions().empty());
    }
    EXPECT_EQ(Contents(block), kTen);
    simhost::Release(block);
}

TEST_F(SlicesTest, AWholeBlockSliceIsACopy) {
    REALobject block = simhost::NewBlock(kTen);
    REALobject empty = simhost::NewBlock(0);
    for (REALobject copy : {LeftQVT(block, 10), RightQVT(block, 10), MidQVT(block, 0),
                            MidQVT(block, 0, 10), AppendQVT(block, empty), AppendQVT(empty, block)}) {
        ASSERT_NE(copy, nullptr);
        simhost::Bytes(copy)[0] = 0xEE;
        EXPECT_EQ(Contents(block), kTen);
        simhost::Release(copy);
    }
    simhost::Release(empty);
    simhost::Release(block);
}

TEST_F(SlicesTest, NilReceiverRaisesBeforeAnyOtherTest) {
    REALobject other = simhost::NewBlock(kTen);
    const std::function<REALobject()> calls[] = {
        [] { return LeftQVT(nullptr, -1); },
        [] { return RightQVT(nullptr, -1); },
        [] { return MidQVT(nullptr, -1); },
        [] { return MidQVT(nullptr, -1, -1); },
        [&] { return AppendQVT(nullptr, other); },
        [&] { return AppendQVT(other, nullptr); },
        [] { FillBytesQVT(nullptr, -1, -1, 0); return REALobject{}; },
    };
    for (const auto &call : calls) {
        EXPECT_EQ(Balanced(call), nullptr);
        EXPECT_EQ(OneException(), "NilObjectException: memoryblock is nil");
    }
    simhost::Release(other);
}

TEST_F(SlicesTest, BlocksOfUnknownSizeOrWithoutMemorySliceToNil) {
    uint8_t foreign[4] = {1, 2, 3, 4};
    for (REALobject block : {simhost::NewForeignBlock(foreign), simhost::NewMemorylessBlock(),
                             simhost::NewBlock(0)}) {
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
    const struct {
        Bytes first;  // empty: a block of no bytes
        Bytes second;
        bool foreignSecond;
        Result expected;
    } cases[] = {
        {{1, 2}, {3}, false, Bytes{1, 2, 3}},
        {kTen, {}, false, kTen},
        {{}, kTen, false, kTen},
        {{}, {}, false, std::nullopt},
        {{5}, {}, true, Bytes{5}},  // a size the host doesn't know counts as empty
    };
    for (const auto &c : cases) {
        REALobject a = simhost::NewBlock(c.first);
        REALobject b = c.foreignSecond ? simhost::NewForeignBlock(foreign) : simhost::NewBlock(c.second);
        EXPECT_EQ(Take(Balanced([&] { return AppendQVT(a, b); })), c.expected);
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(a);
        simhost::Release(b);
    }
    REALobject block = simhost::NewBlock(Bytes{1, 2});
    EXPECT_EQ(Take(Balanced([&] { return AppendQVT(block, block); })), (Bytes{1, 2, 1, 2}));
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
        {2, 3, 513, {0, 1, 1, 1, 1, 5, 6, 7, 8, 9}},
        {0, 10, -1, Bytes(10, 0xFF)},
        {9, 1, 0x42, {0, 1, 2, 3, 4, 5, 6, 7, 8, 0x42}},
        {0, 0, 7, Bytes(10, 7)},
        {-1, 3, 7, kTen},
        // count below 1 with an offset: from the offset to the end
        {3, 0, 7, {0, 1, 2, 7, 7, 7, 7, 7, 7, 7}},
        {9, -5, 7, {0, 1, 2, 3, 4, 5, 6, 7, 8, 7}},
        {10, 0, 7, kTen},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(After(kTen, [&](REALobject b) { FillBytesQVT(b, c.offset, c.count, c.value); }),
                  c.expected)
            << c.offset << "," << c.count << "," << c.value;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(SlicesTest, InvertComplementsTheRangeOnly) {
    const struct {
        intptr_t offset, count;
        Bytes expected;
    } cases[] = {
        {2, 3, {0, 1, 253, 252, 251, 5, 6, 7, 8, 9}},
        {9, 1, {0, 1, 2, 3, 4, 5, 6, 7, 8, 246}},
        {0, 0, kTen},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(After(kTen, [&](REALobject b) { InvertBytesQVT(b, c.offset, c.count); }), c.expected)
            << c.offset << "," << c.count;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

// Fill defaults a count below 1 to the size, which a block of unknown size
// doesn't have; invert tests nothing but must not write through null.
TEST_F(SlicesTest, FillAndInvertOnBlocksOfUnknownSizeOrWithoutMemory) {
    uint8_t foreign[4] = {1, 2, 3, 4};
    REALobject unknown = simhost::NewForeignBlock(foreign);
    Balanced([&] { FillBytesQVT(unknown, 0, 0, 9); });
    EXPECT_EQ(Bytes(foreign, foreign + 4), (Bytes{1, 2, 3, 4}));
    Balanced([&] { FillBytesQVT(unknown, 1, 2, 9); });  // a positive count is trusted
    Balanced([&] { InvertBytesQVT(unknown, 2, 2); });
    EXPECT_EQ(Bytes(foreign, foreign + 4), (Bytes{1, 9, 0xF6, 0xFB}));

    REALobject memoryless = simhost::NewMemorylessBlock();
    Balanced([&] { FillBytesQVT(memoryless, 0, 0, 9); });
    Balanced([&] { FillBytesQVT(memoryless, 0, 4, 9); });
    Balanced([&] { InvertBytesQVT(memoryless, 0, 4); });
    Balanced([] { InvertBytesQVT(nullptr, 0, 4); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(unknown);
    simhost::Release(memoryless);
}

class SlicesDifferentialTest : public test::QuietKernelTest {};

// Runs of every length across the word and vector sizes, from offsets of
// every alignment, with bytes before and behind that must stay.
TEST_F(SlicesDifferentialTest, FillAndInvertEqualTheByteLoop) {
    Bytes pattern(200 + 32);
    for (std::size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<uint8_t>(i * 37 + 11);
    for (bool fill : {false, true}) {
        for (intptr_t offset : {0, 1, 3, 4, 7, 13}) {
            for (intptr_t count = fill ? 1 : 0; count <= 200; ++count) {
                const intptr_t value = 0x1A5 + count;
                Bytes expected = pattern;
                for (intptr_t i = offset; i < offset + count; ++i) {
                    auto &b = expected[static_cast<std::size_t>(i)];
                    b = static_cast<uint8_t>(fill ? value : ~b);
                }
                ASSERT_EQ(After(pattern,
                                [&](REALobject b) {
                                    if (fill) FillBytesQVT(b, offset, count, value);
                                    else InvertBytesQVT(b, offset, count);
                                }),
                          expected)
                    << "fill " << fill << " offset " << offset << " count " << count;
            }
        }
    }
}

TEST_F(SlicesTest, NewBlockWithBytesCopies) {
    uint8_t source[3] = {4, 5, 6};
    const struct {
        void *data;
        intptr_t size;
        Result expected;
    } cases[] = {{source, 3, Bytes{4, 5, 6}}, {nullptr, 3, std::nullopt}, {source, 0, std::nullopt}};
    for (const auto &c : cases) {
        REALobject block = Balanced([&] { return NewMemoryBlockWithBytesQVT(c.data, c.size); });
        EXPECT_TRUE(!block || simhost::Bytes(block).data() != source);
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
        std::function<REALobject()> call;
        const char *raised;  // null: nothing
    } cases[] = {
        {[&] { return LeftQVT(block, 3); }, "3"},
        {[&] { return RightQVT(block, 100); }, "10"},
        {[&] { return MidQVT(block, 4); }, "6"},
        {[&] { return MidQVT(block, 4, 2); }, "2"},
        {[&] { return AppendQVT(empty, block); }, "10"},
        {[&] { return NewMemoryBlockWithBytesQVT(source, 2); }, "2"},
        {[&] { return AppendQVT(block, block); }, nullptr},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Balanced(c.call), nullptr);
        const auto raised = simhost::TakeExceptions();
        ASSERT_EQ(raised.size(), c.raised ? 1u : 0u);
        if (c.raised) {
            EXPECT_EQ(raised[0].className + ": " + raised[0].message.value_or(""),
                      std::string("OutOfMemoryException: Failed to allocate a memoryblock with ") +
                          c.raised + " bytes in size.");
        }
    }
    simhost::Release(block);
    simhost::Release(empty);
}

}  // namespace
}  // namespace qvt
