// Sample width conversion: the worked values of each divisor, every loop
// against a plain per-sample model over overlapping and apart ranges, the
// nil refusals and the trace.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "diagnostics/debuglog.h"
#include "kernel_fixture.h"
#include "kernels/width.h"
#include "shell/definitions.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using test::Bytes;
using Convert = void (*)(REALobject, REALobject, intptr_t, intptr_t, intptr_t, intptr_t);

Bytes Sample(uint16_t value) {
    Bytes bytes(2);
    std::memcpy(bytes.data(), &value, 2);
    return bytes;
}

class WidthTest : public test::KernelTest {};
class WidthDifferentialTest : public test::QuietKernelTest {};

TEST_F(WidthTest, WideningWrapsTheProduct) {
    const struct {
        intptr_t divisor;
        uint8_t byte;
        uint16_t sample;
    } cases[] = {
        {1, 255, 255},        {256, 255, 0xFF00},       {257, 255, 0xFFFF}, {257, 128, 0x8080},
        {1000, 255, 58392},   {-1, 255, 65281},         {0, 77, 0},         {2, 255, 0x01FE},
        {16384, 255, 0xC000}, {32768, 255, 0x8000},     {65536, 9, 0},      {65536 + 4, 3, 12},
        {3, 200, 600},        {static_cast<intptr_t>(INT64_C(1) << 32), 5, 0},
    };
    for (const auto &c : cases) {
        // An odd source offset, and an odd destination address for the sample.
        REALobject source = simhost::NewBlock(Bytes{0xEE, c.byte, 0xEE});
        REALobject dest = simhost::NewBlock(Bytes(4, 0xEE));
        Balanced([&] { CopyByteToUShortQVT(source, dest, 1, 1, 1, c.divisor); });
        Bytes expected = Sample(c.sample);
        EXPECT_EQ(Contents(dest), (Bytes{0xEE, expected[0], expected[1], 0xEE})) << c.divisor;
        EXPECT_EQ(Contents(source), (Bytes{0xEE, c.byte, 0xEE}));
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(source);
        simhost::Release(dest);
    }
}

TEST_F(WidthTest, NarrowingDividesUnsignedAndKeepsTheLowByte) {
    const struct {
        intptr_t divisor;
        uint16_t sample;
        uint8_t byte;
    } cases[] = {
        {1, 0x1234, 0x34},  {256, 0xABCD, 0xAB}, {257, 0xFFFF, 0xFF}, {257, 0x8080, 0x80},
        {16, 0xFFFF, 0xFF}, {2, 0x0200, 0x00},   {3, 65535, 0x55},    {-1, 0xFFFF, 0},
        {32768, 0xFFFF, 1}, {1, 0x01FF, 0xFF},   {1, 0x0100, 0},      {0, 0xFFFF, 0},
        {16384, 0xFFFF, 3}, {65536, 0xFFFF, 0},  {1000, 60000, 60},
    };
    for (const auto &c : cases) {
        Bytes sample = Sample(c.sample);
        REALobject source = simhost::NewBlock(Bytes{0xEE, sample[0], sample[1]});
        REALobject dest = simhost::NewBlock(Bytes(3, 0xEE));
        Balanced([&] { CopyUShortToByteQVT(source, dest, 1, 1, 1, c.divisor); });
        EXPECT_EQ(Contents(dest), (Bytes{0xEE, c.byte, 0xEE})) << c.divisor << " " << c.sample;
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(source);
        simhost::Release(dest);
    }
}

