// The decoders against the well-formedness table, and a round trip of every
// code point through the host's own converter.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/unicode.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {
namespace {

// The output before the terminator; nothing may be written behind it.
template <typename Unit, typename In, typename Convert>
std::vector<uint32_t> Decoded(Convert convert, const In *input, std::size_t count) {
    std::vector<Unit> out(2 * count + 2, static_cast<Unit>(0xAAAAAAAA));
    const std::size_t n = convert(input, count, out.data());
    EXPECT_EQ(out[n], 0u);
    EXPECT_EQ(out[n + 1], static_cast<Unit>(0xAAAAAAAA));
    return std::vector<uint32_t>(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(n));
}

std::vector<uint32_t> To32(std::string_view bytes) {
    return Decoded<uint32_t>(ConvertUTF8ToUTF32, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}
std::vector<uint32_t> To16(std::string_view bytes) {
    return Decoded<uint16_t>(ConvertUTF8ToUTF16, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

class UnicodeTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
        gDebugging = true;
    }
    void TearDown() override {
        gDebugging = false;
        HostTest::TearDown();
    }
};

TEST_F(UnicodeTest, UTF8DecodersFollowTheWellFormednessTable) {
    using namespace std::string_literals;
    // illegalAt -1: read to the end; units: UTF-16, where it differs.
    const struct { std::string bytes; std::vector<uint32_t> codePoints; int illegalAt; std::vector<uint32_t> units{}; } cases[] = {
        {"", {}, -1},
        {"a\0b"s, {0x61, 0, 0x62}, -1},
        {"\xC2\x80\xC3\xA4\xE0\xA0\x80\xE2\x82\xAC", {0x80, 0xE4, 0x800, 0x20AC}, -1},
        {"\xED\x9F\xBF\xEE\x80\x80", {0xD7FF, 0xE000}, -1},
        {"\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF", {0x1F600, 0x10FFFF}, -1, {0xD83D, 0xDE00, 0xDBFF, 0xDFFF}},
        // Byte order marks go wherever they stand, and U+FFFE with them.
        {"\xEF\xBB\xBF" "a\xEF\xBB\xBF" "b\xEF\xBF\xBE", {0x61, 0x62}, -1},
        // Overlong forms, surrogates, beyond U+10FFFF.
        {"\xC0\x80", {}, 0}, {"a\xC1\xBF", {0x61}, 1}, {"\xE0\x9F\xBF", {}, 0},
        {"\xF0\x8F\xBF\xBF", {}, 0}, {"ab\xED\xA0\x80", {0x61, 0x62}, 2}, {"\xED\xBF\xBF", {}, 0},
        {"\xF4\x90\x80\x80", {}, 0}, {"\xF5\x80\x80\x80", {}, 0},
        // Stray and bad trail bytes.
        {"a\x80", {0x61}, 1}, {"\xC3\x28", {}, 0}, {"\xE2\x82\x28", {}, 0},
        {"\xF0\x9F\x98\x28", {}, 0}, {"a\xFF", {0x61}, 1},
        // Five- and six-byte leads.
        {"\xF8\x88\x80\x80\x80", {}, 0}, {"x\xFC\x84\x80\x80\x80\x80", {0x78}, 1},
        // Cut short at the end: the offset is the lead byte's.
        {"ab\xE2\x82", {0x61, 0x62}, 2}, {"\xC3", {}, 0}, {"\xF0\x9F\x98", {}, 0},
        {"\xFC\x84", {}, 0},
        // Nothing after the first illegal sequence is read.
        {"a\xC0\x80" "bcd", {0x61}, 1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        const std::string log = c.illegalAt < 0 ? "" : "QVT Debug: Illegal UTF-8 sequence! " + std::to_string(c.illegalAt) + "\n";
        test::StderrCapture output;
        EXPECT_EQ(To32(c.bytes), c.codePoints);
        EXPECT_EQ(To16(c.bytes), c.units.empty() ? c.codePoints : c.units);
        EXPECT_EQ(output.Take(), log + log);
    }
    // The count ends the input, whatever follows it in memory.
    EXPECT_EQ(To32(std::string_view("a\xE2\x82\xAC", 3)), std::vector<uint32_t>{0x61});
}

TEST_F(UnicodeTest, UTF16DecoderJoinsPairsAndDropsBrokenOnes) {
    const struct { std::vector<uint16_t> units; std::vector<uint32_t> values; } cases[] = {
        {{}, {}}, {{0x41, 0xD83D, 0xDE00, 0xDBFF, 0xDFFF}, {0x41, 0x1F600, 0x10FFFF}},
        // A broken pair takes the unit after its first half with it.
        {{0xD83D, 0x41, 0x42}, {0x42}},
        {{0xDC00, 0x41, 0x42}, {0x42}},
        // A surrogate standing last goes out unchanged; marks are kept.
        {{0x41, 0xD83D}, {0x41, 0xD83D}},
        {{0xFEFF, 0xDC00}, {0xFEFF, 0xDC00}}};
    for (const auto &c : cases) {
        EXPECT_EQ(Decoded<uint32_t>(ConvertUTF16ToUTF32, c.units.data(), c.units.size()), c.values) << testing::PrintToString(c.units);
    }
}

TEST_F(UnicodeTest, RoundTripOfEveryCodePointThroughTheHostsConverter) {
    gDebugging = false;
    std::vector<uint32_t> all;
    for (uint32_t c = 0; c <= 0x10FFFF; ++c) {
        if ((c < 0xD800 || c > 0xDFFF) && c != 0xFEFF && c != 0xFFFE) all.push_back(c);
    }
    REALstring wide = simhost::NewString({reinterpret_cast<const char *>(all.data()), all.size() * 4}, hostabi::kEncodingUTF32);
    const std::string utf8 = simhost::StringUTF8(wide).value_or("");
    EXPECT_EQ(To32(utf8), all);

    REALstring narrow = simhost::NewString(utf8, hostabi::kEncodingUTF8);
    REALstringData record{};
    ASSERT_TRUE(host::PluginGetStringData(narrow, hostabi::kEncodingUTF16, &record));
    std::vector<uint16_t> hostUnits(static_cast<std::size_t>(record.length) / 2);
    std::memcpy(hostUnits.data(), record.data, hostUnits.size() * 2);
    host::PluginDisposeStringData(&record);
    EXPECT_EQ(To16(utf8), std::vector<uint32_t>(hostUnits.begin(), hostUnits.end()));
    EXPECT_EQ(Decoded<uint32_t>(ConvertUTF16ToUTF32, hostUnits.data(), hostUnits.size()), all);
    simhost::Release(wide);
    simhost::Release(narrow);
}

}  // namespace
}  // namespace qvt
