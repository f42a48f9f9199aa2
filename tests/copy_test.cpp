// The copy methods: memmove results in every overlap, the nil cases of the
// form between blocks, and the handle forms that do nothing.
#include <gtest/gtest.h>

#include <functional>
#include <numeric>

#include "kernel_fixture.h"
#include "memory/copy.h"
#include "shell/definitions.h"

namespace qvt {
namespace {

using test::Bytes;
using test::Counting;

class CopyTest : public test::KernelTest {};
class QuietCopyTest : public test::QuietKernelTest {};

// What memmove promises: the destination gets the source's bytes as they
// were before the call.
Bytes Moved(Bytes bytes, std::size_t src, std::size_t count, std::size_t dest) {
    const Bytes source(bytes.begin() + static_cast<std::ptrdiff_t>(src),
                       bytes.begin() + static_cast<std::ptrdiff_t>(src + count));
    std::copy(source.begin(), source.end(), bytes.begin() + static_cast<std::ptrdiff_t>(dest));
    return bytes;
}

using Within = std::function<void(REALobject, intptr_t, intptr_t, intptr_t)>;

// Both forms that can copy a block onto itself.
const struct { const char *form; Within copy; } kWithinForms[] = {
    {"within", [](REALobject b, intptr_t s, intptr_t n, intptr_t d) { CopyBytesQVT(b, s, n, d); }},
    {"to itself",
     [](REALobject b, intptr_t s, intptr_t n, intptr_t d) { CopyBytesQVT(b, s, n, b, d); }},
};

// A count below 1 copies nothing.
TEST_F(QuietCopyTest, EveryOverlapGivesTheBytesTheSourceHeld) {
    const Bytes before = Counting(40, 50);
    for (const auto &f : kWithinForms) {
        for (std::size_t src = 0; src < 10; ++src) {
            for (std::size_t dest = 0; dest < 10; ++dest) {
                for (intptr_t count = -1; count <= 30; ++count) {
                    REALobject block = simhost::NewBlock(before);
                    f.copy(block, static_cast<intptr_t>(src), count, static_cast<intptr_t>(dest));
                    ASSERT_EQ(Contents(block), count < 1 ? before : Moved(before, src, static_cast<std::size_t>(count), dest))
                        << f.form << " " << src << ", " << count << ", " << dest;
                    simhost::Release(block);
                }
            }
        }
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(CopyTest, CopiesBetweenBlocksTouchOnlyTheDestinationRange) {
    REALobject source = simhost::NewBlock(Counting(8));
    REALobject dest = simhost::NewBlock(Bytes(8, 0xEE));
    Balanced([&] { CopyBytesQVT(source, 2, 3, dest, 4); });
    EXPECT_EQ(Contents(dest), (Bytes{0xEE, 0xEE, 0xEE, 0xEE, 3, 4, 5, 0xEE}));
    EXPECT_EQ(Contents(source), Counting(8));
    for (REALobject block : {source, dest}) simhost::Release(block);
}

TEST_F(CopyTest, NilOrMemorylessBlocksOnEitherSideCopyNothing) {
    REALobject block = simhost::NewBlock(Counting(4));
    REALobject memoryless = simhost::NewMemorylessBlock();
    const REALobject nil = nullptr;
    const struct { REALobject source, dest; } pairs[] = {{block, nil}, {nil, block}, {nil, nil}, {block, memoryless}, {memoryless, block}};
    for (const auto &p : pairs) Balanced([&] { CopyBytesQVT(p.source, 0, 2, p.dest, 1); });
    EXPECT_EQ(Contents(block), Counting(4));
    uint8_t outside[4] = {9, 9, 9, 9};
    for (REALobject receiver : {nil, memoryless}) {
        Balanced([&] { CopyBytesQVT(receiver, 0, 2, 1); });
        Balanced([&] { CopyBytesToMacPtrQVT(receiver, 0, 2, outside); });
        Balanced([&] { CopyBytesFromMacPtrQVT(receiver, outside, 2, 0); });
    }
    EXPECT_EQ(Bytes(outside, outside + 4), Bytes(4, 9));
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    for (REALobject b : {block, memoryless}) simhost::Release(b);
}

TEST_F(CopyTest, RawMemoryRoundTripAndOverlapWithTheBlockItself) {
    REALobject block = simhost::NewBlock(Counting(8));
    uint8_t memory[6] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
    Balanced([&] { CopyBytesToMacPtrQVT(block, 3, 4, memory + 1); });
    EXPECT_EQ(Bytes(memory, memory + 6), (Bytes{0xAA, 4, 5, 6, 7, 0xAA}));
    Balanced([&] { CopyBytesFromMacPtrQVT(block, memory + 1, 4, 3); });
    EXPECT_EQ(Contents(block), Counting(8));

    // An address inside the block itself overlaps like any other copy.
    uint8_t *data = simhost::Bytes(block).data();
    Balanced([&] { CopyBytesFromMacPtrQVT(block, data, 5, 2); });
    EXPECT_EQ(Contents(block), (Bytes{1, 2, 1, 2, 3, 4, 5, 8}));
    Balanced([&] { CopyBytesToMacPtrQVT(block, 2, 5, data + 1); });
    EXPECT_EQ(Contents(block), (Bytes{1, 1, 2, 3, 4, 5, 5, 8}));
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
}

TEST_F(CopyTest, HandleFormsTouchNothingWhateverTheArguments) {
    REALobject block = simhost::NewBlock(Counting(8));
    const intptr_t arguments[][3] = {{0, 4, 1234}, {1234, 4, 0}, {-5, INTPTR_MAX, -1}};
    simhost::ClearCalls();
    for (const auto &a : arguments) {
        for (REALobject receiver : {block, static_cast<REALobject>(nullptr)}) {
            Balanced([&] { CopyBytesToMacHandleQVT(receiver, a[0], a[1], a[2]); });
            Balanced([&] { CopyBytesFromMacHandleQVT(receiver, a[0], a[1], a[2]); });
        }
    }
    EXPECT_TRUE(simhost::Calls().empty());
    EXPECT_EQ(Contents(block), Counting(8));
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
}

TEST_F(CopyTest, TheFormBetweenBlocksIsRegisteredUnderItsDeclaration) {
    REALPluginMain(&simhost::Resolve);
    auto method = simhost::FindMethod(
        "CopyBytesQVT(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as "
        "Integer)",
        "MemoryBlock");
    ASSERT_TRUE(method.has_value());
    EXPECT_EQ(method->function,
              QVT_PROC(void(REALobject, intptr_t, intptr_t, REALobject, intptr_t), CopyBytesQVT));
}

}  // namespace
}  // namespace qvt