TEST_F(WidthTest, FullRangeDivisorsCarryEveryByteThereAndBack) {
    Bytes all(256);
    for (int i = 0; i < 256; ++i) all[i] = static_cast<uint8_t>(i);
    for (intptr_t divisor : {1, 2, 4, 8, 16, 32, 64, 128, 256, 257}) {
        REALobject bytes = simhost::NewBlock(all);
        REALobject samples = simhost::NewBlock(512);
        CopyByteToUShortQVT(bytes, samples, 0, 0, 256, divisor);
        simhost::Bytes(bytes)[0] = 0xEE;
        CopyUShortToByteQVT(samples, bytes, 0, 0, 256, divisor);
        EXPECT_EQ(Contents(bytes), all) << divisor;
        simhost::Release(bytes);
        simhost::Release(samples);
    }
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

Bytes Noise(std::size_t size, uint32_t seed) {
    Bytes bytes(size);
    for (auto &b : bytes) {
        seed = seed * 1103515245u + 12345u;
        b = static_cast<uint8_t>(seed >> 16);
    }
    return bytes;
}

const int32_t kDivisors[] = {0,   1,    2,     4,     8,     16,     32,   64,         128,
                             256, 512,  1024,  2048,  4096,  8192,   16384, 257,       3,
                             255, 1000, 32768, 65535, 65536, 65538,  -1,    -257,      0x7FFFFFFF};

// Every divisor's loop, for every count around the block sizes and a few
// large ones, with the destination apart from the source, behind it, ahead
// of it and on it; the whole arena is compared, so a stray byte shows.
TEST_F(WidthDifferentialTest, EveryLoopGivesThePerSampleResult) {
    const struct {
        Convert convert;
        void (*model)(uint8_t *, std::size_t, std::size_t, int, int32_t);
        const char *name;
    } directions[] = {
        {&CopyByteToUShortQVT, &WidenModel, "widen"},
        {&CopyUShortToByteQVT, &NarrowModel, "narrow"},
    };
    std::vector<int> counts;
    for (int c = 0; c <= 200; ++c) counts.push_back(c);
    for (int c : {255, 256, 1000, 4097}) counts.push_back(c);
    for (const auto &d : directions) {
        for (int32_t divisor : kDivisors) {
            for (int count : counts) {
                const auto span = static_cast<std::size_t>(2 * count);
                // Source at `base`; destinations relative to it, one far apart.
                const std::size_t base = span + 9;
                const std::size_t tos[] = {base, base - 1, base - 2, base + 1, base + 3,
                                           base - span, base + span, 3 * span + 23};
                for (std::size_t to : tos) {
                    const Bytes start = Noise(4 * span + 40, static_cast<uint32_t>(count * 31 + to));
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

TEST_F(WidthTest, CountsOfZeroOrBelowTouchNothing) {
    for (Convert convert : {&CopyByteToUShortQVT, &CopyUShortToByteQVT}) {
        for (intptr_t count : {0, -1, -100}) {
            REALobject source = simhost::NewBlock(Bytes(8, 0x77));
            REALobject dest = simhost::NewBlock(Bytes(8, 0x99));
            Balanced([&] { convert(source, dest, 0, 0, count, 0); });
            EXPECT_EQ(Contents(dest), Bytes(8, 0x99));
            EXPECT_EQ(Contents(source), Bytes(8, 0x77));
            EXPECT_TRUE(simhost::TakeExceptions().empty());
            simhost::Release(source);
            simhost::Release(dest);
        }
    }
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
    const struct {
        REALobject source;
        REALobject dest;
        const char *trace;
        const char *message;
    } cases[] = {
        {nullptr, block, "source", "Source Memoryblock is nil"},
        {nullptr, nullptr, "source", "Source Memoryblock is nil"},
        {block, nullptr, "dest", "Destination Memoryblock is nil"},
        {memoryless, block, "sp", "Source Memoryblock is nil"},
        {memoryless, memoryless, "sp", "Source Memoryblock is nil"},
        {block, memoryless, "dp", "Destination Memoryblock is nil"},
    };
    const struct {
        Convert convert;
        const char *name;
    } methods[] = {{&CopyByteToUShortQVT, "CopyByteToUShortQVT"},
                   {&CopyUShortToByteQVT, "CopyUShortToByteQVT"}};
    for (const auto &m : methods) {
        for (const auto &c : cases) {
            gDebugging = true;
            test::StderrCapture output;
            Balanced([&] { m.convert(c.source, c.dest, 0, 0, 4, 0); });
            const std::string lines = output.Take();
            gDebugging = false;
            EXPECT_EQ(OneException(), std::string("NilObjectException: ") + c.message);
            const std::string tail = std::string("QVT Debug: ") + c.trace + " is nil\n";
            ASSERT_GE(lines.size(), tail.size());
            EXPECT_EQ(lines.substr(lines.size() - tail.size()), tail) << m.name;
            EXPECT_EQ(lines.find(" end"), std::string::npos) << lines;
            EXPECT_EQ(Contents(block), Bytes(8, 0x55));
        }
    }
    simhost::Release(block);
    simhost::Release(memoryless);
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
    EXPECT_EQ(Contents(dest), Bytes(4, 2));
    simhost::Release(source);
    simhost::Release(dest);
}

TEST_F(WidthTest, BothDirectionsAreRegisteredUnderTheirDeclarations) {
    REALPluginMain(&simhost::Resolve);
    const struct {
        const char *declaration;
        Convert function;
    } rows[] = {
        {"CopyByteToUShortQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as "
         "integer, ByteCount as integer, divisor as integer)",
         &CopyByteToUShortQVT},
        {"CopyUShortToByteQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as "
         "integer, ByteCount as integer, divisor as integer)",
         &CopyUShortToByteQVT},
    };
    for (const auto &row : rows) {
        auto method = simhost::FindMethod(row.declaration, "MemoryBlock");
        ASSERT_TRUE(method.has_value()) << row.declaration;
        EXPECT_EQ(method->function, reinterpret_cast<REALproc>(row.function));
    }
}

}  // namespace
}  // namespace qvt
