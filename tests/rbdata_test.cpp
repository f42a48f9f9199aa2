// The holder over every kind of block and over strings.
#include <gtest/gtest.h>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/rbdata.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {
namespace {

class RbDataTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
    }
};

TEST_F(RbDataTest, NilBlockTouchesNoHost) {
    {
        rbData holder(static_cast<REALobject>(nullptr), 0, 0);
        EXPECT_EQ(holder.data, nullptr);
        EXPECT_EQ(holder.size, 0u);
        EXPECT_EQ(holder.lockedObject, nullptr);
    }
    rbData nilString(static_cast<REALstring>(nullptr));
    EXPECT_EQ(nilString.data, nullptr);
    nilString.release();
    EXPECT_TRUE(simhost::Calls().empty());
}

TEST_F(RbDataTest, PinsABlockForItsLifetime) {
    REALobject block = simhost::NewBlock(10);
    {
        rbData holder(block, 0, 0);
        EXPECT_EQ(holder.data, simhost::Bytes(block).data());
        EXPECT_EQ(holder.size, 10u);
        EXPECT_EQ(simhost::RefCount(block), 2);
        holder.release();
        EXPECT_EQ(simhost::RefCount(block), 1);
        holder.release();  // a second release gives nothing back
        EXPECT_EQ(holder.data, nullptr);
    }
    EXPECT_EQ(simhost::RefCount(block), 1);
    simhost::Release(block);
}

TEST_F(RbDataTest, BlocksOfUnknownSizeOrWithoutMemory) {
    unsigned char foreign[4] = {};
    REALobject unknownSize = simhost::NewForeignBlock(foreign);
    REALobject memoryless = simhost::NewMemorylessBlock();
    {
        rbData a(unknownSize, 0, 0);
        EXPECT_EQ(a.data, foreign);
        EXPECT_EQ(a.size, 0u);
        rbData b(memoryless, 0, 0);
        EXPECT_EQ(b.data, nullptr);
        EXPECT_EQ(b.size, 0u);
        EXPECT_EQ(b.lockedObject, memoryless);
        EXPECT_EQ(simhost::RefCount(memoryless), 2);
    }
    EXPECT_EQ(simhost::RefCount(memoryless), 1);
    simhost::Release(unknownSize);
    simhost::Release(memoryless);
}

TEST_F(RbDataTest, SizeGivenByTheCallerIsTakenUnchecked) {
    REALobject block = simhost::NewBlock(4);
    rbData holder(block, 1, 100);
    EXPECT_EQ(holder.data, simhost::Bytes(block).data() + 1);
    EXPECT_EQ(holder.size, 100u);
    holder.release();
    simhost::Release(block);
}

TEST_F(RbDataTest, OffsetCarryingThePointerToNullDropsTheSize) {
    gDebugging = true;
    REALobject block = simhost::NewBlock(4);
    const auto address = reinterpret_cast<uintptr_t>(simhost::Bytes(block).data());
    test::StderrCapture output;
    {
        rbData holder(block, -static_cast<RBInteger>(address), 0);
        EXPECT_EQ(holder.data, nullptr);
        EXPECT_EQ(holder.size, 0u);
    }
    EXPECT_EQ(output.Take(), "QVT Debug: data is NULL, so size fixed to zero.\n");
    simhost::Release(block);
}

TEST_F(RbDataTest, PinsAStringAndExposesItsBytes) {
    REALstring string = simhost::NewString("h\xC3\xA9llo", hostabi::kEncodingUTF8);
    {
        rbData holder(string);
        ASSERT_NE(holder.data, nullptr);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(holder.data), holder.size), "h\xC3\xA9llo");
        EXPECT_EQ(simhost::RefCount(string), 2);
    }
    EXPECT_EQ(simhost::RefCount(string), 1);
    simhost::Release(string);
}

TEST_F(RbDataTest, ReleaseGivesOwnedStringDataBack) {
    REALstring string = simhost::NewString("abc", hostabi::kEncodingUTF8);
    rbData holder(string);
    ASSERT_TRUE(host::PluginGetStringData(string, hostabi::kEncodingUTF8, &holder.stringData));
    holder.ownsStringData = true;
    gDebugging = true;
    test::StderrCapture output;
    holder.release();
    EXPECT_EQ(output.Take(), "QVT Debug: REALDisposeStringData\n");
    EXPECT_FALSE(holder.ownsStringData);
    simhost::Release(string);
}

struct BytesCase {
    bool hasBytes;
    uintptr_t size;
    uintptr_t expectedSize;
    const char *logged;
};

TEST_F(RbDataTest, BytesOfTheCallersOwnPinNothing) {
    const BytesCase cases[] = {
        {true, 5, 5, ""},
        {true, 0, 0, ""},
        {false, 5, 0, "QVT Debug: data is NULL, so size fixed to zero.\n"},
        {false, 0, 0, ""},
    };
    uint8_t bytes[5] = {};
    gDebugging = true;
    for (const auto &c : cases) {
        test::StderrCapture output;
        {
            rbData holder(c.hasBytes ? bytes : nullptr, c.size);
            EXPECT_EQ(holder.data, c.hasBytes ? bytes : nullptr);
            EXPECT_EQ(holder.size, c.expectedSize);
        }
        EXPECT_EQ(output.Take(), c.logged);
    }
    EXPECT_TRUE(simhost::Calls().empty());
}

TEST_F(RbDataTest, UnlockKeepsTheBytesAndLeakForgetsThePins) {
    REALobject block = simhost::NewBlock(6);
    REALstring string = simhost::NewString("abc");
    {
        rbData holder(block, 0, 0);
        holder.next = &holder;
        holder.unlock();
        EXPECT_EQ(simhost::RefCount(block), 1);
        EXPECT_EQ(holder.data, simhost::Bytes(block).data());
        EXPECT_EQ(holder.size, 6u);
        EXPECT_EQ(holder.next, &holder);
        holder.next = nullptr;
    }
    gDebugging = true;
    test::StderrCapture output;
    {
        rbData pinned(string);
        pinned.leak();
        EXPECT_EQ(pinned.size, 3u);
    }
    EXPECT_EQ(output.Take(), "QVT Debug: rbData::leak\n");
    EXPECT_EQ(simhost::RefCount(string), 2);  // release gave nothing back
    host::REALUnlockString(string);
    simhost::Release(block);
    simhost::Release(string);
}

}  // namespace
}  // namespace qvt
