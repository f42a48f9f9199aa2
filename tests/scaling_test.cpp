// Scaling bytes and 16-bit samples in place: truncation, saturation, the
// threshold, the range and the refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "kernel_fixture.h"
#include "kernels/colour.h"
#include "kernels/minmax.h"
#include "kernels/scaling.h"
#include "kernels/sweep.h"
#include "shell/definitions.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using test::Bytes;
using Samples = std::vector<uint16_t>;

Bytes BytesOf(const Samples &samples) {
    Bytes bytes(samples.size() * 2);
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

class ScalingTest : public test::KernelTest {};

TEST_F(ScalingTest, BytesAreCutTowardZeroAndSaturate) {
    const struct { double factor; intptr_t offset, length, over; Bytes before, after; } cases[] = {
        {0.0, 0, 0, -1, {0, 1, 127, 255}, {0, 0, 0, 0}},
        {-0.0, 0, 0, -1, {9, 255}, {0, 0}},
        {0.5, 0, 0, -1, {255, 1, 3}, {127, 0, 1}},
        {1.5, 0, 0, -1, {100, 200, 170}, {150, 255, 255}},
        {2.0, 0, 0, 100, {100, 101, 200}, {100, 202, 255}},
        {2.0, 0, 0, -5, {1, 100, 200}, {2, 200, 255}},
        {kInfinity, 0, 0, -1, {0, 1}, {0, 255}},
        // A NaN factor gives 0 wherever a sample is replaced.
        {kNaN, 0, 0, 1, {0, 1, 255}, {0, 1, 0}},
        {2.0, 3, 0, -1, {1, 1, 1, 1, 1, 1}, {1, 1, 1, 2, 2, 2}},
        {2.0, 3, 2, -1, {1, 1, 1, 1, 1, 1}, {1, 1, 1, 2, 2, 1}},
        {2.0, 3, -1, -1, {1, 1, 1, 1, 1, 1}, {1, 1, 1, 2, 2, 2}},
        {2.0, 6, 0, -1, {1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1}}};
    for (const auto &c : cases) {
        EXPECT_EQ(After(c.before, [&](REALobject b) { MultiplyUInt8QVT(b, c.factor, c.offset, c.length, c.over); }), c.after)
            << c.factor << " " << c.offset << " " << c.over;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(ScalingTest, SamplesAreCutTowardZeroAndSaturateAtAnyOffset) {
    const struct { double factor; intptr_t over; Samples before, after; } cases[] = {
        {0.5, -1, {65535, 1, 3}, {32767, 0, 1}},
        {0.999, -1, {65535, 1000}, {65469, 999}},
        {1.5, -1, {40000, 50000}, {60000, 65535}},
        {2.0, 40000, {40000, 40001, 9}, {40000, 65535, 9}},
        {kNaN, 0, {0, 1, 65535}, {0, 0, 0}},
        {3.0, -5, {100, 200}, {300, 600}}};
    // The samples stand one byte in, and an odd last byte of the range stays.
    auto framed = [](const Samples &samples) {
        Bytes bytes = BytesOf(samples);
        bytes.insert(bytes.begin(), 0xEE);
        bytes.push_back(0x07);
        return bytes;
    };
    for (const auto &c : cases) {
        const auto length = static_cast<intptr_t>(2 * c.before.size() + 1);
        EXPECT_EQ(After(framed(c.before), [&](REALobject b) { MultiplyUInt16QVT(b, c.factor, 1, length, c.over); }),
                  framed(c.after)) << c.factor << " " << c.over;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(ScalingTest, RefusalsComeInOrderAndChangeNothing) {
    using Method = void (*)(REALobject, double, intptr_t, intptr_t, intptr_t);
    const struct { bool nil; double factor; intptr_t offset; const char *raised; } cases[] = {
                 {true, -1.0, -1, "NilObjectException: memoryblock is nil"},
                 {false, -1.0, -1, "UnsupportedOperationException: offset < 0"},
                 {false, -1e-300, 0, "UnsupportedOperationException: Percentage < 0.0"}};
    for (Method method : {&MultiplyUInt8QVT, &MultiplyUInt16QVT}) {
        for (const auto &c : cases) {
            REALobject block = simhost::NewBlock(Bytes{1, 2, 3, 4});
            simhost::ClearCalls();
            Balanced([&] { method(c.nil ? nullptr : block, c.factor, c.offset, 0, -1); });
            EXPECT_EQ(OneException(), c.raised);
            EXPECT_EQ(simhost::CountCalls("REALLockObject"), 0u);
            EXPECT_EQ(Contents(block), (Bytes{1, 2, 3, 4}));
            simhost::Release(block);
        }
    }
    // Blocks of unknown size need a length.
    uint8_t memory[4] = {1, 2, 3, 4};
    REALobject foreign = simhost::NewForeignBlock(memory);
    REALobject memoryless = simhost::NewMemorylessBlock();
    Balanced([&] { MultiplyUInt8QVT(foreign, 2.0, 0, 0, -1); });
    EXPECT_EQ(Bytes(memory, memory + 4), (Bytes{1, 2, 3, 4}));
    Balanced([&] { MultiplyUInt8QVT(foreign, 2.0, 1, 2, -1); });
    EXPECT_EQ(Bytes(memory, memory + 4), (Bytes{1, 4, 6, 4}));
    Balanced([&] { MultiplyUInt16QVT(memoryless, 2.0, 0, 0, -1); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(foreign);
    simhost::Release(memoryless);
}

// The kernels of all four families reach the host under their declarations.
TEST_F(ScalingTest, EveryKernelIsRegisteredUnderItsDeclaration) {
    test::ExpectRegistered({
        {"_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)", QVT_PROC(void(REALobject, intptr_t, intptr_t, intptr_t, bool), Calc2teCMYK)},
        {"_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)", QVT_PROC(void(REALobject, intptr_t, intptr_t, REALobject), ConvertCartesianToPolar)},
        {"MultiplyUInt16QVT(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0, MultiplyOnlyOver as Integer = -1)", QVT_PROC(void(REALobject, double, intptr_t, intptr_t, intptr_t), MultiplyUInt16QVT)},
        {"MaxQVT(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean", QVT_PROC(bool(REALobject, void *, void *, intptr_t, bool, intptr_t, intptr_t), MaxQVT)}});
}

}  // namespace
}  // namespace qvt
