// Chains of heap holders: order, look-up, release, and holders that can't
// be made.
#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/data_chain.h"
#include "shell/entry.h"

namespace qvt {
namespace {

class DataChainTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
    }
};

std::string AddLine(const rbData *holder) {
    char line[64];
    std::snprintf(line, sizeof line, "QVT Debug: AddDataChain %p\n",
                  static_cast<const void *>(holder));
    return line;
}

TEST_F(DataChainTest, LaterHoldersComeFirstAndFreeingGivesEveryPinBack) {
    REALobject a = simhost::NewBlock(4);
    REALobject b = simhost::NewBlock(8);
    REALstring s = simhost::NewString("text");
    gDebugging = true;
    Balanced([&] {
        rbData *head = nullptr;
        rbData *holders[] = {NewBlockData(a, 0, 0), NewStringData(s), NewBlockData(b, 0, 0)};
        test::StderrCapture output;
        std::string expected;
        for (rbData *holder : holders) {
            AddDataChain(&head, holder);
            expected += AddLine(holder);
        }
        EXPECT_EQ(output.Take(), expected);
        EXPECT_EQ(head, holders[2]);
        EXPECT_EQ(head->next, holders[1]);
        EXPECT_EQ(head->next->next, holders[0]);
        EXPECT_EQ(holders[0]->next, nullptr);
        EXPECT_EQ(holders[0]->size, 4u);
        EXPECT_EQ(simhost::RefCount(a), 2);
        EXPECT_EQ(simhost::RefCount(s), 2);

        EXPECT_EQ(FindDataChainObject(head, a), holders[0]);
        EXPECT_EQ(FindDataChainObject(head, b), holders[2]);
        EXPECT_EQ(FindDataChainString(head, s), holders[1]);
        REALstring stranger = simhost::NewString("other");
        EXPECT_EQ(FindDataChainString(head, stranger), nullptr);
        simhost::Release(stranger);

        FreeDataChain(head);
    });
    EXPECT_EQ(simhost::RefCount(a), 1);
    simhost::Release(a);
    simhost::Release(b);
    simhost::Release(s);
}

TEST_F(DataChainTest, NilArgumentsTouchNothing) {
    rbData *head = nullptr;
    rbData *empty = NewBlockData(nullptr, 0, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->data, nullptr);
    AddDataChain(&head, nullptr);
    EXPECT_EQ(head, nullptr);
    AddDataChain(&head, empty);
    EXPECT_EQ(FindDataChainObject(nullptr, reinterpret_cast<REALobject>(&head)), nullptr);
    FreeDataChain(head);
    FreeDataChain(nullptr);
    EXPECT_EQ(head, empty);  // the caller's head pointer is the caller's
    EXPECT_TRUE(simhost::Calls().empty());
}

struct FailedHolderCase {
    const char *failingEntry;
    bool string;
};

TEST_F(DataChainTest, HolderThatCantBeMadeIsNullAndHoldsNothing) {
    // Failures while pinning: the one before the pin, and those after it,
    // which the holder must give back on the way out.
    const FailedHolderCase cases[] = {
        {"REALLockObject", false},
        {"memoryBlockGetSize", false},
        {"memoryBlockGetPtr", false},
        {"REALLockString", true},
        {"StringGetCString", true},
    };
    gDebugging = true;
    // Unlogged, the host answers these entries without its lock until a
    // failure is armed.
    for (bool logCalls : {true, false}) {
        simhost::Options options;
        options.logCalls = logCalls;
        simhost::Reset(options);
        REALobject block = simhost::NewBlock(4);
        REALstring string = simhost::NewString("text");
        for (const auto &c : cases) {
            simhost::ThrowOnNextCall(c.failingEntry, [] { throw std::runtime_error("host"); });
            test::StderrCapture output;
            Balanced([&] {
                EXPECT_EQ(c.string ? NewStringData(string) : NewBlockData(block, 0, 0), nullptr)
                    << c.failingEntry << " logged " << logCalls;
            });
            EXPECT_EQ(output.Take(), "QVT Debug: Failed to allocate rbData object.\n");
        }
        simhost::Release(block);
        simhost::Release(string);
    }
}

}  // namespace
}  // namespace qvt
