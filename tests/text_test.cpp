// rbText's views of strings of every kind, byte order marks, the fallback
// for unknown encodings, check words and chains; four-character codes and
// the log forms that print host values.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "diagnostics/debuglog.h"
#include "kernel_fixture.h"
#include "hostvalues/text.h"
#include "shell/entry.h"

namespace qvt {
namespace {

template <typename Unit>
std::string Native(std::initializer_list<Unit> units) {
    return std::string(reinterpret_cast<const char *>(std::data(units)),
                       units.size() * sizeof(Unit));
}

// A view's units, checked for the zero behind them.
template <typename Unit>
std::vector<uint32_t> Units(rbText &text, rbText::View view) {
    const auto *data = static_cast<const Unit *>(text.Data(view));
    const int32_t length = text.Length(view);
    EXPECT_EQ(data[length], 0u) << "view " << view;
    return std::vector<uint32_t>(data, data + length);
}

std::string Address(const void *p) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", p);
    return text;
}

class TextTest : public test::KernelTest {
protected:
    void TearDown() override {
        gDebugging = false;
        KernelTest::TearDown();
    }
};

TEST_F(TextTest, NilStringIsAnEmptyASCIIWrapper) {
    Balanced([] {
        rbText text(nullptr);
        for (int v = 0; v < rbText::kViewCount; ++v) {
            EXPECT_EQ(text.Length(rbText::View(v)), 0);
            EXPECT_EQ(text.DataOrNull(rbText::View(v)), nullptr);
        }
        EXPECT_EQ(text.UTF32()[0], 0u);
        EXPECT_EQ(text.kind, rbText::kASCIIText);
        EXPECT_EQ(text.encoding, hostabi::kEncodingASCII);
    });
    EXPECT_TRUE(simhost::Calls().empty());
}

TEST_F(TextTest, ViewsOfEachKindOfString) {
    // utf8, macRoman nullptr: not looked at.
    const struct { const char *name; std::string bytes; uint32_t encoding; int32_t kindAfter; const char *utf8, *macRoman;
                   std::vector<uint32_t> utf16, utf32; } cases[] = {
        {"ascii", "abc", 0, 1, "abc", "abc", {0x61, 0x62, 0x63}, {0x61, 0x62, 0x63}},
        {"unknown ascii", "abc", 0xFFFF, 1, "abc", "abc", {0x61, 0x62, 0x63}, {0x61, 0x62, 0x63}},
        {"empty", "", 0x8000100, 1, "", "", {}, {}},
        {"utf8", "a\xC3\xB1\xF0\x9F\x98\x80", 0x8000100, 3, "a\xC3\xB1\xF0\x9F\x98\x80", "a\x96?", {0x61, 0xF1, 0xD83D, 0xDE00}, {0x61, 0xF1, 0x1F600}},
        {"latin1", "a\xF1", 0x201, 3, "a\xC3\xB1", "a\x96", {0x61, 0xF1}, {0x61, 0xF1}},
        {"utf16", Native<uint16_t>({0x61, 0xD83D, 0xDE00}), 0x100, 3, "a\xF0\x9F\x98\x80", "a?", {0x61, 0xD83D, 0xDE00}, {0x61, 0x1F600}},
        {"utf32", Native<uint32_t>({0x61, 0x1F600}), 0xC000100, 3, "a\xF0\x9F\x98\x80", "a?", {0x61, 0xD83D, 0xDE00}, {0x61, 0x1F600}},
        // The host drops one leading mark itself; the wrapper sees the rest.
        {"utf16 swapped", Native<uint16_t>({0xFEFF, 0xFFFE, 0x6100, 0x6200}), 0x100, 3, nullptr, nullptr, {0x61, 0x62}, {0x61, 0x62}},
        {"utf16 both marks", Native<uint16_t>({0xFEFF, 0xFEFF, 0xFFFE, 0x61}), 0x100, 3, nullptr, nullptr, {0x61}, {0x61}},
        {"utf32 mark", Native<uint32_t>({0xFEFF, 0xFEFF, 0x61}), 0xC000100, 3, nullptr, nullptr, {0x61}, {0x61}},
        {"utf8 marks", "\xEF\xBB\xBF" "a\xEF\xBB\xBF", 0x8000100, 3, nullptr, nullptr, {0x61}, {0x61}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        REALstring s = simhost::NewString(c.bytes, c.encoding);
        Balanced([&] {
            rbText text(s);
            EXPECT_EQ(Units<uint16_t>(text, rbText::kUTF16), c.utf16);
            EXPECT_EQ(Units<uint32_t>(text, rbText::kUTF32), c.utf32);
            EXPECT_EQ(text.kind, c.kindAfter);
            if (c.utf8) { EXPECT_EQ(text.Bytes(rbText::kUTF8), std::string(c.utf8)); }
            if (c.macRoman) { EXPECT_EQ(text.Bytes(rbText::kMacRoman), std::string(c.macRoman)); }
            // ASCII text shares the host's bytes in all 8-bit views.
            if (c.kindAfter == rbText::kASCIIText) {
                EXPECT_EQ(text.Data(rbText::kLatin1), text.Data(rbText::kWindowsLatin1));
                EXPECT_EQ(simhost::CountCalls("PluginGetStringData"), 0u);
            }
            EXPECT_FALSE(text.failed);
        });
        EXPECT_EQ(simhost::OpenStringData(), 0u);
        simhost::Release(s);
    }
}

// The wide views when the host gives no string data (the nth request fails,
// UTF-16 asked first): UTF-32 then comes from the UTF-16 view, also when its
// own request succeeds after an earlier one failed. A lone swapped mark is
// swapped, and the mark it becomes is stepped over.
TEST_F(TextTest, WideViewsWhenDataFailsOrNeedsSwapping) {
    const struct { const char *name; std::string bytes; uint32_t encoding; std::size_t failing;
                   std::vector<uint32_t> utf16, utf32; bool failed; const char *log; } cases[] = {
        {"utf32 refused", Native<uint32_t>({0x61, 0x1F600}), 0xC000100, 2, {0x61, 0xD83D, 0xDE00}, {0x61, 0x1F600}, false,
         "REALGetStringData failed.\nTry UTF16 to UTF32 conversion...\n"},
        {"utf32 after utf16 refused", Native<uint32_t>({0x61, 0x1F600}), 0xC000100, 1, {}, {}, true,
         "REALGetStringData failed.\nTry UTF16 to UTF32 conversion...\n"},
        {"latin1 utf32 refused", "a\xF1", 0x201, 2, {0x61, 0xF1}, {0x61, 0xF1}, false,
         "REALGetStringData failed.\nTry UTF16 to UTF32 conversion...\n"},
        // The host takes the first mark as its own and gives one unit, 0xFFFE.
        {"one swapped mark", Native<uint16_t>({0xFEFF, 0xFFFE}), 0x100, 0, {}, {}, false,
         "String is Little Endian. Swap.\nTry UTF16 to UTF32 conversion...\n"},
    };
    gDebugging = true;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        REALstring s = simhost::NewString(c.bytes, c.encoding);
        test::StderrCapture output;
        Balanced([&] {
            rbText text(s);
            if (c.failing) simhost::FailCall(c.failing, "PluginGetStringData");
            EXPECT_EQ(Units<uint16_t>(text, rbText::kUTF16), c.utf16);
            EXPECT_EQ(Units<uint32_t>(text, rbText::kUTF32), c.utf32);
            EXPECT_EQ(text.failed, c.failed);
            simhost::StopFailing();
        });
        std::string log;
        for (const char *at = c.log; *at; ) {
            const char *end = std::strchr(at, '\n') + 1;
            log += "QVT Debug: " + std::string(at, end);
            at = end;
        }
        EXPECT_EQ(output.Take(), log);
        EXPECT_EQ(simhost::OpenStringData(), 0u);
        simhost::Release(s);
    }
}

// Rebuilt as Windows Latin 1; when the host builds no string the wrapper
// holds nil and its views are empty. One log line in the process either way.
TEST_F(TextTest, UnknownEncodingWithHighByteFallsBackToWindowsLatin1LoggedOnce) {
    // failing: the host entry that builds no string, or nullptr.
    const struct { const char *bytes; double version; const char *failing; bool debugging; const char *utf8; } cases[] = {
        {"\xE4" "bcd", 2011.0, "REALBuildString", false, ""},
        {"a\x80", 2013.04, nullptr, true, "a\xE2\x82\xAC"},
        {"\xE4" "bcd", 2013.0, "REALBuildStringWithEncoding", true, ""},
        {"\xE4" "bcd", 2011.0, "REALBuildString", true, ""},
        {"\xE4", 2011.0, nullptr, false, "\xC3\xA4"},
        {"\xE4" "bcd", 2013.0, "REALBuildStringWithEncoding", false, ""},
    };
    test::StderrCapture output;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bytes);
        gDebugging = c.debugging;
        gHostVersion = c.version;
        REALstring s = simhost::NewString(c.bytes, hostabi::kEncodingUnknown);
        simhost::ClearCalls();
        if (c.failing) simhost::FailCall(1, c.failing);
        Balanced([&] {
            rbText text(s);
            EXPECT_TRUE(text.failed);
            EXPECT_EQ(text.kind, rbText::kWideOrNotASCII);
            EXPECT_EQ(text.string == nullptr, c.failing != nullptr);
            EXPECT_EQ(text.encoding, c.failing ? hostabi::kEncodingASCII : hostabi::kEncodingWindowsLatin1);
            EXPECT_EQ(text.Bytes(rbText::kUTF8), std::string(c.utf8));
            if (c.failing) {
                EXPECT_EQ(text.Length(rbText::kMacRoman), 0);
                EXPECT_EQ(simhost::CountCalls("PluginGetStringData"), 0u);
            }
        });
        if (c.failing) {
            simhost::FailCall(1, c.failing);
            EXPECT_EQ(StringToOSType(s), 0x20202020u);
        }
        simhost::StopFailing();
        simhost::Release(s);
    }
    EXPECT_EQ(output.Take(), "QVT Debug: REALBuildUnicodeString failed\n");
}

