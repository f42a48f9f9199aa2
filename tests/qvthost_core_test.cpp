// What the command-line host reads from a person: declarations, the words of
// a script line and typed values with their ranges; how it calls a function
// known only by the classes of its arguments; and how it shows them: the
// parts of a long block around its changes, and JSON strings.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/format.h"
#include "cli/guard.h"
#include "cli/invoke.h"
#include "cli/outcome.h"
#include "cli/values.h"

namespace qvthost {
namespace {

// A value as one line: "123" for bits (hex when negative), "1.5", "true",
// "text 616263 @134217984", "block 00FF", "place self+4 ", "nil", "[7,4]".
std::string Show(const Value &value) {
    struct {
        std::string operator()(uint64_t bits) const {
            char text[24];
            std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(bits));
            return static_cast<int64_t>(bits) < 0 ? text : std::to_string(bits);
        }
        std::string operator()(double real) const { return std::to_string(real); }
        std::string operator()(bool truth) const { return truth ? "true" : "false"; }
        std::string operator()(const Text &t) const {
            return "text " + HexDigits(t.bytes) + " @" + std::to_string(t.encoding);
        }
        std::string operator()(const BlockBytes &b) const { return "block " + HexDigits(b.bytes); }
        std::string operator()(const Place &p) const {
            return "place " + p.base + (p.offset < 0 ? "" : "+") + std::to_string(p.offset) + " " +
                   HexDigits(p.bytes);
        }
        std::string operator()(Nil) const { return "nil"; }
        std::string operator()(const std::vector<uint64_t> &v) const {
            std::string out = "[";
            for (auto e : v) out += (out.size() > 1 ? "," : "") + std::to_string(e);
            return out + "]";
        }
    } show;
    return std::visit(show, value);
}

struct ValueRow {
    const char *parameter;  // "x as Int8", "values() as UInt8"
    std::string text;
    std::string expected;  // Show(value), or "error: " and the message
};

const std::string kIntegerMax = std::to_string(INTPTR_MAX);

const std::vector<ValueRow> kValues = {
    // Every integer width at both ends, decimal and hex.
    {"x as Int8", "127", "127"},
    {"x as Int8", "-128", "0xFFFFFFFFFFFFFF80"},
    {"x as Int8", "128", "error: 128 does not fit Int8 (-128 to 127)"},
    {"x as Int8", "-129", "error: -129 does not fit Int8 (-128 to 127)"},
    {"x as Int8", "0x7f", "127"},
    {"x as Int8", "0x80", "error: 0x80 does not fit Int8 (-128 to 127)"},
    {"x as UInt8", "255", "255"},
    {"x as UInt8", "256", "error: 256 does not fit UInt8 (0 to 255)"},
    {"x as UInt8", "-1", "error: -1 does not fit UInt8 (0 to 255)"},
    {"x as UInt8", "-0", "0"},
    {"x as Int16", "-32768", "0xFFFFFFFFFFFF8000"},
    {"x as Int16", "32768", "error: 32768 does not fit Int16 (-32768 to 32767)"},
    {"x as UInt16", "0xFFFF", "65535"},
    {"x as UInt16", "0x10000", "error: 0x10000 does not fit UInt16 (0 to 65535)"},
    {"x as Int32", "-2147483648", "0xFFFFFFFF80000000"},
    {"x as Int32", "2147483648",
     "error: 2147483648 does not fit Int32 (-2147483648 to 2147483647)"},
    {"x as UInt32", "4294967295", "4294967295"},
    {"x as UInt32", "4294967296", "error: 4294967296 does not fit UInt32 (0 to 4294967295)"},
    {"x as Int64", "-9223372036854775808", "0x8000000000000000"},
    {"x as Int64", "9223372036854775808",
     "error: 9223372036854775808 does not fit Int64 (-9223372036854775808 to 9223372036854775807)"},
    {"x as UInt64", "18446744073709551615", "0xFFFFFFFFFFFFFFFF"},
    {"x as UInt64", "0xFFFFFFFFFFFFFFFF", "0xFFFFFFFFFFFFFFFF"},
    {"x as UInt64", "18446744073709551616",
     "error: 18446744073709551616 does not fit UInt64 (0 to 18446744073709551615)"},
    {"x as integer", kIntegerMax, kIntegerMax},
    {"x as Integer", kIntegerMax + "0",
     "error: " + kIntegerMax + "0 does not fit Integer (-" +
         std::to_string(static_cast<uint64_t>(INTPTR_MAX) + 1) + " to " + kIntegerMax + ")"},
    {"x as Integer", "12abc", "error: '12abc' is not a whole number (decimal or 0x hex)"},
    {"x as Integer", "0x", "error: '0x' is not a whole number (decimal or 0x hex)"},
    {"x as Integer", "", "error: '' is not a whole number (decimal or 0x hex)"},
    {"x as Integer", "1.5", "error: '1.5' is not a whole number (decimal or 0x hex)"},
    {"x as Integer", "nil", "error: 'nil' is not a whole number (decimal or 0x hex)"},
    // Floating point.
    {"x as Double", "1.5", "1.500000"},
    {"x as double", "-2e3", "-2000.000000"},
    {"x as Double", "1e999", "error: 1e999 does not fit Double"},
    {"x as Double", "one", "error: 'one' is not a number"},
    {"x as Double", " 1", "error: ' 1' is not a number"},
    {"x as Single", "0.25", "0.250000"},
    {"x as Single", "3.5e38", "error: 3.5e38 does not fit Single"},
    // Boolean.
    {"x as Boolean", "true", "true"},
    {"x as boolean", "FALSE", "false"},
    {"x as Boolean", "1", "error: a Boolean is true or false, not '1'"},
    // Strings with their encoding.
    {"x as String", "text:abc", "text 616263 @134217984"},
    {"x as String", "hex:61 62", "text 6162 @134217984"},
    {"x as String", "text:a@enc=0x600", "text 61 @1536"},
    {"x as String", "text:a@b@enc=513", "text 614062 @513"},
    {"x as String", "text:", "text  @134217984"},
    {"x as String", "nil", "nil"},
    {"x as String", "text:a@enc=-1", "error: @enc= needs an encoding id, not '-1'"},
    {"x as String", "hex:6", "error: hex: needs two digits per byte"},
    {"x as String", "hex:zz", "error: 'z' is not a hex digit"},
    {"x as String", "abc", "error: a String is text:..., hex:... or nil"},
    {"x as String", "zero:2", "error: a String is text:..., hex:... or nil"},
    // Places for a Ptr.
    {"x as Ptr", "ptr:@self+4", "place self+4 "},
    {"x as Ptr", "ptr:@a", "place a+0 "},
    {"x as Ptr", "ptr:@self-2", "place self-2 "},
    {"x as Ptr", "hex:0102", "place +0 0102"},
    {"x as Ptr", "nil", "nil"},
    {"x as Ptr", "ptr:@+1", "error: ptr:@ needs a block's name"},
    {"x as Ptr", "ptr:@self+x", "error: 'x' is not an offset"},
    {"x as Ptr", "12", "error: a Ptr is ptr:@self+N, ptr:@name+N, a block's bytes or nil"},
    // Blocks.
    {"x as MemoryBlock", "hex:00ff", "block 00FF"},
    {"x as Memoryblock", "hex:00 FF_01", "block 00FF01"},
    {"x as MemoryBlock", "text:hi", "block 6869"},
    {"x as MemoryBlock", "zero:3", "block 000000"},
    {"x as MemoryBlock", "zero:0", "block "},
    {"x as MemoryBlock", "nil", "nil"},
    {"x as MemoryBlock", "zero:-1", "error: zero:N needs a byte count, not '-1'"},
    {"x as MemoryBlock", "zero:268435457",
     "error: zero:268435457 is over the cap of 268435456 bytes (256 MiB)"},
    {"x as MemoryBlock", "file:.", "error: cannot read file:.: not a regular file"},
    {"x as MemoryBlock", "file:/nonexistent/qvt",
     "error: cannot read file:/nonexistent/qvt: No such file or directory"},
    {"x as MemoryBlock", "0102",
     "error: a MemoryBlock is hex:..., text:..., zero:N, file:PATH or nil"},
    // Arrays, element by element.
    {"values() as UInt8", "[7,4]", "[7,4]"},
    {"values() as UInt8", "7, 4", "[7,4]"},
    {"values() as UInt8", "[]", "[]"},
    {"values() as UInt8", "nil", "nil"},
    {"values() as UInt8", "[7,256]", "error: 256 does not fit UInt8 (0 to 255)"},
    {"values() as UInt8", "[7,]", "error: '' is not a whole number (decimal or 0x hex)"},
};

TEST(QvthostValues, ParseEveryTypeWithItsRange) {
    for (const auto &row : kValues) {
        std::string error;
        auto signature = ParseDeclaration(std::string("F(") + row.parameter + ")", error);
        ASSERT_TRUE(signature) << row.parameter << ": " << error;
        auto value = ParseValue(signature->parameters.at(0), row.text, error);
        EXPECT_EQ(value ? Show(*value) : "error: " + error, row.expected)
            << row.parameter << " <- '" << row.text << "'";
    }
}

// "Name(p:Type=default, ...) -> Result, n required" or "error: ...".
std::string ShowSignature(std::string_view text) {
    std::string error;
    auto signature = ParseDeclaration(text, error);
    if (!signature) return "error: " + error;
    std::string out = signature->name + "(";
    for (const auto &p : signature->parameters) {
        out += (out.back() == '(' ? "" : ", ") + p.name + ":" + TypeName(p) +
               (p.assigns ? " assigned" : "") + (p.fallback ? "=" + *p.fallback : "");
    }
    out += ")";
    if (signature->result != nullptr) out += std::string(" -> ") + signature->result->name;
    return out + ", " + std::to_string(signature->Required()) + " required";
}

TEST(QvthostValues, ReadDeclarations) {
    const struct {
        const char *text;
        const char *expected;
    } rows[] = {
        {"GetBitQVT(Bit as UInt64) as Integer", "GetBitQVT(Bit:UInt64) -> Integer, 1 required"},
        {"Close", "Close(), 0 required"},
        {"Size as Int64", "Size() -> Int64, 0 required"},
        {"FindByteQVT(values() as UInt8, StartByteOffset as Integer = 0) as Integer",
         "FindByteQVT(values:UInt8 array, StartByteOffset:Integer=0) -> Integer, 1 required"},
        {"OSTypeQVT(offset as Integer, assigns value as String)",
         "OSTypeQVT(offset:Integer, value:String assigned), 2 required"},
        {"Twice(extends ref as MemoryBlock, n As integer) As memoryblock",
         "Twice(n:Integer) -> MemoryBlock, 1 required"},
        {"  Spaced( a as Double ,b as Boolean = true )  ",
         "Spaced(a:Double, b:Boolean=true), 1 required"},
        {"Paint(c as Color)", "error: parameter c has a type this host cannot pass: Color"},
        {"Each(v() as String)", "error: parameter v has a type this host cannot pass: String()"},
        {"Odd(x Integer)", "error: 'x Integer' is not 'name as Type'"},
        {"Open(x as Integer", "error: the parameter list has no closing parenthesis"},
        {"Half() as", "error: 'as' is not 'as Type'"},
        {"Tint() as Color", "error: the result has a type this host cannot read: Color"},
        {"", "error: a declaration starts with a name"},
    };
    for (const auto &row : rows) EXPECT_EQ(ShowSignature(row.text), row.expected) << row.text;
}

TEST(QvthostValues, SplitScriptLines) {
    const struct {
        const char *line;
        std::vector<std::string> words;  // {"error: ..."} when it does not split
    } rows[] = {
        {"a b\t c", {"a", "b", "c"}},
        {"'x y' z", {"x y", "z"}},
        {"'GetBitQVT(Bit as UInt64) as Integer' 3", {"GetBitQVT(Bit as UInt64) as Integer", "3"}},
        {R"("a\"b\\c" 'd\e')", {R"(a"b\c)", R"(d\e)"}},
        {"text:'two words'x", {"text:two wordsx"}},
        {"a # a comment", {"a"}},
        {"a#b", {"a#b"}},
        {"   # only a comment", {}},
        {"", {}},
        {"@a = hex:00\r", {"@a", "=", "hex:00"}},
        {"say 'open", {"error: the quote ' at column 5 is not closed"}},
    };
    for (const auto &row : rows) {
        std::string error;
        auto words = SplitWords(row.line, error);
        EXPECT_EQ(words ? *words : std::vector<std::string>{"error: " + error}, row.words)
            << row.line;
    }
}

