// Host strings from UTF-16 and UTF-32 on hosts of each age, and from the
// other shapes of text.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/strings.h"
#include "hostvalues/wide_strings.h"
#include "shell/entry.h"

namespace qvt {
namespace {

// The entries that built the string, with the encoding each was given.
std::vector<std::string> BuildCalls() {
    std::vector<std::string> calls;
    for (const auto &call : simhost::Calls()) {
        const auto at = call.args.find("encoding=");
        if (call.entry.starts_with("REAL") && call.entry.find("String") != std::string::npos &&
            call.entry != "REALUnlockString") {
            calls.push_back(call.entry + (at == std::string::npos ? "" : call.args.substr(at + 8)));
        }
    }
    return calls;
}

std::string Take(REALstring s) {
    if (!s) return "<nil>";
    EXPECT_EQ(simhost::StringEncoding(s), hostabi::kEncodingUTF8);
    std::string bytes = simhost::StringBytes(s);
    simhost::Release(s);
    return bytes;
}

const std::vector<std::string> kWithEncoding16 = {"REALBuildStringWithEncoding=256", "REALConvertString=134217984"};
const std::vector<std::string> kWithEncoding32 = {"REALBuildStringWithEncoding=201326848", "REALConvertString=134217984"};
const std::vector<std::string> kLabelled16 = {"REALBuildString", "REALSetStringEncoding=256", "REALConvertString=134217984"};

struct Age {
    double version;
    std::vector<std::string> utf16Calls, utf32Calls;
};

void PrintTo(const Age &age, std::ostream *out) { *out << age.version; }

class WideStringsTest : public test::HostTest, public ::testing::WithParamInterface<Age> {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = GetParam().version;
        gDebugging = false;
    }
    simhost::Options options() const override {
        simhost::Options o;
        o.version = GetParam().version;
        return o;
    }
};

TEST_P(WideStringsTest, BothRoutesGiveUTF8ThroughTheEntriesOfTheHostsAge) {
    // Code points cycled over counts around the stack buffer's limit of 200
    // values: one of each UTF-8 length, and only pairs in UTF-16, which fill
    // the old hosts' work buffer to its last unit (fenced, so one unit short
    // faults).
    const struct {
        std::vector<uint32_t> cycle;
        std::vector<const char *> utf8;
    } cycles[] = {
        {{0x41, 0xE4, 0x20AC, 0x1F600}, {"A", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}},
        {{0x1F600, 0x10FFFF}, {"\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF"}},
    };
    test::FencedPluginMemory fenced;
    for (const auto &c : cycles) {
        for (std::size_t count : {1u, 199u, 200u, 201u, 450u}) {
            std::vector<uint32_t> values;
            std::vector<uint16_t> units;
            std::string expected;
            for (std::size_t i = 0; i < count; ++i) {
                const uint32_t value = c.cycle[i % c.cycle.size()];
                values.push_back(value);
                if (value > 0xFFFF) {
                    units.insert(units.end(), {static_cast<uint16_t>(0xD800 + ((value - 0x10000) >> 10)),
                                               static_cast<uint16_t>(0xDC00 + ((value - 0x10000) & 0x3FF))});
                } else {
                    units.push_back(static_cast<uint16_t>(value));
                }
                expected += c.utf8[i % c.cycle.size()];
            }
            SCOPED_TRACE(count);
            simhost::ClearCalls();
            EXPECT_EQ(Take(Balanced([&] { return REALBuildUnicodeString(units.data(), 2 * units.size(), 0x100); })), expected);
            EXPECT_EQ(BuildCalls(), GetParam().utf16Calls);
            simhost::ClearCalls();
            EXPECT_EQ(Take(Balanced([&] { return REALBuildUnicodeString(values.data(), 4 * values.size(), 0xC000100); })),
                      expected);
            EXPECT_EQ(BuildCalls(), GetParam().utf32Calls);
        }
    }
    const uint32_t one = 0x41;
    EXPECT_EQ(REALBuildUnicodeStringUTF16(&one, 0), nullptr);
    EXPECT_EQ(REALBuildUnicodeStringUTF32(&one, 0), nullptr);
    // The plug-in's own conversion: surrogates dropped, 0xFFFD beyond
    // U+10FFFF, bytes behind the last whole value ignored.
    if (GetParam().version < 2013.0) {
        EXPECT_EQ(REALBuildUnicodeStringUTF32(&one, 3), nullptr);
        const uint32_t odd[] = {0x41, 0xD800, 0xDFFF, 0x110000, 0xFFFFFFFF, 0x42};
        EXPECT_EQ(Take(REALBuildUnicodeStringUTF32(odd, sizeof odd)), "A\xEF\xBF\xBD\xEF\xBF\xBD" "B");
        EXPECT_EQ(Take(REALBuildUnicodeStringUTF32(odd, 6)), "A");
    }
}

INSTANTIATE_TEST_SUITE_P(HostAges, WideStringsTest,
                         ::testing::Values(Age{2013.04, kWithEncoding16, kWithEncoding32}, Age{2013.0, kWithEncoding16, kWithEncoding32},
                                           Age{2012.99, kWithEncoding16, kWithEncoding16},
                                           Age{2011.0, kLabelled16, kLabelled16}, Age{0.0, kLabelled16, kLabelled16}),
                         [](const ::testing::TestParamInfo<Age> &age) {
                             std::string name = "Y";
                             name += std::to_string(std::lround(age.param.version * 100));
                             return name;
                         });

class TextShapesTest : public WideStringsTest {};

TEST_P(TextShapesTest, LengthPrefixedLimitedAndSixteenBitText) {
    const unsigned char pascal[] = "\x03" "abcdef";
    const unsigned char emptyPascal[] = "\x00" "abc";
    const uint16_t wide[] = {0x61, 0xF1, 0xD83D, 0xDE00, 0, 0x62};
    const uint16_t emptyWide[] = {0};
    EXPECT_EQ(Take(Balanced([&] { return PString2RB(pascal, 0x8000100); })), "abc");
    EXPECT_EQ(Take(Balanced([] { return CString2RB("abcdef", 3, 0x8000100); })), "abc");
    EXPECT_EQ(Take(CString2RB("ab\0cd", 5, 0x8000100)), "ab");
    EXPECT_EQ(Take(Balanced([&] { return UTF16String2RB(wide); })), "a\xC3\xB1\xF0\x9F\x98\x80");
    for (REALstring nil : {PString2RB(emptyPascal, 0x8000100), PString2RB(nullptr, 0x8000100),
                           CString2RB("abc", 0, 0x8000100), CString2RB(nullptr, 4, 0x8000100),
                           UTF16String2RB(emptyWide), UTF16String2RB(nullptr)}) { EXPECT_EQ(nil, nullptr); }
    // PString2RB checks and warns as CString2RB does, under its own name;
    // the limited form never logs.
    gDebugging = true;
    const unsigned char text[] = "\x02" "a\xE4" "z";
    const std::pair<uint32_t, std::string> logs[] = {
        {0x600, "QVT Debug: Error: text is not ascii a\xE4\n"},
        {0x100, "QVT Debug: Error: kREALTextEncodingUTF16 not useful for PString2RB!\n"},
        {0xC000100, "QVT Debug: Error: kREALTextEncodingUTF32 not useful for PString2RB!\n"},
        {0x500, ""}};
    for (const auto &[encoding, log] : logs) {
        test::StderrCapture output;
        simhost::Release(PString2RB(text, encoding));
        EXPECT_EQ(output.Take(), log) << encoding;
    }
    test::StderrCapture output;
    simhost::Release(CString2RB("a\xE4", 2, 0x600));
    EXPECT_EQ(output.Take(), "");
}

INSTANTIATE_TEST_SUITE_P(Current, TextShapesTest,
                         ::testing::Values(Age{2013.04, kWithEncoding16, kWithEncoding32}));

}  // namespace
}  // namespace qvt
