// Sample width conversion: the worked values of each divisor, every loop
// against a plain per-sample model over overlapping and apart ranges, the
// nil refusals and the trace.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "diagnostics/debuglog.h"
#include "kernel_fixture.h"
#include "kernels/width.h"
#include "shell/definitions.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using test::Bytes;
using Convert = void (*)(REALobject, REALobject, intptr_t, intptr_t, intptr_t, intptr_t);

class WidthTest : public test::KernelTest {};
class WidthDifferentialTest : public test::QuietKernelTest {};

// One sample at an odd offset of an arena, written through an odd address,
// each way; the bytes around it must stay.
TEST_F(WidthTest, WorkedValuesOfEachDivisor) {
    // bytes in the low 8 bits when narrow
    const struct { Convert convert; intptr_t divisor; uint16_t in, out; } cases[] = {
        // Widening wraps the product; narrowing divides unsigned and keeps the low byte.
        {&CopyByteToUShortQVT, 257, 255, 0xFFFF},     {&CopyByteToUShortQVT, 1000, 255, 58392},
        {&CopyByteToUShortQVT, -1, 255, 65281},       {&CopyByteToUShortQVT, 0, 77, 0},
        {&CopyByteToUShortQVT, 32768, 255, 0x8000},   {&CopyByteToUShortQVT, 65536 + 4, 3, 12},
        {&CopyByteToUShortQVT, static_cast<intptr_t>(INT64_C(1) << 32), 5, 0},
        {&CopyUShortToByteQVT, 1, 0x1234, 0x34},      {&CopyUShortToByteQVT, 256, 0xABCD, 0xAB},
        {&CopyUShortToByteQVT, 3, 65535, 0x55},       {&CopyUShortToByteQVT, -1, 0xFFFF, 0},
        {&CopyUShortToByteQVT, 32768, 0xFFFF, 1},     {&CopyUShortToByteQVT, 0, 0xFFFF, 0},
    };
    for (const auto &c : cases) {
        const bool widen = c.convert == &CopyByteToUShortQVT;
        auto arena = [](uint16_t value, bool wide) {
            Bytes bytes(wide ? 4 : 3, 0xEE);
            if (wide) std::memcpy(bytes.data() + 1, &value, 2);
            else bytes[1] = static_cast<uint8_t>(value);
            return bytes;
        };
        REALobject source = simhost::NewBlock(arena(c.in, !widen));
        const Bytes dest = After(Bytes(widen ? 4 : 3, 0xEE),
                                 [&](REALobject d) { c.convert(source, d, 1, 1, 1, c.divisor); });
        EXPECT_EQ(dest, arena(c.out, widen)) << widen << " " << c.divisor << " " << c.in;
        EXPECT_EQ(Contents(source), arena(c.in, !widen));
        simhost::Release(source);
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

// The per-sample rules, in ascending order on one arena, so that overlapping
// ranges read what earlier samples wrote.
void WidenModel(uint8_t *arena, std::size_t from, std::size_t to, int count, int32_t divisor) {
    for (int i = 0; i < count; ++i) {
        auto sample = static_cast<uint16_t>(arena[from + i] * static_cast<uint32_t>(divisor));
        std::memcpy(arena + to + 2 * i, &sample, 2);
    }
}

void NarrowModel(uint8_t *arena, std::size_t from, std::size_t to, int count, int32_t divisor) {
    for (int i = 0; i < count; ++i) {
        uint16_t sample;
        std::memcpy(&sample, arena + from + 2 * i, 2);
        arena[to + i] =
            divisor == 0 ? 0 : static_cast<uint8_t>(sample / static_cast<uint32_t>(divisor));
    }
}

// Each loop of its own (nothing, shifts from 2 to 16384, 257, and the plain
// product or quotient) for every count across the 16 and 32 sample blocks,
// with the destination apart from the source, behind it, ahead of it and on
// it; the whole arena is compared, so a stray byte shows.
TEST_F(WidthDifferentialTest, EveryLoopGivesThePerSampleResult) {
    const struct {
        Convert convert;
        void (*model)(uint8_t *, std::size_t, std::size_t, int, int32_t);
        const char *name;
    } directions[] = {
        {&CopyByteToUShortQVT, &WidenModel, "widen"},
        {&CopyUShortToByteQVT, &NarrowModel, "narrow"},
    };
    std::vector<int> counts{-1, 255, 1000};  // below 1 touches nothing
    for (int c = 0; c <= 70; ++c) counts.push_back(c);
    std::mt19937 random(3);
    for (const auto &d : directions) {
        for (int32_t divisor : {0, 1, 2, 256, 16384, 32768, 257, 3, 7, 65535, 65538, -1, 0x7FFFFFFF}) {
            for (int count : counts) {
                const auto span = static_cast<std::size_t>(2 * std::max(count, 0));
                // Source at `base`; destinations relative to it, one far apart.
                const std::size_t base = span + 9;
                for (std::size_t to : {base, base - 1, base + 1, base + 3, base - span,
                                       base + span, 3 * span + 23}) {
                    const Bytes start = test::RandomBytes(4 * span + 40, random);
                    Bytes expected = start;
                    d.model(expected.data(), base, to, count, divisor);
                    REALobject arena = simhost::NewBlock(start);
                    d.convert(arena, arena, static_cast<intptr_t>(base), static_cast<intptr_t>(to),
                              count, divisor);
                    ASSERT_EQ(Contents(arena), expected)
                        << d.name << " divisor " << divisor << " count " << count << " to " << to;
                    simhost::Release(arena);
                }
            }
        }
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

// The quotient through the reciprocal never leaves 32 bits and rises with
// the dividend, so it equals x / divisor everywhere when it does at both
// ends of each run of dividends that share a quotient: every dividend of
// every divisor, in a few million steps.
TEST(ReciprocalTest, GivesEveryQuotientOfEverySixteenBitDividend) {
    for (uint32_t divisor = 1; divisor <= 65537; ++divisor) {
        const kernels::Reciprocal r = kernels::ReciprocalOf(divisor);
        ASSERT_LT((65535 + uint64_t{r.add}) * r.multiplier, uint64_t{1} << 32) << divisor;
        ASSERT_LT(r.shift, 32u) << divisor;
        auto quotient = [&](uint32_t x) { return ((x + r.add) * r.multiplier) >> r.shift; };
        for (uint32_t q = 0; q <= 65535 / divisor; ++q) {
            ASSERT_EQ(quotient(q * divisor), q) << divisor;
            ASSERT_EQ(quotient(std::min(q * divisor + divisor - 1, 65535u)), q) << divisor;
        }
    }
    EXPECT_EQ(kernels::ReciprocalOf(0xFFFFFFFFu).multiplier, 0u);
}

// Every sample value through the narrowing loops, a range at odd addresses.
TEST_F(WidthDifferentialTest, EverySampleGivesItsQuotient) {
    Bytes samples(2 * 65536 + 1);
    for (uint32_t x = 0; x < 65536; ++x) {
        const auto sample = static_cast<uint16_t>(x);
        std::memcpy(&samples[1 + 2 * x], &sample, 2);
    }
    REALobject source = simhost::NewBlock(samples);
    for (int32_t divisor : {1, 2, 3, 5, 6, 7, 10, 11, 13, 100, 255, 256, 257, 641, 1000, 1023,
                            4097, 16384, 32767, 32768, 40000, 65534, 65535, 65536, -1}) {
        Bytes expected(65536 + 2, 0xEE);
        for (uint32_t x = 0; x < 65536; ++x) {
            expected[1 + x] = static_cast<uint8_t>(x / static_cast<uint32_t>(divisor));
        }
        const Bytes dest = After(Bytes(65536 + 2, 0xEE),
                                 [&](REALobject d) { CopyUShortToByteQVT(source, d, 1, 1, 65536, divisor); });
        ASSERT_EQ(dest, expected) << divisor;
    }
    simhost::Release(source);
}

std::string Pointer(const void *p) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", p);
    return text;
}

// Both directions raise for a nil block: the silent return was the other
// choice for widening, and they now report alike.
TEST_F(WidthTest, NilBlocksAndBlocksWithoutMemoryRaise) {
    REALobject block = simhost::NewBlock(Bytes(8, 0x55));
    REALobject memoryless = simhost::NewMemorylessBlock();
    const struct { REALobject source; REALobject dest; const char *trace; const char *message; } cases[] = {
        {nullptr, nullptr, "source", "Source Memoryblock is nil"},
        {block, nullptr, "dest", "Destination Memoryblock is nil"},
        {memoryless, memoryless, "sp", "Source Memoryblock is nil"},
        {block, memoryless, "dp", "Destination Memoryblock is nil"},
    };
    for (Convert convert : {&CopyByteToUShortQVT, &CopyUShortToByteQVT}) {
        for (const auto &c : cases) {
            gDebugging = true;
            test::StderrCapture output;
            Balanced([&] { convert(c.source, c.dest, 0, 0, 4, 0); });
            const std::string lines = output.Take();
            gDebugging = false;
            EXPECT_EQ(OneException(), std::string("NilObjectException: ") + c.message);
            const std::string tail = std::string("QVT Debug: ") + c.trace + " is nil\n";
            EXPECT_TRUE(lines.ends_with(tail)) << lines;
            EXPECT_EQ(lines.find(" end"), std::string::npos) << lines;
            EXPECT_EQ(Contents(block), Bytes(8, 0x55));
        }
    }
    for (REALobject b : {block, memoryless}) simhost::Release(b);
}

TEST_F(WidthTest, TraceNamesEveryArgument) {
    REALobject source = simhost::NewBlock(Bytes(4, 1));
    REALobject dest = simhost::NewBlock(Bytes(4, 2));
    gDebugging = true;
    test::StderrCapture output;
    CopyUShortToByteQVT(source, dest, 1, -2, 0, 257);
    gDebugging = false;
    const std::string expected = "QVT Debug: CopyUShortToByteQVT start\n"
                                 "QVT Debug: source " + Pointer(source) + "\n"
                                 "QVT Debug: dest " + Pointer(dest) + "\n"
                                 "QVT Debug: SourceOffset 1\n"
                                 "QVT Debug: DestinationOffset -2\n"
                                 "QVT Debug: ByteCount 0\n"
                                 "QVT Debug: divisor 257\n"
                                 "QVT Debug: CopyUShortToByteQVT end\n";
    EXPECT_EQ(output.Take(), expected);
    for (REALobject b : {source, dest}) simhost::Release(b);
}

TEST_F(WidthTest, BothDirectionsAreRegisteredUnderTheirDeclarations) {
    REALPluginMain(&simhost::Resolve);
    for (const auto &[name, function] : {std::pair{"CopyByteToUShortQVT", &CopyByteToUShortQVT},
                                         {"CopyUShortToByteQVT", &CopyUShortToByteQVT}}) {
        auto method = simhost::FindMethod(std::string(name) + "(dest as memoryblock, SourceOffset as integer, "
                                          "DestinationOffset as integer, ByteCount as integer, divisor as integer)", "MemoryBlock");
        ASSERT_TRUE(method.has_value()) << name;
        EXPECT_EQ(method->function, reinterpret_cast<REALproc>(function));
    }
}

}  // namespace
}  // namespace qvt