// Functions of every shape a declaration maps to; each result weighs every
// argument by its place, so that one argument in a wrong place shows.
uint8_t AddBytes(uint8_t a, uint8_t b) {
    return static_cast<uint8_t>(a + 2 * b);
}
int16_t Negate16(int16_t a) {
    return static_cast<int16_t>(-a);
}
bool IsNegative(int64_t value) {
    return value < 0;
}
uint32_t Swap32(uint32_t n) {
    return (n >> 16) | (n << 16);
}
uint64_t Mix(uintptr_t a, uint64_t b, uint32_t c, bool d) {
    return a + 3 * b + 5 * uint64_t{c} + 7 * d;
}
double Weighted(intptr_t a, intptr_t b, intptr_t c, intptr_t d, intptr_t e, intptr_t f, intptr_t g,
                intptr_t h, double t, intptr_t i, intptr_t j) {
    return static_cast<double>(a + 2 * b + 3 * c + 4 * d + 5 * e + 6 * f + 7 * g + 8 * h + 10 * i +
                               11 * j) +
           t;
}
double Lead(double d, int8_t a, intptr_t b) {
    return d * a - static_cast<double>(b);
}
float Scale(intptr_t n, float f) {
    return f * static_cast<float>(n);
}
intptr_t Last(intptr_t a, intptr_t b, intptr_t c, intptr_t d, intptr_t e, intptr_t f, intptr_t g,
              intptr_t h, intptr_t i, intptr_t j, intptr_t k, intptr_t l, intptr_t m, intptr_t n) {
    return a - b + c - d + e - f + g - h + i - j + k - l + m - 14 * n;
}
uint64_t Pair(int64_t a, int64_t b, intptr_t c) {
    return static_cast<uint64_t>(a - 2 * b + c);
}
double Both(double a, double b) {
    return a - b;
}
intptr_t gStored = 0;
void Store(int64_t value, intptr_t offset) {
    gStored = static_cast<intptr_t>(value + offset);
}