TEST_F(TextTest, UnknownEncodingIdAndDamagedCheckWords) {
    gDebugging = true;
    REALstring s = simhost::NewString("abc", 12345);
    test::StderrCapture output;
    Balanced([&] {
        rbText text(s);
        EXPECT_EQ(text.kind, rbText::kUnknownEncoding);
        EXPECT_EQ(text.DataOrNull(rbText::kMacRoman), nullptr);
        EXPECT_TRUE(text.failed);
        text.check1 = 7;
        text.check2 = 0;
    });
    EXPECT_EQ(output.Take(),
              "QVT Debug: REALGetStringData failed.\nQVT Debug: Check1 in rbText invalid 7\n"
              "QVT Debug: Check2 in rbText invalid 0\n");
    simhost::Release(s);
}

TEST_F(TextTest, SetStringTreatAsASCIIAndChains) {
    gDebugging = true;
    REALstring a = simhost::NewString("a\xC3\xB1");
    REALstring b = simhost::NewString("x\xF1", hostabi::kEncodingLatin1);
    test::StderrCapture output;
    Balanced([&] {
        rbText *head = nullptr;
        rbText *first = NewText(a);
        rbText *second = NewText(a);
        AddTextChain(&head, first);
        AddTextChain(&head, second);
        EXPECT_EQ(second->next, first);
        second->SetNext(nullptr);
        EXPECT_EQ(second->next, first);
        first->SetString(b);
        EXPECT_EQ(first->encoding, hostabi::kEncodingLatin1);
        first->TreatAsASCII();
        EXPECT_EQ(first->Bytes(rbText::kMacRoman), std::string("x\xF1"));
        FreeTextChain(head);
    });
    EXPECT_EQ(output.Take(), "QVT Debug: Warning: Next already set!\n");
    EXPECT_TRUE(IsASCIIString(nullptr));
    EXPECT_TRUE(IsASCIIString(a) == false && IsASCIIString(b) == false);
    simhost::Release(a);
    simhost::Release(b);
}

