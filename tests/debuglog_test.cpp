// The sink, the front-end family, the debug file and the flag's property.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "diagnostics/debugger_channel.h"
#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using test::StderrCapture;

std::string Logged(auto &&write) {
    StderrCapture output;
    write();
    return output.Take();
}

// A wide text through the debugger channel, and what a listener gets of it:
// UTF-8, or under Windows the narrow line of the debugger.
std::string ThroughChannel(const char16_t *text) {
    return Logged([&] { platform::OutputDebugWide(reinterpret_cast<const uint16_t *>(text)); });
}
std::string Heard([[maybe_unused]] const char16_t *text, [[maybe_unused]] const char *utf8) {
#if defined(_WIN32)
    return simhost::platform::AnsiText(text) + "\n";
#else
    return std::string(utf8) + "\n";
#endif
}

TEST(DebugLogFrontEnds, EveryKindFollowsTheOneRule) {
    int dummy = 0;
    const struct {
        std::string got, want;
    } cases[] = {
        {Logged([] { DebugLogText("plain"); }), "QVT Debug: plain\n"},
        {Logged([] { DebugLogInt32("ByteCount", 3, 4); }), "QVT Debug: ByteCount 3, 4\n"},
        {Logged([] { DebugLogInt32("n", -1); }), "QVT Debug: n -1\n"},
        {Logged([] { DebugLogUInt32("n", 0xFFFFFFFFu); }), "QVT Debug: n 4294967295\n"},
        {Logged([] { DebugLogLong("n", -5L, 6L); }), "QVT Debug: n -5, 6\n"},
        {Logged([] { DebugLogULong("n", 7UL); }), "QVT Debug: n 7\n"},
        {Logged([] { DebugLogInt64("n", INT64_MIN); }), "QVT Debug: n -9223372036854775808\n"},
        {Logged([] { DebugLogUInt64("n", UINT64_MAX); }), "QVT Debug: n 18446744073709551615\n"},
        {Logged([] { DebugLogDouble("v", 2013.04, 0.5); }), "QVT Debug: v 2013.040000, 0.500000\n"},
        {Logged([] { DebugLogPointer("p", nullptr); }), "QVT Debug: p " + test::PointerText(nullptr) + "\n"},
        {Logged([&] { DebugLogPointer("p", &dummy); }),
         [&] {
             char expected[64];
             std::snprintf(expected, sizeof expected, "QVT Debug: p %p\n",
                           static_cast<void *>(&dummy));
             return std::string(expected);
         }()},
        {Logged([] { DebugLogStrings("Error:", "a", "b"); }), "QVT Debug: Error: a, b\n"},
        {Logged([] { DebugLogInt32("t", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10); }),
         "QVT Debug: t 1, 2, 3, 4, 5, 6, 7, 8, 9, 10\n"},
        {Logged([] { DebugLogWide(L"wide"); }), "QVT Debug: wide\n"},
        {Logged([] { DebugLogTextWide("t", L"w"); }), "QVT Debug: t w\n"},
        {ThroughChannel(u"\u07FF"), Heard(u"\u07FF", "\xDF\xBF")},
        {ThroughChannel(u"\u0800"), Heard(u"\u0800", "\xE0\xA0\x80")},
        {ThroughChannel(u"\uFFFF"), Heard(u"\uFFFF", "\xEF\xBF\xBF")},
        {ThroughChannel(u"\U00010000"), Heard(u"\U00010000", "\xF0\x90\x80\x80")},
    };
    for (const auto &c : cases) EXPECT_EQ(c.got, c.want);
}

TEST(DebugLogFrontEnds, FormatsAreGeneratedByTheRule) {
    using logkind::kFormat;
    EXPECT_STREQ((kFormat<logkind::Int32, 2>.data()), "%s%s %d, %d");
    EXPECT_STREQ((kFormat<logkind::Int64, 1>.data()), "%s%s %lld");
    EXPECT_STREQ((kFormat<logkind::ULong, 3>.data()), "%s%s %lu, %lu, %lu");
}

