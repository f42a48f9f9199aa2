// Every Integer argument of every method, on a 64-bit build, at values that
// a cut to 32 bits would change: each is taken whole. Checked arguments show
// the exception or neutral result of the whole value on a small block;
// trusted offsets reach their byte in a block whose address range runs past
// 4 GiB either side of zero, reserved and committed only where touched.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "hostvalues/blocks.h"
#include "kernel_fixture.h"
#include "kernels/bitwise.h"
#include "kernels/colour.h"
#include "kernels/masks.h"
#include "kernels/minmax.h"
#include "kernels/scaling.h"
#include "kernels/sweep.h"
#include "kernels/width.h"
#include "memory/addresses.h"
#include "memory/bits.h"
#include "memory/copy.h"
#include "memory/endian.h"
#include "memory/mirror.h"
#include "memory/search.h"
#include "memory/slices.h"
#include "memory/strided.h"

namespace qvt {
namespace {

using test::Bytes;

constexpr int64_t k2p31 = int64_t{1} << 31, k2p32 = int64_t{1} << 32;
constexpr std::array<int64_t, 5> kValues = {k2p31, k2p32, k2p32 + 5, -k2p31 - 1, -1};

// What a 32-bit Integer would have made of the value.
int64_t Cut(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); }

std::string Hex(const uint8_t *bytes, std::size_t count) {
    std::string text;
    char two[4];
    for (std::size_t i = 0; i < count; ++i) {
        std::snprintf(two, sizeof two, "%02X", bytes[i]);
        text += two;
    }
    return text;
}

// A returned block's bytes up to its last that is not 0, or "nil"; given back.
std::string Took(REALobject block) {
    if (!block) return "nil";
    const auto bytes = simhost::Bytes(block);
    std::size_t used = bytes.size();
    while (used > 0 && bytes[used - 1] == 0) --used;
    std::string text = "[" + Hex(bytes.data(), used) + "]";
    simhost::Release(block);
    return text;
}
std::string Took(REALstring string) {
    if (!string) return "nil";
    const std::string bytes = simhost::StringBytes(string);
    simhost::Release(string);
    return "\"" + Hex(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()) + "\"";
}
std::string Shown(float value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", static_cast<double>(value));
    return std::isnan(value) ? "NaN" : text;
}
std::string Said(bool value) { return value ? "true" : "false"; }
std::string Said(RBInteger value) { return std::to_string(value); }

// Where the reserved block lies, and the spans committed around every value
// and every cut value (both in bytes and in bits, read as bytes).
constexpr std::size_t kReserved = (std::size_t{3} << 31) + (std::size_t{1} << 21);
constexpr std::size_t kBlockAt = (std::size_t{1} << 31) + (std::size_t{1} << 20);

class IntegerArgumentsTest : public test::KernelTest {
protected:
    void SetUp() override {
        KernelTest::SetUp();
        if (sizeof(RBInteger) < 8) GTEST_SKIP() << "Integer is 32 bits wide here";
        space = static_cast<uint8_t *>(simhost::platform::ReserveAddressSpace(kReserved));
        if (!space) GTEST_SKIP() << "no address space to reserve here";
        base = space + kBlockAt;
        for (int64_t v : kValues) {
            // v / 4: where a strided bit copy of two steps of v ends.
            for (int64_t at : {v, Cut(v), v / 8, Cut(v) / 8, v / 4}) {
                ASSERT_TRUE(simhost::platform::CommitAddressRange(base + at - 64, 128));
            }
        }
        ASSERT_TRUE(simhost::platform::CommitAddressRange(base, 64));
        big = simhost::NewForeignBlock(base);
    }
    void TearDown() override {
        if (big) simhost::Release(big);
        simhost::platform::ReleaseAddressSpace(space, kReserved);
        KernelTest::TearDown();
    }

    uint8_t &At(int64_t offset) { return base[offset]; }