TEST_F(TextTest, FourCharacterCodes) {
    for (const auto &[code, bytes, encoding] : {std::tuple{0x61626364u, "abcd", 0x600u},
                                                {0x8A626364u, "\x8A" "bcd", 0u}}) {
        REALstring s = Balanced([value = code] { return OSTypeToString(value); });
        EXPECT_EQ(simhost::StringBytes(s), bytes);
        EXPECT_EQ(simhost::StringEncoding(s), encoding);
        EXPECT_EQ(StringToOSType(s), code);
        simhost::Release(s);
    }
    const std::pair<const char *, uint32_t> codes[] = {
        {"", 0x20202020}, {"abc", 0x61626320}, {"abcdef", 0x61626364}, {"\xC3\xA4" "b", 0x8A622020}};
    for (const auto &[bytes, code] : codes) {
        REALstring s = simhost::NewString(bytes);
        EXPECT_EQ(Balanced([&] { return StringToOSType(s); }), code) << bytes;
        simhost::Release(s);
    }
    EXPECT_EQ(StringToOSType(nullptr), 0x20202020u);
}

// A host with Text values: the record's first word is the text.
const char *gTextRecord[1] = {"t\xC3\xA9xt"};
int gDisposed = 0;
void *FakeGetTextData(void *value, const char *encodingName, RBInteger one) {
    EXPECT_STREQ(encodingName, "utf-8");
    EXPECT_EQ(one, 1);
    return value ? gTextRecord : nullptr;
}
void FakeDisposeTextData(void *record) {
    EXPECT_EQ(record, gTextRecord);
    ++gDisposed;
}
void *ResolveWithText(const char *name) {
    if (std::strcmp(name, "PluginGetTextData") == 0) return reinterpret_cast<void *>(&FakeGetTextData);
    if (std::strcmp(name, "PluginDisposeTextData") == 0) return reinterpret_cast<void *>(&FakeDisposeTextData);
    return simhost::Resolve(name);
}