template <typename F>
REALproc Proc(F *function) {
    return reinterpret_cast<REALproc>(function);
}

Argument W(int64_t value) {
    return {Slot::Word, static_cast<uint64_t>(value)};
}
Argument L(int64_t value) {
    return {Slot::Long, static_cast<uint64_t>(value)};
}
Argument D(double value) {
    return {Slot::Double, 0, value};
}
Argument S(double value) {
    return {Slot::Single, 0, value};
}

#if defined(__i386__) || defined(_M_IX86)
constexpr bool kAllOnTheStack = true;
#else
constexpr bool kAllOnTheStack = false;
#endif

TEST(QvthostInvoke, CallsEveryShapeWithItsArgumentsInPlace) {
    const std::string kOneSpecial =
        "this platform calls no declaration with more than one Double, Single or 64-bit parameter";
    const bool kWideWords = sizeof(void *) >= 8 || kAllOnTheStack;
    const struct {
        const char *name;
        REALproc function;
        Returns returns;
        std::vector<Argument> arguments;
        std::string expected;  // bits or the real as text, or the error
    } rows[] = {
        {"AddBytes", Proc(AddBytes), Returns::Bits8, {W(200), W(100)}, "144"},
        {"Negate16", Proc(Negate16), Returns::Bits16, {W(-300)}, "300"},
        {"Negate16 negative", Proc(Negate16), Returns::Bits16, {W(300)}, "65236"},
        {"IsNegative", Proc(IsNegative), Returns::Bits8, {L(INT64_MIN)}, "1"},
        {"IsNegative positive", Proc(IsNegative), Returns::Bits8, {L(INT64_MAX)}, "0"},
        {"Swap32", Proc(Swap32), Returns::Bits32, {W(0x12345678)}, "1450709556"},
        {"Mix",
         Proc(Mix),
         Returns::Bits64,
         {W(1), L(1LL << 40), W(0xFFFFFFFF), W(1)},
         std::to_string(1 + 3 * (1ULL << 40) + 5 * 0xFFFFFFFFULL + 7)},
        {"Weighted",
         Proc(Weighted),
         Returns::Double,
         {W(1), W(1), W(1), W(1), W(1), W(1), W(1), W(1), D(0.5), W(1), W(-1)},
         "35.5"},
        {"Lead", Proc(Lead), Returns::Double, {D(1.5), W(-4), W(1)}, "-7"},
        {"Scale", Proc(Scale), Returns::Single, {W(3), S(0.25)}, "0.75"},
        {"Last",
         Proc(Last),
         Returns::Word,
         {W(1), W(2), W(3), W(4), W(5), W(6), W(7), W(8), W(9), W(10), W(11), W(12), W(13), W(1)},
         std::to_string(static_cast<uintptr_t>(intptr_t{-7}))},
        {"Pair",
         Proc(Pair),
         Returns::Bits64,
         {L(1LL << 40), L(-3), W(5)},
         kWideWords ? std::to_string((1ULL << 40) + 11) : kOneSpecial},
        {"Both",
         Proc(Both),
         Returns::Double,
         {D(2.5), D(0.25)},
         kAllOnTheStack ? "2.25" : kOneSpecial},
        {"Store", Proc(Store), Returns::Nothing, {L(-10), W(3)}, "stored -7"},
        {"too many", Proc(Last), Returns::Word, std::vector<Argument>(15, W(0)),
         "a declaration with this many parameters cannot be called"},
    };
    for (const auto &row : rows) {
        std::string error;
        auto returned = Invoke(row.function, row.returns, row.arguments, error);
        std::string shown = error;
        if (returned && row.returns == Returns::Nothing) {
            shown = "stored " + std::to_string(gStored);
        } else if (returned) {
            const bool real = row.returns == Returns::Double || row.returns == Returns::Single;
            shown = real ? std::to_string(returned->real) : std::to_string(returned->bits);
            if (real) shown.erase(shown.find_last_not_of("0.") + 1);
        }
        EXPECT_EQ(shown, row.expected) << row.name;
    }
}

