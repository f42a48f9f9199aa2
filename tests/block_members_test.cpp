// Blocks through the public members of the host's class: construction,
// conversion from and to Ptr, and the Size property.
#include <gtest/gtest.h>

#include <cstdint>

#include "host_fixture.h"
#include "hostvalues/block_members.h"
#include "hostvalues/blocks.h"
#include "shell/entry.h"

namespace qvt {
namespace {

class BlockMembersTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
    }
    simhost::Options options() const override { return hostOptions; }
    void Restart() { SetUp(); }
    simhost::Options hostOptions;
};

struct ConstructorCase {
    RBInteger shortfall;
    int64_t asked;
    int64_t made;  // -1: no block
};

TEST_F(BlockMembersTest, ConstructorBlockIsKeptOnlyWhenLargeEnough) {
    const ConstructorCase cases[] = {
        {0, 16, 16}, {0, 0, 0}, {1, 16, -1}, {1, 0, 0}, {15, 16, -1},
        // The host's constructor refuses and raises; the handler catches
        // that, and the block without memory still holds the 0 bytes asked.
        {0, -5, 0},
    };
    for (const auto &c : cases) {
        hostOptions.constructorShortfall = c.shortfall;
        Restart();
        REALobject block = Balanced([&] { return NewBlockByConstructor(c.asked); });
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        if (c.made < 0) {
            EXPECT_EQ(block, nullptr) << c.asked;
            continue;
        }
        ASSERT_NE(block, nullptr) << c.asked;
        EXPECT_EQ(GetBlockSize(block), c.made);
        simhost::Release(block);
    }
}

TEST_F(BlockMembersTest, MethodsAreLoadedOnce) {
    for (int i = 0; i < 3; ++i) {
        REALobject made = NewBlockByConstructor(4);
        uint8_t bytes[4] = {};
        REALobject wrapped = WrapPtrByConversion(bytes);
        EXPECT_EQ(GetBlockPtrByConversion(wrapped), bytes);
        simhost::Release(made);
        simhost::Release(wrapped);
    }
    EXPECT_EQ(simhost::CountCalls("REALLoadObjectMethod"), 3u);
    EXPECT_EQ(simhost::CountCalls("MemoryBlock.Constructor"), 3u);
}

TEST_F(BlockMembersTest, ConversionsReachTheBlocksMemory) {
    uint8_t bytes[8] = {1, 2, 3};
    REALobject wrapped = Balanced([&] { return WrapPtrByConversion(bytes); });
    ASSERT_NE(wrapped, nullptr);
    EXPECT_EQ(GetBlockPtr(wrapped), bytes);
    EXPECT_EQ(GetBlockSizeByProperty(wrapped), -1);  // a wrapped address has no known size
    REALobject block = simhost::NewBlock(10);
    EXPECT_EQ(Balanced([&] { return GetBlockPtrByConversion(block); }),
              simhost::Bytes(block).data());
    EXPECT_EQ(Balanced([&] { return GetBlockSizeByProperty(block); }), 10);
    simhost::Release(wrapped);
    simhost::Release(block);
}

TEST_F(BlockMembersTest, NilArgumentsAskNothing) {
    EXPECT_EQ(WrapPtrByConversion(nullptr), nullptr);
    EXPECT_EQ(GetBlockPtrByConversion(nullptr), nullptr);
    EXPECT_EQ(GetBlockSizeByProperty(nullptr), 0);
    EXPECT_TRUE(simhost::Calls().empty());
}

TEST_F(BlockMembersTest, WithoutTheMembersNothingIsMade) {
    hostOptions.missingEntries = {"REALLoadObjectMethod", "REALGetPropValueInteger",
                                  "REALGetPropValueInt", "PluginCallFunctionWithExceptionHandler"};
    Restart();
    uint8_t bytes[4] = {};
    EXPECT_EQ(Balanced([&] { return WrapPtrByConversion(bytes); }), nullptr);
    EXPECT_EQ(Balanced([] { return NewBlockByConstructor(4); }), nullptr);
    REALobject empty = Balanced([] { return NewBlockByConstructor(0); });
    EXPECT_NE(empty, nullptr);
    REALobject block = simhost::NewBlock(4);
    EXPECT_EQ(GetBlockPtrByConversion(block), nullptr);
    EXPECT_EQ(GetBlockSizeByProperty(block), 0);
    simhost::Release(empty);
    simhost::Release(block);
}

}  // namespace
}  // namespace qvt
