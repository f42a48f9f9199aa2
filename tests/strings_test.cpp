// Building host strings: the encoding routes, the host-age routes and the
// allocation wrappers beneath the raising routines.
#include <gtest/gtest.h>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/allocation.h"
#include "hostvalues/strings.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {
namespace {

class StringsTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = hostOptions.version;
        gDebugging = false;
    }
    simhost::Options options() const override { return hostOptions; }

    // The host calls that built strings, as "entry args".
    static std::vector<std::string> BuildCalls() {
        std::vector<std::string> calls;
        for (const auto &call : simhost::Calls()) {
            if (call.entry.rfind("REALBuildString", 0) == 0 || call.entry == "REALSetStringEncoding")
                calls.push_back(call.entry);
        }
        return calls;
    }

    simhost::Options hostOptions;
};

TEST_F(StringsTest, EmptyOrNullInputGivesNilWithoutHostCall) {
    EXPECT_EQ(REALBuildUnicodeString(nullptr, 3, hostabi::kEncodingUTF8), nullptr);
    EXPECT_EQ(REALBuildUnicodeString("abc", 0, hostabi::kEncodingUTF8), nullptr);
    EXPECT_EQ(REALBuildUnicodeString("abc", -1, hostabi::kEncodingUTF8), nullptr);
    EXPECT_EQ(CString2RB("", hostabi::kEncodingUTF8), nullptr);
    EXPECT_EQ(CString2RB(nullptr, hostabi::kEncodingUTF8), nullptr);
    EXPECT_TRUE(simhost::Calls().empty());
}

TEST_F(StringsTest, CountAbove31BitsIsRefused) {
    gDebugging = true;
    test::StderrCapture output;
    EXPECT_EQ(REALBuildUnicodeString("abc", int64_t{0x80000000}, hostabi::kEncodingUTF8), nullptr);
    EXPECT_EQ(output.Take(), "QVT Debug: Count too big for REALBuildUnicodeString.\n");
    EXPECT_TRUE(simhost::Calls().empty());
}

struct RouteCase {
    uint32_t given;
    const char *bytes;
    uint32_t asked;
};

TEST_F(StringsTest, EightBitEncodingsOfASCIITextAreAskedAsASCII) {
    const RouteCase cases[] = {
        {0x500, "abc", 0x600},         {0x500, "\xE4", 0x500},     {0x201, "abc", 0x600},
        {0, "abc", 0x600},             {0, "a\x80", 0},            {0xFFFF, "abc", 0x600},
        {0x600, "\xE4", 0x600},        {0x8000100, "abc", 0x8000100},
        {0x8000100, "\xC3\xA4", 0x8000100},
    };
    for (const auto &c : cases) {
        REALstring built = Balanced([&] { return CString2RB(c.bytes, c.given); });
        ASSERT_NE(built, nullptr) << c.given;
        EXPECT_EQ(simhost::StringEncoding(built), c.asked) << c.given << " " << c.bytes;
        EXPECT_EQ(simhost::StringBytes(built), c.bytes);
        simhost::Release(built);
    }
}

TEST_F(StringsTest, UnknownEncodingIsLoggedAndPassedOn) {
    gDebugging = true;
    test::StderrCapture output;
    REALstring built = REALBuildUnicodeString("abc", 3, 12345);
    EXPECT_EQ(output.Take(), "QVT Debug: Unknown encoding in REALBuildUnicodeString 12345\n");
    bool askedWithId = false;
    for (const auto &call : simhost::Calls())
        askedWithId |= call.args.find("encoding=12345") != std::string::npos;
    EXPECT_TRUE(askedWithId);
    if (built) simhost::Release(built);
}

TEST_F(StringsTest, NewHostsBuildWithEncodingInOneCall) {
    REALstring built = REALBuildUnicodeString("abc", 3, hostabi::kEncodingUTF8);
    EXPECT_EQ(BuildCalls(), std::vector<std::string>{"REALBuildStringWithEncoding"});
    simhost::Release(built);
}

class OldHostStringsTest : public StringsTest, public ::testing::WithParamInterface<double> {};

TEST_P(OldHostStringsTest, OldHostsBuildThenLabel) {
    hostOptions.version = GetParam();
    SetUp();
    REALstring built = Balanced([] { return REALBuildUnicodeString("\xE4", 1, 0x201); });
    EXPECT_EQ(BuildCalls(), (std::vector<std::string>{"REALBuildString", "REALSetStringEncoding"}));
    EXPECT_EQ(simhost::StringEncoding(built), 0x201u);
    simhost::Release(built);
}

INSTANTIATE_TEST_SUITE_P(Versions, OldHostStringsTest, ::testing::Values(2011.0, 0.0),
                         [](const auto &param) { return param.param == 0.0 ? "Unknown" : "Y2011"; });

TEST_F(StringsTest, DebugChecksOfTheRequestedEncoding) {
    gDebugging = true;
    const struct {
        const char *text;
        uint32_t encoding;
        const char *log;
    } cases[] = {
        {"a\xE4z", 0x600, "QVT Debug: Error: text is not ascii a\xE4z\n"},
        {"plain", 0x600, ""},
        {"a\xE4z", 0x201, ""},
        {"x", 0x100, "QVT Debug: Error: kREALTextEncodingUTF16 not useful for CString2RB!\n"},
        {"x", 0xC000100, "QVT Debug: Error: kREALTextEncodingUTF32 not useful for CString2RB!\n"},
    };
    for (const auto &c : cases) {
        test::StderrCapture output;
        REALstring built = CString2RB(c.text, c.encoding);
        EXPECT_EQ(output.Take(), c.log) << c.text;
        if (built) simhost::Release(built);
    }
}

TEST(Allocation, AcceptsOneTo31BitSizes) {
    for (int64_t refused : {int64_t{0}, int64_t{-1}, int64_t{0x80000000}, INT64_MIN}) {
        EXPECT_EQ(AllocateMemory(refused), nullptr) << refused;
    }
    auto *bytes = static_cast<unsigned char *>(AllocateMemory(33));
    ASSERT_NE(bytes, nullptr);
    for (int i = 0; i < 33; ++i) EXPECT_EQ(bytes[i], 0);
    SetMemory(bytes, 0xAB, 32);
    EXPECT_EQ(bytes[31], 0xAB);
    EXPECT_EQ(bytes[32], 0);
    ClearMemory(bytes, 16);
    EXPECT_EQ(bytes[15], 0);
    EXPECT_EQ(bytes[16], 0xAB);
    FreeMemory(bytes);
    void *largest = AllocateMemory(0x7FFFFFFF);
    EXPECT_NE(largest, nullptr);
    FreeMemory(largest);
}

}  // namespace
}  // namespace qvt
