// Making blocks and reading them, against the simulated host, including a
// host that has no block to give or that throws.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/blocks.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Contents(REALobject block) {
    auto bytes = simhost::Bytes(block);
    return Bytes(bytes.begin(), bytes.end());
}

class BlocksTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
        gDebugging = false;
    }
    void TearDown() override {
        gDebugging = false;
        HostTest::TearDown();
    }
};

TEST_F(BlocksTest, ReadingANilBlockAsksNoHost) {
    EXPECT_EQ(GetBlockPtr(nullptr), nullptr);
    EXPECT_EQ(GetBlockSize(nullptr), 0);
    EXPECT_TRUE(simhost::Calls().empty());
}

TEST_F(BlocksTest, ReadsWhatTheHostReports) {
    uint8_t foreign[4] = {};
    const struct {
        REALobject block;
        const void *pointer;
        int64_t size;
    } cases[] = {
        {simhost::NewBlock(7), nullptr, 7},
        {simhost::NewForeignBlock(foreign), foreign, -1},  // size unknown
        {simhost::NewMemorylessBlock(), nullptr, 0},
    };
    for (const auto &c : cases) {
        const void *expected = c.pointer ? c.pointer : simhost::Bytes(c.block).data();
        EXPECT_EQ(Balanced([&] { return GetBlockPtr(c.block); }), expected);
        EXPECT_EQ(Balanced([&] { return GetBlockSize(c.block); }), c.size);
        simhost::Release(c.block);
    }
}

TEST_F(BlocksTest, NewBlockAsksTheHostOnlyForSizesItCanHave) {
    const struct {
        int64_t size;
        bool asked;
    } cases[] = {
        {-1, false},
        {0, true},
        {1, true},
        {0x7FFFFFFE, true},
        {0x7FFFFFFF, false},  // though AllocateMemory would take it
        {0x80000000LL, false},
    };
    for (const auto &c : cases) {
        simhost::ClearCalls();
        REALobject block = Balanced([&] { return NewBlock(c.size); });
        EXPECT_EQ(simhost::CountCalls("newMemoryBlock"), c.asked ? 1u : 0u) << c.size;
        if (!c.asked) {
            EXPECT_EQ(block, nullptr) << c.size;
        }
        // The largest may still be refused by the machine running the test.
        if (block) {
            EXPECT_EQ(GetBlockSize(block), c.size);
            simhost::Release(block);
        }
        EXPECT_TRUE(simhost::TakeExceptions().empty());
    }
}

TEST_F(BlocksTest, WrapPtrMakesABlockOfUnknownSizeOverTheMemory) {
    EXPECT_EQ(Balanced([] { return WrapPtr(nullptr); }), nullptr);
    EXPECT_EQ(simhost::CountCalls("PtrToMemoryBlock"), 0u);

    uint8_t memory[3] = {1, 2, 3};
    REALobject block = Balanced([&] { return WrapPtr(memory); });
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(GetBlockPtr(block), memory);
    EXPECT_LT(GetBlockSize(block), 0);
    simhost::Release(block);
}

TEST_F(BlocksTest, BuildCopiesTheBytesIntoANewBlock) {
    uint8_t source[5] = {9, 8, 7, 6, 5};
    REALobject block = Balanced([&] { return REALBuildMemoryblock(source, 5); });
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Contents(block), (Bytes{9, 8, 7, 6, 5}));
    source[0] = 0;
    EXPECT_EQ(Contents(block)[0], 9);
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(block);
}

TEST_F(BlocksTest, BuildOfNothingIsNilWithoutAskingOrRaising) {
    uint8_t source[1] = {};
    const struct {
        const void *source;
        int64_t size;
    } cases[] = {{nullptr, 4}, {source, 0}, {source, -1}, {nullptr, 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(Balanced([&] { return REALBuildMemoryblock(c.source, c.size); }), nullptr);
    }
    EXPECT_EQ(simhost::CountCalls("newMemoryBlock"), 0u);
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(BlocksTest, BuildBeyondTheLargestSizeRaisesWithTheSizeAsked) {
    uint8_t source[1] = {};
    const struct {
        int64_t size;
        const char *text;
    } cases[] = {
        {0x7FFFFFFF,
         "OutOfMemoryException: Failed to allocate a memoryblock with 2147483647 bytes in size."},
        {0x80000000LL,
         "OutOfMemoryException: Failed to allocate a memoryblock with 2147483648 bytes in size."},
    };
    for (const auto &c : cases) {
        // The source is never read: no block comes to copy into.
        EXPECT_EQ(Balanced([&] { return REALBuildMemoryblock(source, c.size); }), nullptr);
        EXPECT_EQ(OneException(), c.text);
    }
    EXPECT_EQ(simhost::CountCalls("newMemoryBlock"), 0u);
}

TEST_F(BlocksTest, BuildFailureIsLoggedWhenDebugging) {
    uint8_t source[1] = {};
    gDebugging = true;
    test::StderrCapture output;
    EXPECT_EQ(REALBuildMemoryblock(source, 0x80000000LL), nullptr);
    EXPECT_EQ(output.Take(), "QVT Debug: Error: Failed to allocate memoryblock 2147483648\n");
    simhost::TakeExceptions();
}

// A missing entry is only honoured while its binding is still unbound, which
// holds in a process of the test's own.
bool Unbound(auto &binding) { return binding.Find() == nullptr; }

class BlocksWithoutNewMemoryBlockTest : public BlocksTest {
    simhost::Options options() const override {
        simhost::Options o;
        o.missingEntries = {"newMemoryBlock"};
        return o;
    }
};

TEST_F(BlocksWithoutNewMemoryBlockTest, NoBlockFromTheHost) {
    if (!Unbound(host::newMemoryBlock)) GTEST_SKIP() << "newMemoryBlock bound earlier in this process";
    EXPECT_EQ(Balanced([] { return NewBlock(4); }), nullptr);
    EXPECT_TRUE(simhost::TakeExceptions().empty());

    uint8_t source[4] = {};
    EXPECT_EQ(Balanced([&] { return REALBuildMemoryblock(source, 4); }), nullptr);
    EXPECT_EQ(OneException(),
              "OutOfMemoryException: Failed to allocate a memoryblock with 4 bytes in size.");
}

class BlocksWithoutPointersTest : public BlocksTest {
    simhost::Options options() const override {
        simhost::Options o;
        o.missingEntries = {"memoryBlockGetPtr"};
        return o;
    }
};

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
    if (std::strcmp(name, "newMemoryBlock") == 0) {
        return reinterpret_cast<void *>(&ThrowingNewMemoryBlock);
    }
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
        return reinterpret_cast<void *>(host::newMemoryBlock.Find()) ==
                   reinterpret_cast<void *>(&ThrowingNewMemoryBlock) &&
               reinterpret_cast<void *>(host::memoryBlockGetPtr.Find()) ==
                   reinterpret_cast<void *>(&ThrowingGetPtr);
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
                  "QVT Debug: Got C++ exception in REALBuildMemoryblock:  std::bad_alloc\n")
            << entry;
        EXPECT_EQ(OneException(),
                  "OutOfMemoryException: Failed to allocate a memoryblock with 8 bytes in size.")
            << entry;
        EXPECT_EQ(simhost::LiveObjects(), before) << entry;
    }
}

}  // namespace
}  // namespace qvt