TEST(DebugLogSink, CutsLongLinesAt4095Characters) {
    const std::string longText(5000, 'x');
    EXPECT_EQ(Logged([&] { DebugLog("%s", longText.c_str()); }), longText.substr(0, 4095) + "\n");
    EXPECT_EQ(Logged([&] { DebugLogLine(longText.c_str()); }), longText + "\n");
}

class DebugFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        name = "test " + std::to_string(::getpid());
        gpartname = name.c_str();
        path = "/tmp/qvtdebug " + name + ".txt";
    }
    void TearDown() override {
        CloseDebugFile();
        std::remove(path.c_str());
        gpartname = nullptr;
    }
    static std::string Contents(const std::string &file) {
        std::ifstream in(file);
        std::stringstream all;
        all << in.rdbuf();
        return all.str();
    }
    std::string name, path;
};

TEST_F(DebugFileTest, LinesGoToTheFileWithALineEnd) {
    OpenDebugFileWrite();
    EXPECT_EQ(Logged([] { DebugLogText("one"); }), "");
    DebugLogInt32("two", 2);
    EXPECT_EQ(Contents(path), "QVT Debug: one\nQVT Debug: two 2\n");
    CloseDebugFile();
    OpenDebugFileAppend();
    DebugLogText("three");
    CloseDebugFile();
    EXPECT_EQ(Contents(path), "QVT Debug: one\nQVT Debug: two 2\nQVT Debug: three\n");
    OpenDebugFileWrite();
    CloseDebugFile();
    EXPECT_EQ(Contents(path), "");
}

TEST_F(DebugFileTest, FailureToOpenIsReportedWithoutPrefix) {
    gpartname = "no such dir/x";
    EXPECT_EQ(Logged([] { OpenDebugFileAppend(); }),
              "Failed to open debug file: ~/qvtdebug no such dir/x.txt\n");
    EXPECT_EQ(Logged([] { DebugLogText("after"); }), "QVT Debug: after\n");
}

TEST_F(DebugFileTest, OpeningAgainClosesTheFirstFileEvenWhenTheNewOneFails) {
    OpenDebugFileWrite();
    gpartname = "no such dir/x";
    Logged([] { OpenDebugFileWrite(); });
    EXPECT_EQ(Logged([] { DebugLogText("to the debugger"); }), "QVT Debug: to the debugger\n");
    EXPECT_EQ(Contents(path), "");
}

TEST(DebuggingProperty, SetterStoresAnyNonZeroAsTrue) {
    gDebugging = true;
    DebuggingSetter(nullptr, 0, 0);
    EXPECT_FALSE(DebuggingGetter(nullptr, 0));
    DebuggingSetter(nullptr, 0, 2);
    EXPECT_TRUE(DebuggingGetter(nullptr, 0));
    DebuggingSetter(nullptr, 0, -1);
    EXPECT_TRUE(Debugging());
}

TEST(DataChecks, ReportOnlyWithTheFlagOn) {
    REALclassDefinition classDef{};
    classDef.forSystemUse = 24;
    REALcontrolDefinition controlDef{};
    auto instance = reinterpret_cast<REALobject>(0x100);
    gDebugging = false;
    EXPECT_EQ(Logged([&] { CheckClassData(nullptr, &classDef); }), "");
    gDebugging = true;
    EXPECT_EQ(Logged([&] { CheckClassData(nullptr, nullptr); }),
              "QVT Debug: REALGetClassData with nil instance " + test::PointerText(nullptr) + "\n");
    EXPECT_EQ(Logged([&] { CheckClassData(instance, &classDef); }),
              "QVT Debug: REALGetClassData with dataSize 0\n");
    classDef.dataSize = 16;
    classDef.forSystemUse = 32;
    EXPECT_EQ(Logged([&] { CheckClassData(instance, &classDef); }),
              "QVT Debug: REALGetClassData with forSystemUse 32\n");
    EXPECT_EQ(Logged([&] { CheckControlData(instance, &controlDef); }),
              "QVT Debug: REALGetControlData with dataSize 0\n"
              "QVT Debug: REALGetControlData with forSystemUse 0\n");
    controlDef.dataSize = 8;
    controlDef.forSystemUse = 1;
    EXPECT_EQ(Logged([&] { CheckControlData(instance, &controlDef); }), "");
}

}  // namespace
}  // namespace qvt