TEST_F(TextTest, LogFormsPrintHostValues) {
    REALstring s = simhost::NewString("a\xF1", hostabi::kEncodingLatin1);
    auto *value = reinterpret_cast<REALtext>(&gDisposed);
    test::StderrCapture output;
    Balanced([&] {
        DebugLogString(s);
        DebugLogString("Value", s);
        DebugLogString("Nil", nullptr);
        DebugOutputString(s);
    });
    DebugLogTextValue("Caption", value);  // this host has no Text values
    gResolver = &ResolveWithText;
    DebugLogTextValue("Caption", value);
    DebugLogTextValue("None", nullptr);
    const std::string p = "QVT Debug: ";
#if defined(_WIN32)
    const std::string wide = simhost::platform::AnsiText(u"a\u00F1");
#else
    const std::string wide = "a\xC3\xB1";
#endif
    EXPECT_EQ(output.Take(), p + Address(s) + ": a\xC3\xB1\n" + p + "Value " + Address(s) + ": a\xC3\xB1\n" + p + "Nil " +
                                 Address(nullptr) + ": \n" + wide + "\n" + p + "Caption " + Address(value) + " and no text\n" +
                                 p + "Caption " + Address(value) + ": t\xC3\xA9xt\n" + p + "None " + Address(nullptr) + " and no text\n");
    EXPECT_EQ(gDisposed, 1);
    simhost::Release(s);
}

}  // namespace
}  // namespace qvt