    uint8_t *space = nullptr;
    uint8_t *base = nullptr;
    REALobject big = nullptr;
};

// A method called with one argument set to `v`, the others ordinary. Small
// rows get a block of 16 bytes counting from 1; reserved rows get the block
// past 4 GiB, whose byte v holds 0x35 and whose byte Cut(v) holds 0xC3.
// kNotTried: a value that would make a trusting method touch gigabytes or
// break its caller's contract on any build.
constexpr const char *kNotTried = "not tried";
struct Row {
    const char *argument;
    bool reserved;
    std::function<std::string(REALobject, RBInteger)> call;
    std::array<const char *, 5> outcomes;
};

// In-place byte order conversions, every one of them.
#define QVT_IN_PLACE(name, T, from, to) static_cast<void (*)(REALobject, RBInteger, RBInteger)>(&name),
void (*const kEndianInPlace[])(REALobject, RBInteger, RBInteger) = {QVT_ENDIAN_NAMES(QVT_IN_PLACE)};
#undef QVT_IN_PLACE

TEST_F(IntegerArgumentsTest, EveryIntegerArgumentIsTakenWhole) {
    REALobject second = simhost::NewBlock(Bytes(16, 0x35));
    REALobject sevens = simhost::NewBlock(Bytes(16, 0x77));
    REALstring target = simhost::NewString("\x05\x06", hostabi::kEncodingUnknown);
    REALobject polar = simhost::NewBlock(Bytes(8, 0));
    uint8_t memory[16] = {};
    const auto nothing = [](auto call) { return [call](REALobject b, RBInteger v) { call(b, v); return std::string(); }; };
    // The receiver's bytes given to a call, read back from `to`.
    const auto into = [](auto call) {
        return [call](REALobject b, RBInteger v) {
            REALobject to = simhost::NewBlock(Bytes(32, 0));
            call(b, to, v);
            return Took(to);
        };
    };
    const auto findIn = [](RBInteger v, auto find) {
        REALarray values = simhost::NewArray(simhost::kArrayUInt8, {3});
        std::string outcome = Said(find(values, v));
        simhost::Release(values);
        return outcome;
    };
    uint8_t *const first = base;
    // The second entry of a sweep table, as numbers.
    const auto sweep = [](auto fill) {
        REALobject table = simhost::NewBlock(16);
        fill(table);
        float entry[2];
        std::memcpy(entry, simhost::Bytes(table).data() + 8, sizeof entry);
        simhost::Release(table);
        return Shown(entry[0]) + " " + Shown(entry[1]);
    };
    const Row rows[] = {
        {"FindByteQVT StartByteOffset", false, [&](REALobject b, RBInteger v) { return findIn(v, [b](REALarray a, RBInteger at) { return FindByteQVT(b, a, at); }); }, {"0 ! OutOfBoundsException: The parameter offset to method FindByteQVT is too big. Range is 0 to 15, but value is 2147483648.", "0 ! OutOfBoundsException: The parameter offset to method FindByteQVT is too big. Range is 0 to 15, but value is 4294967296.", "0 ! OutOfBoundsException: The parameter offset to method FindByteQVT is too big. Range is 0 to 15, but value is 4294967301.", "0 ! OutOfBoundsException: The parameter offset to method FindByteQVT is too small. Range is 0 to 15, but value is -2147483649.", "0 ! OutOfBoundsException: The parameter offset to method FindByteQVT is too small. Range is 0 to 15, but value is -1."}},
        {"SetBitQVT Value", false, nothing([](REALobject b, RBInteger v) { SetBitQVT(b, 7, v); }), {"-> [0002030405060708090A0B0C0D0E0F10]", "-> [0002030405060708090A0B0C0D0E0F10]", "-> [0502030405060708090A0B0C0D0E0F10]", "-> [FF02030405060708090A0B0C0D0E0F10]", "-> [FF02030405060708090A0B0C0D0E0F10]"}},
        {"ConvertRGB12BitTo8BitQVT Width", false, nothing([](REALobject b, RBInteger v) { ConvertRGB12BitTo8BitQVT(b, v); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"_Calc3te Source1", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, v, 6, 7, 8, 9, 9, 9, 9, 0, 0, 0); }), {"", "", "", "", ""}},
        {"_Calc3te Source2", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, 5, v, 7, 8, 9, 9, 9, 9, 0, 0, 0); }), {"", "", "", "", ""}},
        {"_Calc3te Source3", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, 5, 6, v, 8, 9, 9, 9, 9, 0, 0, 0); }), {"", "", "", "", ""}},
        {"_Calc3te Source4", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, 5, 6, 7, v, 9, 9, 9, 9, 0, 0, 0); }), {"", "", "", "", ""}},
        {"_Calc3te Dest1", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, 5, 6, 7, 8, v, 9, 9, 9, 0, 0, 0); }), {"-> [0102030400090909090A0B0C0D0E0F10]", "-> [0102030400090909090A0B0C0D0E0F10]", "-> [0102030405090909090A0B0C0D0E0F10]", "-> [01020304FF090909090A0B0C0D0E0F10]", "-> [01020304FF090909090A0B0C0D0E0F10]"}},
        {"_Calc3te Dest2", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, 5, 6, 7, 8, 9, v, 9, 9, 0, 0, 0); }), {"-> [0102030409000909090A0B0C0D0E0F10]", "-> [0102030409000909090A0B0C0D0E0F10]", "-> [0102030409050909090A0B0C0D0E0F10]", "-> [0102030409FF0909090A0B0C0D0E0F10]", "-> [0102030409FF0909090A0B0C0D0E0F10]"}},
        {"_Calc3te Dest3", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, 5, 6, 7, 8, 9, 9, v, 9, 0, 0, 0); }), {"-> [0102030409090009090A0B0C0D0E0F10]", "-> [0102030409090009090A0B0C0D0E0F10]", "-> [0102030409090509090A0B0C0D0E0F10]", "-> [010203040909FF09090A0B0C0D0E0F10]", "-> [010203040909FF09090A0B0C0D0E0F10]"}},
        {"_Calc3te Dest4", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, 5, 6, 7, 8, 9, 9, 9, v, 0, 0, 0); }), {"-> [0102030409090900090A0B0C0D0E0F10]", "-> [0102030409090900090A0B0C0D0E0F10]", "-> [0102030409090905090A0B0C0D0E0F10]", "-> [01020304090909FF090A0B0C0D0E0F10]", "-> [01020304090909FF090A0B0C0D0E0F10]"}},
        {"_Calc3te offsetByte", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, 5, 6, 7, 8, 9, 9, 9, 9, 0, v, 0); }), {"", "", "", "! UnsupportedOperationException: offset < 0", "! UnsupportedOperationException: offset < 0"}},
        {"_Calc3te Length", false, nothing([](REALobject b, RBInteger v) { Calc3te(b, 5, 6, 7, 8, 9, 9, 9, 9, 0, 0, v); }), {kNotTried, kNotTried, kNotTried, "-> [0102030409090909090A0B0C0D0E0F10]", "-> [0102030409090909090A0B0C0D0E0F10]"}},
        {"_Calc2teCMY iByteMax", false, nothing([](REALobject b, RBInteger v) { Calc2teCMY(b, v, 0, 0, true); }), {"-> [010203FF050607FF090A0BFF0D0E0FFF]", "-> [010203FF050607FF090A0BFF0D0E0FFF]", "-> [010203FF050607FF090A0BFF0D0E0FFF]", "-> [0102030005060700090A0B000D0E0F]", "-> [0102030005060700090A0B000D0E0F]"}},
        {"_Calc2teCMY offsetByte", false, nothing([](REALobject b, RBInteger v) { Calc2teCMY(b, 255, v, 0, true); }), {"", "", "", "! UnsupportedOperationException: offset < 0", "! UnsupportedOperationException: offset < 0"}},
        {"_Calc2teCMY Length", false, nothing([](REALobject b, RBInteger v) { Calc2teCMY(b, 255, 0, v, true); }), {kNotTried, kNotTried, kNotTried, "-> [010203F9050607ED090A0BE10D0E0FD5]", "-> [010203F9050607ED090A0BE10D0E0FD5]"}},
        {"_Calc2teCMYK iByteMax", false, nothing([](REALobject b, RBInteger v) { Calc2teCMYK(b, v, 0, 0, true); }), {"-> [010203FF050607FF090A0BFF0D0E0FFF]", "-> [010203FF050607FF090A0BFF0D0E0FFF]", "-> [010203FF050607FF090A0BFF0D0E0FFF]", "-> [0102030005060700090A0B000D0E0F]", "-> [0102030005060700090A0B000D0E0F]"}},
        {"_Calc2teCMYK offsetByte", false, nothing([](REALobject b, RBInteger v) { Calc2teCMYK(b, 255, v, 0, true); }), {"", "", "", "! UnsupportedOperationException: offset < 0", "! UnsupportedOperationException: offset < 0"}},
        {"_Calc2teCMYK Length", false, nothing([](REALobject b, RBInteger v) { Calc2teCMYK(b, 255, 0, v, true); }), {kNotTried, kNotTried, kNotTried, "-> [010203F5050607E5090A0BD50D0E0FC5]", "-> [010203F5050607E5090A0BD50D0E0FC5]"}},
        {"_CalcLogSweepTableQVT offsetByte", true, nothing([](REALobject b, RBInteger v) { CalcLogSweepTableQVT(b, v, 1, 20, 20000, 1.0); }), {"@00 C3", "@00 C3", "@00 C3", "@00 C3", "@00 00"}},
        {"_CalcLogSweepTableQVT Z", false, nothing([](REALobject b, RBInteger v) { CalcLogSweepTableQVT(b, 0, v, 20, 20000, 1.0); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"_CalcLogSweepTableQVT lw1", false, [&](REALobject, RBInteger v) { return sweep([v](REALobject t) { CalcLogSweepTableQVT(t, 0, 2, v, 20000, 1.0); }); }, {"0.3144 100.5", "0.893 100.5", "0.893 100.5", "NaN 100.5", "NaN 100.5"}},
        {"_CalcLogSweepTableQVT lw2", false, [&](REALobject, RBInteger v) { return sweep([v](REALobject t) { CalcLogSweepTableQVT(t, 0, 2, 20, v, 1.0); }); }, {"0.769 100.5", "-0.832 100.5", "-0.832 100.5", "NaN 100.5", "NaN 100.5"}},
        {"_ConvertPolarToCartesian offsetByte", true, nothing([&](REALobject b, RBInteger v) { ConvertPolarToCartesian(b, v, 1, polar); }), {"@00 C3", "@00 C3", "@00 C3", "@00 C3", "@00 00"}},
        {"_ConvertPolarToCartesian Z", false, nothing([&](REALobject b, RBInteger v) { ConvertPolarToCartesian(b, 0, v, polar); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"_ConvertCartesianToPolar offsetByte", true, nothing([&](REALobject b, RBInteger v) { ConvertCartesianToPolar(b, v, 1, polar); }), {"@00 C3", "@00 C3", "@00 C3", "@00 C3", "@00 00"}},
        {"_ConvertCartesianToPolar Z", false, nothing([&](REALobject b, RBInteger v) { ConvertCartesianToPolar(b, 0, v, polar); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"MultiplyUInt16QVT offsetByte", false, nothing([](REALobject b, RBInteger v) { MultiplyUInt16QVT(b, 2.0, v, 0, -1); }), {"", "", "", "! UnsupportedOperationException: offset < 0", "! UnsupportedOperationException: offset < 0"}},
        {"MultiplyUInt16QVT lengthBytes", false, nothing([](REALobject b, RBInteger v) { MultiplyUInt16QVT(b, 2.0, 0, v, -1); }), {kNotTried, kNotTried, kNotTried, "-> [020406080A0C0E10121416181A1C1E20]", "-> [020406080A0C0E10121416181A1C1E20]"}},
        {"MultiplyUInt16QVT MultiplyOnlyOver", false, nothing([](REALobject b, RBInteger v) { MultiplyUInt16QVT(b, 2.0, 0, 0, v); }), {"", "", "", "-> [020406080A0C0E10121416181A1C1E20]", "-> [020406080A0C0E10121416181A1C1E20]"}},
        {"MultiplyUInt8QVT offsetByte", false, nothing([](REALobject b, RBInteger v) { MultiplyUInt8QVT(b, 2.0, v, 0, -1); }), {"", "", "", "! UnsupportedOperationException: offset < 0", "! UnsupportedOperationException: offset < 0"}},
        {"MultiplyUInt8QVT lengthBytes", false, nothing([](REALobject b, RBInteger v) { MultiplyUInt8QVT(b, 2.0, 0, v, -1); }), {kNotTried, kNotTried, kNotTried, "-> [020406080A0C0E10121416181A1C1E20]", "-> [020406080A0C0E10121416181A1C1E20]"}},
        {"MultiplyUInt8QVT MultiplyOnlyOver", false, nothing([](REALobject b, RBInteger v) { MultiplyUInt8QVT(b, 2.0, 0, 0, v); }), {"", "", "", "-> [020406080A0C0E10121416181A1C1E20]", "-> [020406080A0C0E10121416181A1C1E20]"}},
        {"MinQVT BitSize", false, [&](REALobject b, RBInteger v) { return Said(MinQVT(b, first, first, v, false, 0, 0)); }, {"false", "false", "false", "false", "false"}},
        {"MinQVT offsetByte", false, [&](REALobject b, RBInteger v) { return Said(MinQVT(b, first, first, 8, false, v, 0)); }, {"true", "true", "true", "false ! UnsupportedOperationException: offset < 0", "false ! UnsupportedOperationException: offset < 0"}},
        {"MinQVT lengthBytes", false, [&](REALobject b, RBInteger v) { return Said(MinQVT(b, first, first, 8, false, 0, v)); }, {kNotTried, kNotTried, kNotTried, "true -> []", "true -> []"}},
        {"MaxQVT BitSize", false, [&](REALobject b, RBInteger v) { return Said(MaxQVT(b, first, first, v, false, 0, 0)); }, {"false", "false", "false", "false", "false"}},
        {"MaxQVT offsetByte", false, [&](REALobject b, RBInteger v) { return Said(MaxQVT(b, first, first, 8, false, v, 0)); }, {"true", "true", "true", "false ! UnsupportedOperationException: offset < 0", "false ! UnsupportedOperationException: offset < 0"}},
        {"MaxQVT lengthBytes", false, [&](REALobject b, RBInteger v) { return Said(MaxQVT(b, first, first, 8, false, 0, v)); }, {kNotTried, kNotTried, kNotTried, "true -> []", "true -> []"}},
        {"MirrorBitsInBytesQVT offsetByte", true, nothing([](REALobject b, RBInteger v) { MirrorBitsInBytesQVT(b, v, 1); }), {"@AC C3", "@AC C3", "@AC C3", "@AC C3", "@AC AC"}},
        {"MirrorBitsInBytesQVT lengthByte", false, nothing([](REALobject b, RBInteger v) { MirrorBitsInBytesQVT(b, 0, v); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"MirrorBytesQVT offsetByte", true, nothing([](REALobject b, RBInteger v) { MirrorBytesQVT(b, v, 2); }), {"@00 C3", "@00 C3", "@00 C3", "@00 C3", "@00 00"}},
        {"MirrorBytesQVT lengthByte", false, nothing([](REALobject b, RBInteger v) { MirrorBytesQVT(b, 0, v); }), {kNotTried, kNotTried, kNotTried, "-> [100F0E0D0C0B0A090807060504030201]", "-> [100F0E0D0C0B0A090807060504030201]"}},
        {"MirrorBitsQVT offsetBit", true, [&](REALobject b, RBInteger v) { At(v / 8) = 0x35, At(v / 8 + 1) = 0; MirrorBitsQVT(b, v, 8); return Hex(&At(v / 8), 2) + " " + Hex(first, 2); }, {"AC00 0000 @35 C3", "AC00 C300 @35 C3", "3028 0000 @35 C3", kNotTried, kNotTried}},
        {"MirrorBitsQVT lengthBit", false, nothing([](REALobject b, RBInteger v) { MirrorBitsQVT(b, 0, v); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"OSTypeQVT offset", false, [](REALobject b, RBInteger v) { return Took(OSTypeQVT(b, v)); }, {"nil", "nil", "nil", "nil", "nil"}},
        {"OSTypeQVT= offset", false, [](REALobject b, RBInteger v) { OSTypeQVT(b, v, nullptr); return std::string(); }, {"", "", "", "", ""}},
        {"GetStringQVT offset", false, [](REALobject b, RBInteger v) { return Took(GetStringQVT(b, v, 2)); }, {"nil", "nil", "nil", "nil", "nil"}},
        {"GetStringQVT numBytes", false, [](REALobject b, RBInteger v) { return Took(GetStringQVT(b, 14, v)); }, {"\"0F10\"", "\"0F10\"", "\"0F10\"", "nil", "nil"}},
        {"SetStringQVT offset", false, nothing([&](REALobject b, RBInteger v) { SetStringQVT(b, target, v); }), {"", "", "", "", ""}},
        {"SwapBytesQVT offset", false, nothing([](REALobject b, RBInteger v) { SwapBytesQVT(b, v, 2); }), {"", "", "", "", ""}},
        {"SwapBytesQVT numBytes", false, nothing([](REALobject b, RBInteger v) { SwapBytesQVT(b, 12, v); }), {"-> [0102030405060708090A0B0C100F0E0D]", "-> [0102030405060708090A0B0C100F0E0D]", "-> [0102030405060708090A0B0C100F0E0D]", "", ""}},
        {"SwapBytes16QVT offset", false, nothing([](REALobject b, RBInteger v) { SwapBytes16QVT(b, v, 2); }), {"", "", "", "", ""}},
        {"SwapBytes16QVT numBytes", false, nothing([](REALobject b, RBInteger v) { SwapBytes16QVT(b, 12, v); }), {"-> [0102030405060708090A0B0C0E0D100F]", "-> [0102030405060708090A0B0C0E0D100F]", "-> [0102030405060708090A0B0C0E0D100F]", "", ""}},
        {"SwapBytes32QVT offset", false, nothing([](REALobject b, RBInteger v) { SwapBytes32QVT(b, v, 4); }), {"", "", "", "", ""}},
        {"SwapBytes32QVT numBytes", false, nothing([](REALobject b, RBInteger v) { SwapBytes32QVT(b, 12, v); }), {"-> [0102030405060708090A0B0C100F0E0D]", "-> [0102030405060708090A0B0C100F0E0D]", "-> [0102030405060708090A0B0C100F0E0D]", "", ""}},
        {"BytesEqualQVT srcOfs", true, [&](REALobject b, RBInteger v) { return Said(BytesEqualQVT(b, v, 1, second, 0)); }, {"true @35 C3", "true @35 C3", "true @35 C3", "true @35 C3", "true @35 35"}},
        {"BytesEqualQVT numBytes", true, [&](REALobject b, RBInteger v) { first[0] = 1; return Said(BytesEqualQVT(b, 0, v, b, 8)); }, {"false @35 C3", "false @35 01", "false @35 C3", "false @35 C3", "false @35 35"}},
        {"BytesEqualQVT destOfs", true, [&](REALobject b, RBInteger v) { return Said(BytesEqualQVT(second, 0, 1, b, v)); }, {"true @35 C3", "true @35 C3", "true @35 C3", "true @35 C3", "true @35 35"}},
        {"BytesZeroQVT srcOfs", true, [](REALobject b, RBInteger v) { return Said(BytesZeroQVT(b, v, 1)); }, {"false @35 C3", "false @35 C3", "false @35 C3", "false ! OutOfBoundsException: source offset < 0 @35 C3", "false ! OutOfBoundsException: source offset < 0 @35 35"}},
        {"BytesZeroQVT numBytes", true, [&](REALobject b, RBInteger v) { first[0] = 1; return Said(BytesZeroQVT(b, 0, v)); }, {"false @35 C3", "false @35 01", "false @35 C3", "false ! OutOfBoundsException: length < 0 @35 C3", "false ! OutOfBoundsException: length < 0 @35 35"}},
        {"FindNotByteQVT srcOfs", true, [](REALobject b, RBInteger v) { return Said(FindNotByteQVT(b, v, 1, 0xC3)); }, {"2147483648 @35 C3", "4294967296 @35 C3", "4294967301 @35 C3", "-2147483649 @35 C3", "-1 @35 35"}},
        {"FindNotByteQVT numBytes", true, [&](REALobject b, RBInteger v) { first[0] = 1; return Said(FindNotByteQVT(b, 0, v, 0)); }, {"0 @35 C3", "0 @35 01", "0 @35 C3", "-1 @35 C3", "-1 @35 35"}},
        {"FindNotByteQVT byteValue", false, [](REALobject b, RBInteger v) { return Said(FindNotByteQVT(b, 4, 1, v)); }, {"4", "4", "-1", "4", "4"}},
        {"FindByteQVT srcOfs", true, [](REALobject b, RBInteger v) { return Said(FindByteQVT(b, v, 1, 0x35)); }, {"2147483648 @35 C3", "4294967296 @35 C3", "4294967301 @35 C3", "-2147483649 @35 C3", "-1 @35 35"}},
        {"FindByteQVT numBytes", true, [&](REALobject b, RBInteger v) { first[0] = 1; return Said(FindByteQVT(b, 0, v, 1)); }, {"0 @35 C3", "0 @35 01", "0 @35 C3", "-1 @35 C3", "-1 @35 35"}},
        {"FindByteQVT byteValue", false, [](REALobject b, RBInteger v) { return Said(FindByteQVT(b, 0, 16, v)); }, {"-1", "-1", "4", "-1", "-1"}},
        {"CopyBytesQVT srcOfs", true, [&](REALobject b, RBInteger v) { CopyBytesQVT(b, v, 1, 16); return Hex(first + 16, 1); }, {"35 @35 C3", "35 @35 C3", "35 @35 C3", "35 @35 C3", "35 @35 35"}},
        {"CopyBytesQVT numBytes", false, nothing([](REALobject b, RBInteger v) { CopyBytesQVT(b, 0, v, 1); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"CopyBytesQVT destOfs", true, [&](REALobject b, RBInteger v) { first[16] = 0x77; CopyBytesQVT(b, 16, 1, v); return std::string(); }, {"@77 C3", "@77 C3", "@77 C3", "@77 C3", "@77 77"}},
        {"CopyBytesQVT(destBlk) srcOfs", true, into([](REALobject b, REALobject to, RBInteger v) { CopyBytesQVT(b, v, 1, to, 0); }), {"[35] @35 C3", "[35] @35 C3", "[35] @35 C3", "[35] @35 C3", "[35] @35 35"}},
        {"CopyBytesQVT(destBlk) numBytes", false, into([](REALobject b, REALobject to, RBInteger v) { CopyBytesQVT(b, 0, v, to, 0); }), {kNotTried, kNotTried, kNotTried, "[]", "[]"}},
        {"CopyBytesQVT(destBlk) destOfs", true, nothing([&](REALobject b, RBInteger v) { CopyBytesQVT(sevens, 0, 1, b, v); }), {"@77 C3", "@77 C3", "@77 C3", "@77 C3", "@77 77"}},
        {"CopyBytesToMacPtrQVT srcOfs", true, [&](REALobject b, RBInteger v) { CopyBytesToMacPtrQVT(b, v, 1, memory); return Hex(memory, 1); }, {"35 @35 C3", "35 @35 C3", "35 @35 C3", "35 @35 C3", "35 @35 35"}},
        {"CopyBytesToMacPtrQVT numBytes", false, [&](REALobject b, RBInteger v) { CopyBytesToMacPtrQVT(b, 0, v, memory); return Hex(memory, 1); }, {kNotTried, kNotTried, kNotTried, "35", "35"}},
        {"CopyBytesFromMacPtrQVT numBytes", false, nothing([&](REALobject b, RBInteger v) { CopyBytesFromMacPtrQVT(b, memory, v, 0); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"CopyBytesFromMacPtrQVT destOfs", true, nothing([&](REALobject b, RBInteger v) { memory[0] = 0x77; CopyBytesFromMacPtrQVT(b, memory, 1, v); }), {"@77 C3", "@77 C3", "@77 C3", "@77 C3", "@77 77"}},
        {"CopyBytesToMacHandleQVT srcOfs", false, nothing([](REALobject b, RBInteger v) { CopyBytesToMacHandleQVT(b, v, 1, 0); }), {"", "", "", "", ""}},
        {"CopyBytesToMacHandleQVT numBytes", false, nothing([](REALobject b, RBInteger v) { CopyBytesToMacHandleQVT(b, 0, v, 0); }), {"", "", "", "", ""}},
        {"CopyBytesToMacHandleQVT destHandle", false, nothing([](REALobject b, RBInteger v) { CopyBytesToMacHandleQVT(b, 0, 1, v); }), {"", "", "", "", ""}},
        {"CopyBytesFromMacHandleQVT srcHandle", false, nothing([](REALobject b, RBInteger v) { CopyBytesFromMacHandleQVT(b, v, 1, 0); }), {"", "", "", "", ""}},
        {"CopyBytesFromMacHandleQVT numBytes", false, nothing([](REALobject b, RBInteger v) { CopyBytesFromMacHandleQVT(b, 0, v, 0); }), {"", "", "", "", ""}},
        {"CopyBytesFromMacHandleQVT destOfs", false, nothing([](REALobject b, RBInteger v) { CopyBytesFromMacHandleQVT(b, 0, 1, v); }), {"", "", "", "", ""}},
        {"FindStringQVT srcOfs", false, [&](REALobject b, RBInteger v) { return Said(FindStringQVT(b, v, 0, target)); }, {"-2", "-2", "-2", "-2", "-2"}},
        {"FindStringQVT maxBytes", false, [&](REALobject b, RBInteger v) { return Said(FindStringQVT(b, 0, v, target)); }, {"4", "4", "4", "-2", "-2"}},
        {"FindBytesQVT srcOfs", false, [](REALobject b, RBInteger v) { return Said(FindBytesQVT(b, v, 0, b, 4, 2)); }, {"-2", "-2", "-2", "-2", "-2"}},
        {"FindBytesQVT maxBytes", false, [](REALobject b, RBInteger v) { return Said(FindBytesQVT(b, 0, v, b, 4, 2)); }, {"4", "4", "4", "-2", "-2"}},
        {"FindBytesQVT targOfs", false, [](REALobject b, RBInteger v) { return Said(FindBytesQVT(b, 0, 0, b, v, 2)); }, {"-2", "-2", "-2", "-2", "-2"}},
        {"FindBytesQVT targLen", false, [](REALobject b, RBInteger v) { return Said(FindBytesQVT(b, 0, 0, b, 4, v)); }, {"-1", "-1", "-1", "4", "4"}},
        {"MidQVT offset", false, [](REALobject b, RBInteger v) { return Took(MidQVT(b, v)); }, {"nil", "nil", "nil", "nil", "nil"}},
        {"MidQVT(length) offset", false, [](REALobject b, RBInteger v) { return Took(MidQVT(b, v, 2)); }, {"nil", "nil", "nil", "nil", "nil"}},
        {"MidQVT(length) length", false, [](REALobject b, RBInteger v) { return Took(MidQVT(b, 14, v)); }, {"[0F10]", "[0F10]", "[0F10]", "nil", "nil"}},
        {"LeftQVT length", false, [](REALobject b, RBInteger v) { return Took(LeftQVT(b, v)); }, {"[0102030405060708090A0B0C0D0E0F10]", "[0102030405060708090A0B0C0D0E0F10]", "[0102030405060708090A0B0C0D0E0F10]", "nil", "nil"}},
        {"RightQVT length", false, [](REALobject b, RBInteger v) { return Took(RightQVT(b, v)); }, {"[0102030405060708090A0B0C0D0E0F10]", "[0102030405060708090A0B0C0D0E0F10]", "[0102030405060708090A0B0C0D0E0F10]", "nil", "nil"}},
        {"FillBytesQVT offset", true, nothing([](REALobject b, RBInteger v) { FillBytesQVT(b, v, 1, 0x11); }), {"@11 C3", "@11 C3", "@11 C3", "@35 C3", "@35 35"}},
        {"FillBytesQVT count", false, nothing([](REALobject b, RBInteger v) { FillBytesQVT(b, 14, v, 0x11); }), {kNotTried, kNotTried, kNotTried, "-> [0102030405060708090A0B0C0D0E1111]", "-> [0102030405060708090A0B0C0D0E1111]"}},
        {"FillBytesQVT value", false, nothing([](REALobject b, RBInteger v) { FillBytesQVT(b, 0, 1, v); }), {"-> [0002030405060708090A0B0C0D0E0F10]", "-> [0002030405060708090A0B0C0D0E0F10]", "-> [0502030405060708090A0B0C0D0E0F10]", "-> [FF02030405060708090A0B0C0D0E0F10]", "-> [FF02030405060708090A0B0C0D0E0F10]"}},
        {"InvertBytesQVT offset", true, nothing([](REALobject b, RBInteger v) { InvertBytesQVT(b, v, 1); }), {"@CA C3", "@CA C3", "@CA C3", "@CA C3", "@CA CA"}},
        {"InvertBytesQVT count", false, nothing([](REALobject b, RBInteger v) { InvertBytesQVT(b, 0, v); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"CopyNthBytesQVT SourceOffsetBytes", true, into([](REALobject b, REALobject to, RBInteger v) { CopyNthBytesQVT(to, b, v, 0, 1, 1, 1); }), {"[35] @35 C3", "[35] @35 C3", "[35] @35 C3", "[35] @35 C3", "[35] @35 35"}},
        {"CopyNthBytesQVT DestinationOffsetBytes", true, nothing([&](REALobject b, RBInteger v) { CopyNthBytesQVT(b, sevens, 0, v, 1, 1, 1); }), {"@77 C3", "@77 C3", "@77 C3", "@77 C3", "@77 77"}},
        {"CopyNthBytesQVT ByteCount", false, into([](REALobject b, REALobject to, RBInteger v) { CopyNthBytesQVT(to, b, 0, 0, v, 1, 1); }), {kNotTried, kNotTried, kNotTried, "[]", "[]"}},
        {"CopyNthBytesQVT StepCount", true, into([](REALobject b, REALobject to, RBInteger v) { CopyNthBytesQVT(to, b, 0, 0, 1, v, 2); }), {"[0035] @35 C3", "[C335] @35 C3", "[0035] @35 C3", "[0035] @35 C3", "[0035] @35 35"}},
        {"CopyNthBytesQVT NumberOfSteps", false, into([](REALobject b, REALobject to, RBInteger v) { CopyNthBytesQVT(to, b, 0, 0, 1, 1, v); }), {kNotTried, kNotTried, kNotTried, "[]", "[]"}},
        {"CopyNthBitsQVT SourceOffsetBits", true, into([&](REALobject b, REALobject to, RBInteger v) { At(v / 8) = 0xFF; CopyNthBitsQVT(to, b, v, 0, 8, 0, 1); }), {"[FF] @35 C3", "[FF] @35 C3", "[E0] @35 C3", kNotTried, kNotTried}},
        {"CopyNthBitsQVT DestinationOffsetBits", true, [&](REALobject b, RBInteger v) { CopyNthBitsQVT(b, sevens, 0, v, 8, 0, 1); return Hex(&At(v / 8), 2); }, {"7700 @35 C3", "7700 @35 C3", "03B8 @35 C3", kNotTried, kNotTried}},
        {"CopyNthBitsQVT BitCount", false, into([](REALobject b, REALobject to, RBInteger v) { CopyNthBitsQVT(to, b, 0, 0, v, 0, 1); }), {kNotTried, kNotTried, kNotTried, "[]", "[]"}},
        {"CopyNthBitsQVT StepCount", true, into([&](REALobject b, REALobject to, RBInteger v) { first[0] = 0; At((v + 8) / 8) = 0xFF; CopyNthBitsQVT(to, b, 0, 0, 8, v, 2); }), {"[00FF] @35 C3", "[00FF] @35 00", "[00E0] @35 C3", "[] @35 C3", "[FF] @35 35"}},
        {"CopyNthBitsQVT NumberOfSteps", false, into([](REALobject b, REALobject to, RBInteger v) { CopyNthBitsQVT(to, b, 0, 0, 8, 0, v); }), {kNotTried, kNotTried, kNotTried, "[]", "[]"}},
        {"ExpandBitsQVT SourceByteCount", false, into([](REALobject b, REALobject to, RBInteger v) { ExpandBitsQVT(b, to, v, 0, 255); }), {kNotTried, kNotTried, kNotTried, "[]", "[]"}},
        {"ExpandBitsQVT LowValue", false, into([](REALobject b, REALobject to, RBInteger v) { ExpandBitsQVT(b, to, 1, v, 255); }), {"[00000080000000FF000000800000FF80000000800000FFFF0000008000FF0080]", "[00000000000000FF000000000000FF00000000000000FFFF0000000000FF]", "[05050505050505FF050505050505FF05050505050505FFFF0505050505FF0505]", "[FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF]", "[FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF]"}},
        {"ExpandBitsQVT HighValue", false, into([](REALobject b, REALobject to, RBInteger v) { ExpandBitsQVT(b, to, 1, 0, v); }), {"[]", "[]", "[000000000000000500000000000005000000000000000505000000000005]", "[00000000000000FF000000000000FFFF000000000000FFFF0000000000FFFFFF]", "[00000000000000FF000000000000FFFF000000000000FFFF0000000000FFFFFF]"}},
        {"CopyByteToUShortQVT SourceOffset", true, into([](REALobject b, REALobject to, RBInteger v) { CopyByteToUShortQVT(b, to, v, 0, 1, 257); }), {"[3535] @35 C3", "[3535] @35 C3", "[3535] @35 C3", "[3535] @35 C3", "[3535] @35 35"}},
        {"CopyByteToUShortQVT DestinationOffset", true, nothing([&](REALobject b, RBInteger v) { CopyByteToUShortQVT(sevens, b, 0, v, 1, 257); }), {"@77 C3", "@77 C3", "@77 C3", "@77 C3", "@77 77"}},
        {"CopyByteToUShortQVT ByteCount", false, into([](REALobject b, REALobject to, RBInteger v) { CopyByteToUShortQVT(b, to, 0, 0, v, 1); }), {kNotTried, kNotTried, kNotTried, "[]", "[]"}},
        {"CopyByteToUShortQVT divisor", false, [](REALobject b, RBInteger v) {
             REALobject to = simhost::NewBlock(4);
             CopyByteToUShortQVT(b, to, 0, 0, 2, v);
             uint16_t samples[2];
             std::memcpy(samples, simhost::Bytes(to).data(), sizeof samples);
             simhost::Release(to);
             return std::to_string(samples[0]) + " " + std::to_string(samples[1]);
         }, {"0 0", "0 0", "5 10", "65535 65534", "65535 65534"}},
        {"CopyUShortToByteQVT SourceOffset", true, into([&](REALobject b, REALobject to, RBInteger v) { At(v + 1) = 0x35; CopyUShortToByteQVT(b, to, v, 0, 1, 1); }), {"[35] @35 C3", "[35] @35 C3", "[35] @35 C3", "[35] @35 C3", "[35] @35 35"}},
        {"CopyUShortToByteQVT DestinationOffset", true, nothing([&](REALobject b, RBInteger v) { CopyUShortToByteQVT(sevens, b, 0, v, 1, 1); }), {"@77 C3", "@77 C3", "@77 C3", "@77 C3", "@77 77"}},
        {"CopyUShortToByteQVT ByteCount", false, into([](REALobject b, REALobject to, RBInteger v) { CopyUShortToByteQVT(b, to, 0, 0, v, 1); }), {kNotTried, kNotTried, kNotTried, "[]", "[]"}},
        {"CopyUShortToByteQVT divisor", false, into([](REALobject b, REALobject to, RBInteger v) { CopyUShortToByteQVT(b, to, 0, 0, 2, v); }), {"[]", "[]", "[]", "[]", "[]"}},
        {"ExtractBitsQVT Mask", false, [](REALobject b, RBInteger v) { return Took(ExtractBitsQVT(b, v, nullptr)); }, {"[]", "[]", "[010001040504050001000104050405]", "[0102030405060708090A0B0C0D0E0F10]", "[0102030405060708090A0B0C0D0E0F10]"}},
        {"AndBitsQVT Mask", false, [&](REALobject b, RBInteger v) { return Took(AndBitsQVT(b, second, v, nullptr)); }, {"[]", "[]", "[010001040504050001000104050405] -> [0002020000020208080A0A08080A0A10]", "[00000000000000000000000000000010] -> [0102030405060708090A0B0C0D0E0F]", "[]"}},
        {"Endian*QVT offset", true, [&](REALobject b, RBInteger v) {
             // As many swap on either byte order.
             int swapped = 0;
             for (auto convert : kEndianInPlace) {
                 At(v) = 0x35, At(v + 1) = At(v + 2) = At(v + 3) = 0;
                 convert(b, v, 1);
                 swapped += At(v) != 0x35;
             }
             return std::to_string(swapped) + " swapped";
         }, {"18 swapped @00 C3", "18 swapped @00 C3", "18 swapped @00 C3", "18 swapped @00 C3", "18 swapped @00 00"}},
        {"Endian*QVT count", false, nothing([](REALobject b, RBInteger v) { for (auto convert : kEndianInPlace) convert(b, 0, v); }), {kNotTried, kNotTried, kNotTried, "", ""}},
        {"NewMemoryBlockFromPtrQVT ptr", false, [](REALobject, RBInteger v) {
             REALobject wrapped = NewMemoryBlockFromPtrQVT(v);
             const bool at = GetBlockPtr(wrapped) == reinterpret_cast<void *>(v);
             simhost::Release(wrapped);
             return Said(at);
         }, {"true", "true", "true", "true", "true"}},
        {"NewMemoryBlockWithBytesQVT size", false, [&](REALobject, RBInteger v) { return Took(NewMemoryBlockWithBytesQVT(memory, v)); }, {kNotTried, kNotTried, kNotTried, "nil", "nil"}},
    };
    for (const Row &row : rows) {
        for (std::size_t i = 0; i < kValues.size(); ++i) {
            if (row.outcomes[i] == kNotTried) continue;
            const int64_t v = kValues[i];
            SCOPED_TRACE(std::string(row.argument) + " " + std::to_string(v));
            REALobject on = row.reserved ? big : simhost::NewBlock(test::Counting(16));
            if (row.reserved) {
                At(Cut(v)) = 0xC3;
                At(v) = 0x35;
            }
            std::string outcome = Balanced([&] { return row.call(on, static_cast<RBInteger>(v)); });
            for (const auto &raised : simhost::TakeExceptions()) {
                outcome += " ! " + raised.className + ": " + raised.message.value_or("<nil>");
            }
            if (row.reserved) {
                outcome += " @" + Hex(&At(v), 1) + " " + Hex(&At(Cut(v)), 1);
                for (int64_t at : {v, Cut(v), v / 8, Cut(v) / 8}) std::fill_n(base + at - 8, 16, 0);
                std::fill_n(base, 64, 0);
            } else {
                const std::string after = Took(on);
                if (after != "[0102030405060708090A0B0C0D0E0F10]") outcome += " -> " + after;
            }
            if (outcome.starts_with(' ')) outcome.erase(0, 1);
            EXPECT_EQ(outcome, row.outcomes[i]);
        }
    }
    simhost::Release(second);
    simhost::Release(sevens);
    simhost::Release(polar);
    simhost::Release(target);
}

}  // namespace
}  // namespace qvt
