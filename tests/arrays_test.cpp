// Array access on the simulated host: the header test on each layout, the
// host's procedures and the direct way, and the handles of Object and
// String elements.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/arrays.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using Values = std::vector<int64_t>;

struct Host { const char *label; double version; bool brokenHeader, direct; };

const Host kHosts[] = {{"2013.04", 2013.04, false, true}, {"2007.5, older layout", 2007.5, false, true},
                       {"2013.04, broken header", 2013.04, true, false},
                       {"2007.5, broken header", 2007.5, true, false}};

class ArraysTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        UseHost(kHosts[0]);
    }
    void TearDown() override {
        gDebugging = false;
        HostTest::TearDown();
    }
    static void UseHost(const Host &host) {
        simhost::Options options;
        options.version = host.version;
        options.oldArrayHeader = host.brokenHeader;
        simhost::Reset(options);
        gResolver = &simhost::Resolve, gHostVersion = host.version;
        gArrayTested = gArrayDirect = false;
    }
};

TEST_F(ArraysTest, HeaderTestPassesOnlyOnAKnownLayoutAndElementsWorkEitherWay) {
    for (const Host &host : kHosts) {
        SCOPED_TRACE(host.label);
        UseHost(host);
        Balanced([] { TestArray(); });
        EXPECT_EQ(std::pair(gArrayTested.load(), gArrayDirect.load()), std::pair(true, host.direct));

        REALarray bytes = simhost::NewArray(simhost::kArrayUInt8, {7, 8, 9});
        const auto *data = static_cast<const uint8_t *>(GetArrayData(bytes));
        EXPECT_EQ((data ? Values(data, data + 3) : Values{}), (host.direct ? Values{7, 8, 9} : Values{}));
        simhost::Release(bytes);

        REALarray array = simhost::NewArray(simhost::kArrayInteger, {5, -7, 9});
        simhost::ClearCalls();
        ArrayInteger value = 0;
        Balanced([&] { REALGetArrayValue(array, 1, &value); });
        EXPECT_EQ(value, -7);
        EXPECT_EQ(REALGetArrayInt(array, 2), 9);
        Balanced([&] { REALSetArrayValue(array, 0, ArrayInteger{-2147483647 - 1}); });
        REALAppendArrayValue(array, ArrayInteger{11});
        EXPECT_EQ(simhost::ArrayValues(array), (Values{-2147483648LL, -7, 9, 11}));
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        // The direct way asks the host for the bounds alone.
        EXPECT_EQ(simhost::CountCalls("PluginIntegerArrayGetProc") + simhost::CountCalls("PluginIntegerArraySetProc"),
                  host.direct ? 0u : 3u);
        simhost::Release(array);
    }
}

TEST_F(ArraysTest, FailedTestLogsTheFirstFailingCheckOnly) {
    const std::string first = "QVT Debug: TestArray 2013.040000\n";
    const std::tuple<Host, bool, std::string> cases[] = {
        {kHosts[2], true, first + "QVT Debug: refCount wrong 0\n"}, {kHosts[0], true, first}, {kHosts[2], false, ""}};
    for (const auto &[host, debugging, logged] : cases) {
        UseHost(host);
        gDebugging = debugging;
        test::StderrCapture output;
        TestArray();
        EXPECT_EQ(output.Take(), logged);
    }
}

TEST_F(ArraysTest, TestRunsOnceAtFirstUseOfAnElement) {
    REALarray array = simhost::NewArray(simhost::kArrayInteger, {1, 2});
    EXPECT_EQ(std::pair(GetArrayUBound(array), gArrayTested.load()), std::pair(RBInteger{1}, false));
    EXPECT_EQ(REALGetArrayInt(array, 1), 2);
    EXPECT_NE(GetArrayData(array), nullptr);
    EXPECT_EQ(simhost::CountCalls("RuntimeArrayCreateSingleDimBoundedArray"), 1u);
    simhost::Release(array);
}

TEST_F(ArraysTest, BadIndexRaisesAndLeavesThePlace) {
    const struct { Values elements; RBInteger index; const char *message; } cases[] = {
        {{1, 2, 3}, 3, "The parameter index  is too big. Range is 0 to 2, but value is 3."},
        {{1, 2, 3}, -1, "The parameter index  is too small. Range is 0 to 2, but value is -1."},
        {{}, 0, "The parameter index  is too big. Range is 0 to -1, but value is 0."},
    };
    for (const auto &c : cases) {
        REALarray array = simhost::NewArray(simhost::kArrayInteger, c.elements);
        const std::string raised = std::string("OutOfBoundsException: ") + c.message;
        ArrayInteger place = 99;
        Balanced([&] { REALGetArrayValue(array, c.index, &place); });
        EXPECT_EQ(place, 99);
        EXPECT_EQ(OneException(), raised);
        EXPECT_EQ(REALGetArrayInt(array, c.index), 0);
        EXPECT_EQ(OneException(), raised);
        REALSetArrayValue(array, c.index, ArrayInteger{4});
        EXPECT_EQ(OneException(), raised);
        EXPECT_EQ(simhost::ArrayValues(array), c.elements);
        simhost::Release(array);
    }
}