TEST(QvthostValues, ShowLongBlocksAroundTheirChanges) {
    using Ranges = std::vector<std::pair<std::size_t, std::size_t>>;
    auto changed = [](std::size_t size, std::vector<std::size_t> at, std::size_t newSize = 0) {
        std::string before(size, 'a'), after(newSize ? newSize : size, 'a');
        for (auto i : at) after[i] = 'b';
        return ShownRanges(before, after);
    };
    const struct {
        Ranges shown, expected;
    } rows[] = {
        {changed(10, {}), {{0, 10}}},
        {changed(48, {47}), {{0, 48}}},
        {changed(0, {}), {{0, 0}}},
        {changed(100, {}), {{0, 16}}},
        {changed(100, {50}), {{0, 16}, {42, 59}}},
        {changed(100, {50, 51, 52}), {{0, 16}, {42, 61}}},
        {changed(100, {20}), {{0, 29}}},
        {changed(100, {24}), {{0, 33}}},
        {changed(100, {25}), {{0, 16}, {17, 34}}},
        {changed(100, {99}), {{0, 16}, {91, 100}}},
        {changed(100, {40, 70}), {{0, 16}, {32, 49}, {62, 79}}},
        {changed(100, {40, 56}), {{0, 16}, {32, 65}}},
        {changed(60, {}, 64), {{0, 16}, {52, 64}}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(rows[i].shown, rows[i].expected) << "row " << i;
    }
}

TEST(QvthostValues, EscapeJsonStrings) {
    const struct {
        std::string text, expected;
    } rows[] = {
        {"plain", R"("plain")"},
        {"a\"b\\c", R"("a\"b\\c")"},
        {"\n\t\r", R"("\n\t\r")"},
        {std::string("\x01\x1F\x7F", 3), "\"\\u0001\\u001f\x7F\""},
        {std::string("\0", 1), R"("\u0000")"},
        {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80",
         "\"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80\""},
        // Bytes that are not UTF-8 are the code points of the same value.
        {"\xFF", "\"\xC3\xBF\""},
        {"a\xC3", "\"a\xC3\x83\""},
        {"\xC0\xAF", "\"\xC3\x80\xC2\xAF\""},
        {"\xED\xA0\x80", "\"\xC3\xAD\xC2\xA0\xC2\x80\""},
        {"\xF4\x90\x80\x80", "\"\xC3\xB4\xC2\x90\xC2\x80\xC2\x80\""},
    };
    for (const auto &row : rows) EXPECT_EQ(JsonString(row.text), row.expected) << row.text;
}

// A fault as reported: the block and the first bad byte when the address
// tells them, what kind of access, and the causes that have no address.
TEST(QvthostGuard, DescribeFaults) {
    auto fault = [](int cause, Access access, int64_t offset, uint64_t size) {
        Fault f;
        f.cause = cause;
        f.access = access;
        f.addressKnown = true;
        f.address = 0x1000;
        f.inBlock = size != ~uint64_t{0};
        std::snprintf(f.label, sizeof f.label, "self");
        f.size = size;
        f.offset = offset;
        return f;
    };
    Fault unknown;
    unknown.cause = 99;
    Fault memory;
    memory.cause = Fault::kOutOfMemory;
    const struct {
        Fault fault;
        std::string expected;
    } rows[] = {
        {fault(SIGSEGV, Access::Read, 8, 8),
         "host fault (SIGSEGV): read 1 byte past the end of self (8 bytes), at offset 8"},
        {fault(SIGSEGV, Access::Write, 10, 8),
         "host fault (SIGSEGV): write 3 bytes past the end of self (8 bytes), at offset 10"},
        {fault(SIGSEGV, Access::Unknown, 0, 0),
         "host fault (SIGSEGV): access 1 byte past the end of self (0 bytes), at offset 0"},
        {fault(SIGSEGV, Access::Write, -1, 1),
         "host fault (SIGSEGV): write 1 byte before the start of self (1 byte), at offset -1"},
        {fault(SIGSEGV, Access::Read, 3, 8),
         "host fault (SIGSEGV): read inside self (8 bytes), at offset 3"},
        {fault(SIGSEGV, Access::Read, 0, ~uint64_t{0}),
         "host fault (SIGSEGV): read at 0x1000, in no block of the call"},
        {fault(SIGABRT, Access::Unknown, 0, 0), "host fault (abort): the call ended in abort()"},
        {memory, "host fault (out of memory): an allocation failed"},
        {unknown, "host fault (signal 99)"},
    };
    for (const auto &row : rows) EXPECT_EQ(Describe(row.fault), row.expected);
}

}  // namespace
}  // namespace qvthost
