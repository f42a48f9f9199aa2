// Making blocks and reading them, against the simulated host, including a
// host that has no block to give or that throws.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "diagnostics/debuglog.h"
#include "kernel_fixture.h"
#include "hostvalues/blocks.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using test::Bytes;

class BlocksTest : public test::KernelTest {
protected:
    void TearDown() override {
        gDebugging = false;
        KernelTest::TearDown();
    }
};

TEST_F(BlocksTest, ReadsWhatTheHostReports) {
    EXPECT_EQ(GetBlockPtr(nullptr), nullptr);
    EXPECT_EQ(GetBlockSize(nullptr), 0);
    EXPECT_EQ(WrapPtr(nullptr), nullptr);
    EXPECT_TRUE(simhost::Calls().empty());  // nil asks no host
    uint8_t foreign[4] = {};
    const struct { REALobject block; const void *pointer; int64_t size; } cases[] = {
        {simhost::NewBlock(7), nullptr, 7},
        {Balanced([&] { return WrapPtr(foreign); }), foreign, -1},  // size unknown
        {simhost::NewMemorylessBlock(), nullptr, 0},
    };
    for (const auto &c : cases) {
        const void *expected = c.pointer ? c.pointer : simhost::Bytes(c.block).data();
        EXPECT_EQ(Balanced([&] { return GetBlockPtr(c.block); }), expected);
        EXPECT_EQ(Balanced([&] { return GetBlockSize(c.block); }), c.size);
        simhost::Release(c.block);
    }
}

// 0x7FFFFFFF is refused though AllocateMemory would take it.
TEST_F(BlocksTest, NewBlockAsksTheHostOnlyForSizesItCanHave) {
    const struct {
        int64_t size;
        bool asked;
    } cases[] = {{-1, false}, {0, true}, {0x7FFFFFFE, true}, {0x7FFFFFFF, false}};
    for (const auto &c : cases) {
        simhost::ClearCalls();
        REALobject block = Balanced([&] { return NewBlock(c.size); });
        EXPECT_EQ(simhost::CountCalls("newMemoryBlock"), c.asked ? 1u : 0u) << c.size;
        EXPECT_TRUE(c.asked || block == nullptr) << c.size;
        // The largest may still be refused by the machine running the test.
        if (block) {
            EXPECT_EQ(GetBlockSize(block), c.size);
            simhost::Release(block);
        }
        EXPECT_TRUE(simhost::TakeExceptions().empty());
    }
}

// Nothing to build is nil without asking or raising; beyond the largest
// size raises with the size asked (the source is never read) and logs.
TEST_F(BlocksTest, BuildCopiesTheBytesOrRefuses) {
    uint8_t source[5] = {9, 8, 7, 6, 5};
    REALobject block = Balanced([&] { return REALBuildMemoryblock(source, 5); });
    source[0] = 0;
    EXPECT_EQ(Contents(block), (Bytes{9, 8, 7, 6, 5}));
    simhost::Release(block);
    simhost::ClearCalls();
    const struct {
        const void *source;
        int64_t size;
        const char *raised;  // the size in the message, or none
    } cases[] = {{nullptr, 4, nullptr}, {source, 0, nullptr}, {source, -1, nullptr},
                 {source, 0x7FFFFFFF, "2147483647"}, {source, 0x80000000LL, "2147483648"}};
    for (const auto &c : cases) {
        gDebugging = true;
        test::StderrCapture output;
        EXPECT_EQ(Balanced([&] { return REALBuildMemoryblock(c.source, c.size); }), nullptr);
        const std::string log = output.Take();
        if (!c.raised) {
            EXPECT_TRUE(simhost::TakeExceptions().empty());
            EXPECT_EQ(log, "");
            continue;
        }
        EXPECT_EQ(OneException(), std::string("OutOfMemoryException: Failed to allocate a "
                                              "memoryblock with ") + c.raised + " bytes in size.");
        EXPECT_EQ(log, std::string("QVT Debug: Error: Failed to allocate memoryblock ") + c.raised + "\n");
    }
    EXPECT_EQ(simhost::CountCalls("newMemoryBlock"), 0u);
}

// A missing entry is only honoured while its binding is still unbound, which
// holds in a process of the test's own.
bool Unbound(auto &binding) { return binding.Find() == nullptr; }