TEST_F(ArraysTest, NilArrayLogsUnderTheRoutinesName) {
    gDebugging = true;
    test::StderrCapture output;
    ArrayInteger place = 99;
    REALGetArrayValue(nullptr, 0, &place);
    EXPECT_EQ(REALGetArrayInt(nullptr, 0), 0);
    EXPECT_EQ(REALGetArrayObject(nullptr, 0), nullptr);
    REALSetArrayValue(nullptr, 0, ArrayInteger{1});
    REALAppendArrayValue(nullptr, ArrayInteger{1});
    EXPECT_EQ(output.Take(),
              "QVT Debug: REALGetArrayValue Array is nil\n"
              "QVT Debug: REALGetArrayInt Array is nil\n"
              "QVT Debug: REALGetArrayObject Array is nil\n"
              "QVT Debug: REALSetArrayValue Array is nil\n");
    EXPECT_EQ(std::pair(place, GetArrayUBound(nullptr)), std::pair(ArrayInteger{99}, RBInteger{-1}));
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    EXPECT_FALSE(gArrayTested);
}

TEST_F(ArraysTest, ProceduresComeThroughTheSelectorsSecondName) {
    simhost::Options options;
    options.missingEntries = {"PluginUInt8ArrayGetProc"};
    simhost::Reset(options);
    REALarray array = simhost::NewArray(simhost::kArrayUInt8, {0x80, 0xFF});
    uint8_t place = 0;
    host::PluginUInt8ArrayGetProc(array, 1, &place);
    EXPECT_EQ(place, 0xFF);
    host::PluginUInt8ArrayGetProc(array, 0, nullptr);
    EXPECT_EQ(std::pair(simhost::CountCalls("RuntimeArrayDirectGetGetProc"), simhost::CountCalls("ArrayElementGet")),
              std::pair(std::size_t{2}, std::size_t{1}));
    simhost::Release(array);
}

// The simulated host has no Object or String arrays; an array of word-wide
// integers stands in for one, its elements holding handles.
class HandleArraysTest : public ArraysTest {
protected:
    void SetUp() override {
        ArraysTest::SetUp();
        array = simhost::NewArray(sizeof(void *) == 8 ? simhost::kArrayInt64 : simhost::kArrayInt32, {0, 0, 0});
        TestArray();
        ASSERT_TRUE(gArrayDirect);
    }
    void TearDown() override {
        simhost::Release(array);
        ArraysTest::TearDown();
    }
    void *Element(std::size_t index) const {
        return reinterpret_cast<void *>(static_cast<intptr_t>(simhost::ArrayValues(array)[index]));
    }
    REALarray array = nullptr;
};

TEST_F(HandleArraysTest, ObjectElementsKeepTheirReferences) {
    REALobject first = simhost::NewBlock(1), second = simhost::NewBlock(2);
    REALSetArrayValue(array, 1, first);
    simhost::Release(first);  // the array's reference is the last

    REALSetArrayValue(array, 1, second);
    EXPECT_EQ(Element(1), second);
    EXPECT_EQ(std::pair(simhost::RefCount(first), simhost::RefCount(second)), std::pair(0L, 2L));
    REALobject read = REALGetArrayObject(array, 1), place = nullptr;
    REALGetArrayValue(array, 1, &place);
    EXPECT_EQ(std::tuple(read, place, simhost::RefCount(second)), std::tuple(second, second, 4L));
    for (REALobject o : {read, place}) simhost::Release(o);
    REALSetArrayValue(array, 1, static_cast<REALobject>(nullptr));
    EXPECT_EQ(std::tuple(Element(1), simhost::RefCount(second), REALGetArrayObject(array, 1)),
              std::tuple(nullptr, 1L, nullptr));
    simhost::Release(second);
}

TEST_F(HandleArraysTest, StringElementsKeepTheirReferences) {
    REALstring text = simhost::NewString("abc");
    REALSetArrayValue(array, 0, text);
    EXPECT_EQ(simhost::RefCount(text), 2);
    REALstring read = REALGetArrayString(array, 0);
    EXPECT_EQ(std::pair(read, simhost::RefCount(text)), std::pair(text, 3L));
    simhost::Release(read);
    REALSetArrayValue(array, 0, static_cast<REALstring>(nullptr));
    EXPECT_EQ(std::pair(simhost::RefCount(text), Element(0)), std::pair(1L, static_cast<void *>(nullptr)));
    simhost::Release(text);
}

}  // namespace
}  // namespace qvt