template <const char *kMissing>
class BlocksWithoutTest : public BlocksTest {
    simhost::Options options() const override {
        simhost::Options o;
        o.missingEntries = {kMissing};
        return o;
    }
};
constexpr char kNewMemoryBlock[] = "newMemoryBlock", kGetPtr[] = "memoryBlockGetPtr";
using BlocksWithoutNewMemoryBlockTest = BlocksWithoutTest<kNewMemoryBlock>;
using BlocksWithoutPointersTest = BlocksWithoutTest<kGetPtr>;

TEST_F(BlocksWithoutNewMemoryBlockTest, NoBlockFromTheHost) {
    if (!Unbound(host::newMemoryBlock)) GTEST_SKIP() << "newMemoryBlock bound earlier in this process";
    EXPECT_EQ(Balanced([] { return NewBlock(4); }), nullptr);
    EXPECT_TRUE(simhost::TakeExceptions().empty());

    uint8_t source[4] = {};
    EXPECT_EQ(Balanced([&] { return REALBuildMemoryblock(source, 4); }), nullptr);
    EXPECT_EQ(OneException(),
              "OutOfMemoryException: Failed to allocate a memoryblock with 4 bytes in size.");
}

TEST_F(BlocksWithoutPointersTest, ABlockWithoutMemoryIsGivenBackBeforeTheRaise) {
    if (!Unbound(host::memoryBlockGetPtr)) GTEST_SKIP() << "memoryBlockGetPtr bound earlier";
    uint8_t source[6] = {};
    const std::size_t before = simhost::LiveObjects();
    EXPECT_EQ(Balanced([&] { return REALBuildMemoryblock(source, 6); }), nullptr);
    EXPECT_EQ(simhost::CountCalls("newMemoryBlock"), 1u);
    EXPECT_EQ(OneException(),
              "OutOfMemoryException: Failed to allocate a memoryblock with 6 bytes in size.");
    EXPECT_EQ(simhost::LiveObjects(), before);
}

// A host whose block entries throw std::bad_alloc while `gThrowIn` names them;
// otherwise they are the simulated host's own.
std::string gThrowIn;

REALobject ThrowingNewMemoryBlock(RBInteger size) {
    if (gThrowIn == "newMemoryBlock") throw std::bad_alloc();
    return reinterpret_cast<REALobject (*)(RBInteger)>(simhost::Resolve("newMemoryBlock"))(size);
}

void *ThrowingGetPtr(REALobject block) {
    if (gThrowIn == "memoryBlockGetPtr") throw std::bad_alloc();
    return reinterpret_cast<void *(*)(REALobject)>(simhost::Resolve("memoryBlockGetPtr"))(block);
}

void *ResolveThrowing(const char *name) {
    if (std::strcmp(name, "newMemoryBlock") == 0) return reinterpret_cast<void *>(&ThrowingNewMemoryBlock);
    if (std::strcmp(name, "memoryBlockGetPtr") == 0) return reinterpret_cast<void *>(&ThrowingGetPtr);
    return simhost::Resolve(name);
}

class BlocksThrowingTest : public BlocksTest {
protected:
    void SetUp() override {
        BlocksTest::SetUp();
        gResolver = &ResolveThrowing;
    }
    void TearDown() override {
        gThrowIn.clear();
        BlocksTest::TearDown();
    }
    static bool BoundToThrowingHost() {
        return reinterpret_cast<void *>(host::newMemoryBlock.Find()) == reinterpret_cast<void *>(&ThrowingNewMemoryBlock) &&
               reinterpret_cast<void *>(host::memoryBlockGetPtr.Find()) == reinterpret_cast<void *>(&ThrowingGetPtr);
    }
};

TEST_F(BlocksThrowingTest, BadAllocBecomesTheSameExceptionAndALogLine) {
    if (!BoundToThrowingHost()) GTEST_SKIP() << "block entries bound earlier in this process";
    uint8_t source[8] = {};
    for (const char *entry : {"newMemoryBlock", "memoryBlockGetPtr"}) {
        gThrowIn = entry;
        gDebugging = true;
        test::StderrCapture output;
        const std::size_t before = simhost::LiveObjects();
        // A block made before the throw is given back too.
        EXPECT_EQ(Balanced([&] { return REALBuildMemoryblock(source, 8); }), nullptr) << entry;
        EXPECT_EQ(output.Take(),
                  "QVT Debug: Got C++ exception in REALBuildMemoryblock:  std::bad_alloc\n") << entry;
        EXPECT_EQ(OneException(),
                  "OutOfMemoryException: Failed to allocate a memoryblock with 8 bytes in size.") << entry;
        EXPECT_EQ(simhost::LiveObjects(), before) << entry;
    }
}

}  // namespace
}  // namespace qvt
