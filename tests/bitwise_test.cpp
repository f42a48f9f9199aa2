// The mask kernels and the bitwise operations of two blocks: worked values,
// the result block and its reference, the refusals and the trace, and every
// path against the plain word loop over apart, shared and overlapping blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>

#include "diagnostics/debuglog.h"
#include "kernel_fixture.h"
#include "kernels/bitwise.h"
#include "kernels/masks.h"
#include "shell/definitions.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using test::Bytes;
using Call = std::function<REALobject(REALobject source, REALobject second, REALobject dest)>;

class BitwiseTest : public test::KernelTest {
protected:
    // Runs `call` while debugging and gives back what it logged.
    template <typename F>
    std::string Traced(F call) {
        gDebugging = true;
        test::StderrCapture output;
        call();
        gDebugging = false;
        return output.Take();
    }
};
class BitwiseDifferentialTest : public test::QuietKernelTest {};

Call Extract(intptr_t m) { return [=](REALobject s, REALobject, REALobject d) { return ExtractBitsQVT(s, m, d); }; }
Call AndBitsMasked(intptr_t m) { return [=](auto s, auto t, auto d) { return AndBitsQVT(s, t, m, d); }; }
const Call kAndBits = [](REALobject s, REALobject t, REALobject d) { return AndBitsQVT(s, t, d); };
const Call kAnd = &BitwiseAndQVT;
const Call kOr = &BitwiseOrQVT;
const Call kXOr = &BitwiseXOrQVT;

TEST_F(BitwiseTest, WorkedValuesOfEveryKernel) {
    const struct { const char *what; Call call; Bytes source, second, result, sourceAfter, secondAfter; } cases[] = {
        {"and", kAnd, {0xF0}, {0x3C}, {0x30}, {0xF0}, {0x3C}},
        {"or", kOr, {0xF0}, {0x3C}, {0xFC}, {0xF0}, {0x3C}},
        {"xor", kXOr, {0xF0}, {0x3C}, {0xCC}, {0xF0}, {0x3C}},
        {"andbits", kAndBits, {0xF0}, {0x3C}, {0x30}, {0xC0}, {0x0C}},
        {"andbits 0", AndBitsMasked(0), {0xF0, 0xFF}, {0x3C, 0xFF}, {0, 0}, {0xF0, 0xFF}, {0x3C, 0xFF}},
        {"andbits 0x1F0", AndBitsMasked(0x1F0), {0xFF}, {0x3C}, {0x30}, {0xCF}, {0x0C}},
        {"extract 0x0F", Extract(0x0F), {0xAB, 0xCD}, {0x00}, {0x0B, 0x0D}, {0xAB, 0xCD}, {0x00}},
        {"extract 0x100", Extract(0x100), {0xAB, 0xCD}, {0x00}, {0, 0}, {0xAB, 0xCD}, {0x00}},
        {"extract -1", Extract(-1), {0xAB, 0xCD}, {0x00}, {0xAB, 0xCD}, {0xAB, 0xCD}, {0x00}},
    };
    for (const auto &c : cases) {
        REALobject source = simhost::NewBlock(c.source), second = simhost::NewBlock(c.second);
        REALobject result = Balanced([&] { return c.call(source, second, nullptr); });
        ASSERT_NE(result, nullptr) << c.what;
        EXPECT_EQ((std::vector{Contents(result), Contents(source), Contents(second)}),
                  (std::vector{c.result, c.sourceAfter, c.secondAfter})) << c.what;
        for (REALobject o : {result, source, second}) simhost::Release(o);
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

// The receiver of 10 bytes and the second of 3: 3 bytes are processed, into
// a new block of 3 or the front of a longer Dest, which is itself returned.
TEST_F(BitwiseTest, TheShorterBlockSetsTheLengthAndDestKeepsItsTail) {
    for (const Call &call : {kAnd, kOr, kXOr, kAndBits, AndBitsMasked(0xFF), Extract(0xFF)}) {
        Bytes results[2];
        for (bool intoDest : {false, true}) {
            REALobject source = simhost::NewBlock(Bytes(10, 0xFF)), second = simhost::NewBlock(Bytes(3, 0x0F));
            REALobject dest = intoDest ? simhost::NewBlock(Bytes(20, 0xEE)) : nullptr;
            REALobject result = Balanced([&] { return call(source, second, dest); });
            ASSERT_NE(result, nullptr);
            EXPECT_EQ(result, intoDest ? dest : result);
            results[intoDest] = Contents(result);
            for (REALobject o : {result, dest, source, second}) simhost::Release(o);
        }
        // ExtractBitsQVT reads the receiver alone: all 10 of its bytes.
        const std::size_t n = results[0].size();
        EXPECT_TRUE(n == 3 || (n == 10 && results[0] == Bytes(10, 0xFF)));
        Bytes expected = results[0];
        expected.resize(20, 0xEE);
        EXPECT_EQ(results[1], expected);
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

// A block of 0 bytes, of unknown size or without memory gives nil quietly,
// and a given Dest keeps its references.
TEST_F(BitwiseTest, EmptyBlocksGiveNilWithoutATrace) {
    uint8_t memory[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    REALobject empty = simhost::NewBlock(Bytes{}), memoryless = simhost::NewMemorylessBlock();
    REALobject unknown = simhost::NewForeignBlock(memory), full = simhost::NewBlock(Bytes(8, 0xFF));
    REALobject dest = simhost::NewBlock(Bytes(8, 0xEE));
    const struct { Call call; REALobject source, second; } cases[] = {
        {kAnd, empty, full}, {kOr, full, empty}, {kXOr, unknown, full}, {kAnd, full, memoryless},
        {AndBitsMasked(1), unknown, full}, {Extract(1), empty, nullptr}, {Extract(1), memoryless, nullptr},
    };
    for (const auto &c : cases) {
        for (REALobject d : {static_cast<REALobject>(nullptr), dest}) {
            const std::string lines =
                Traced([&] { EXPECT_EQ(Balanced([&] { return c.call(c.source, c.second, d); }), nullptr); });
            EXPECT_EQ(lines.find("is nil"), std::string::npos) << lines;
            EXPECT_TRUE(simhost::TakeExceptions().empty());
        }
    }
    EXPECT_EQ(Contents(dest), Bytes(8, 0xEE));
    EXPECT_EQ(Contents(full), Bytes(8, 0xFF));
    for (REALobject o : {empty, memoryless, unknown, full, dest}) simhost::Release(o);
}

// Every refusal gives nil, leaves every byte alone, and hands back the
// reference it took on Dest or that its new block carried.
TEST_F(BitwiseTest, RefusalsRaiseTheirTextsAndKeepReferencesBalanced) {
    REALobject block = simhost::NewBlock(Bytes(8, 0x5A)), other = simhost::NewBlock(Bytes(8, 0xA5));
    REALobject empty = simhost::NewBlock(Bytes{}), memoryless = simhost::NewMemorylessBlock();
    REALobject shortDest = simhost::NewBlock(Bytes(7, 0xEE)), emptyDest = simhost::NewBlock(Bytes{});
    const char *kSource = "NilObjectException: Source Memoryblock is nil";
    const char *kSecond = "NilObjectException: Second Memoryblock is nil";
    const char *kDest = "NilObjectException: Destination Memoryblock is nil";
    const char *kShort = "OutOfBoundsException: Destination Memoryblock is too small";
    const struct { REALobject source, second, dest; const char *trace, *exception; } pairs[] = {
        {nullptr, nullptr, other, "source is nil", kSource},
        {block, nullptr, other, "second is nil", kSecond},
        {empty, nullptr, nullptr, "second is nil", kSecond},  // nil tests come before sizes
        {block, other, memoryless, "dp is nil", kDest},
        {block, other, shortDest, "dest is too small", kShort},
        {block, other, emptyDest, "dest is too small", kShort},  // known to be empty, not unknown
    };
    for (const Call &call : {kAnd, kOr, kXOr, kAndBits, AndBitsMasked(3)}) {
        for (const auto &p : pairs) {
            const std::string lines = Traced(
                [&] { EXPECT_EQ(Balanced([&] { return call(p.source, p.second, p.dest); }), nullptr); });
            EXPECT_EQ(OneException(), p.exception);
            EXPECT_NE(lines.find(std::string("QVT Debug: ") + p.trace + "\n"), std::string::npos)
                << lines;
        }
    }
    for (const auto &p : {pairs[0], pairs[3], pairs[4], pairs[5]}) {
        EXPECT_EQ(Balanced([&] { return ExtractBitsQVT(p.source, 0xFF, p.dest); }), nullptr);
        EXPECT_EQ(OneException(), p.exception);
    }
    EXPECT_EQ((std::vector{Contents(block), Contents(other), Contents(shortDest), Contents(emptyDest)}),
              (std::vector{Bytes(8, 0x5A), Bytes(8, 0xA5), Bytes(7, 0xEE), Bytes{}}));
    for (REALobject o : {block, other, empty, memoryless, shortDest, emptyDest}) simhost::Release(o);
}

TEST_F(BitwiseTest, TraceOfEachKernel) {
    REALobject source = simhost::NewBlock(Bytes(10, 0xFF)), second = simhost::NewBlock(Bytes(9, 0xFF));
    const struct { Call call; std::vector<std::string> lines; } cases[] = {
        {kXOr, {"BitwiseXOrQVT", "SourceSize 10", "SecondSize 9", "SourceSize 1, 1"}},
        {kAndBits, {"AndBits64QVT", "SourceSize 1, 1"}},
        {AndBitsMasked(-2), {"AndBitsMask64QVT", "mask -2", "SourceSize 10", "SecondSize 9", "SourceSize 1, 1"}},
        {Extract(0x1234), {"ExtractBits64QVT", "mask 4660", "SourceSize 10",
                           "Mask " + std::to_string(0x3434343434343434ULL), "SourceSize 1, 2"}},
    };
    for (const auto &c : cases) {
        std::string expected;
        for (const auto &line : c.lines) expected += "QVT Debug: " + line + "\n";
        EXPECT_EQ(Traced([&] { simhost::Release(c.call(source, second, nullptr)); }), expected);
    }
    for (REALobject o : {source, second}) simhost::Release(o);
}

// Where the operands lie: block 0 is the receiver, 1 the second block, 2 a
// block of its own for Dest; -1 is no Dest. A window is a Dest at each
// offset 1 to 15 into its operand's block, overlapping it in part.
struct Layout { const char *name; int second, dest; bool window; };

const Layout kLayouts[] = {
    {"new block", 1, -1, false}, {"three blocks", 1, 2, false}, {"dest is receiver", 1, 0, false},
    {"dest is second", 1, 1, false}, {"second is receiver", 0, 2, false}, {"all one block", 0, 0, false},
    {"dest inside receiver", 1, 0, true}, {"dest inside second", 1, 1, true},
};

// The plain path: 8-byte units, then single bytes, in ascending order, each
// read whole before it is stored; out = op(x, y, mask), and AndBits then
// takes the common bits out of what each operand holds by then.
TEST_F(BitwiseDifferentialTest, EveryPathGivesThePlainWordLoopsBytes) {
    using Op = uint8_t (*)(uint8_t x, uint8_t y, uint8_t mask);
    const Op both = [](uint8_t x, uint8_t y, uint8_t m) -> uint8_t { return x & y & m; };
    const struct { const char *name; Call call; Op op; uint8_t mask; bool pair, clears; } methods[] = {
        {"and", kAnd, both, 0xFF, true, false},
        {"or", kOr, [](uint8_t x, uint8_t y, uint8_t) -> uint8_t { return x | y; }, 0, true, false},
        {"xor", kXOr, [](uint8_t x, uint8_t y, uint8_t) -> uint8_t { return x ^ y; }, 0, true, false},
        {"andbits", kAndBits, both, 0xFF, true, true},
        {"andbits masked", AndBitsMasked(0x3C5A), both, 0x5A, true, true},
        {"extract", Extract(0x6C), [](uint8_t x, uint8_t, uint8_t m) -> uint8_t { return x & m; }, 0x6C, false, false},
    };
    std::mt19937 random(7);
    // Around the 2- and 8-word strides and the vectors (unrolled up to 128
    // bytes), and one long run.
    const std::size_t sizes[] = {0, 1, 2, 7, 8, 9, 15, 16, 17, 23, 24, 25, 63, 64, 65, 71, 72, 73, 127, 128, 129, 4103};
    for (const auto &m : methods) {
        for (const Layout &l : kLayouts) {
            // ExtractBitsQVT's n is its receiver's whole size: no room for
            // a Dest inside it.
            if (!m.pair && (l.second != 1 || l.window || l.dest == 1)) continue;
            const std::size_t runs = (l.window ? 15 : 1) * std::size(sizes);
            for (std::size_t run = 0; run < runs; ++run) {
                const std::size_t shift = l.window ? 1 + run / std::size(sizes) : 0;
                const std::size_t size = sizes[run % std::size(sizes)];
                const std::size_t extra = l.window ? shift : 0;
                Bytes model[3] = {test::RandomBytes(size + (l.dest == 0 ? extra : 0), random),
                                  test::RandomBytes(size + (l.dest == 1 ? extra : 0), random), Bytes(size + 16, 0xEE)};
                REALobject blocks[3];
                for (int b = 0; b < 3; ++b) blocks[b] = simhost::NewBlock(model[b]);
                REALobject dest = nullptr;
                if (l.dest >= 0) {
                    uint8_t *at = simhost::Bytes(blocks[l.dest]).data() + shift;
                    dest = shift == 0 ? blocks[l.dest] : simhost::NewForeignBlock(at);
                }
                // The host's accounting grows with every block made: the
                // references are checked on the small sizes only.
                auto call = [&] { return m.call(blocks[0], blocks[l.second], dest); };
                REALobject result = size < 10 ? Balanced(call) : call();

                const std::size_t n = m.pair ? std::min(model[0].size(), model[l.second].size()) : model[0].size();
                const bool empty = model[0].empty() || (m.pair && model[l.second].empty());
                Bytes fresh(n);
                uint8_t *x = model[0].data(), *y = m.pair ? model[l.second].data() : x;
                uint8_t *out = l.dest < 0 ? fresh.data() : model[l.dest].data() + shift;
                for (std::size_t at = 0, unit = 8; !empty && at < n; at += unit) {
                    if (n - at < 8) unit = 1;
                    uint8_t a[8], b[8], t[8];
                    std::copy_n(x + at, unit, a);
                    std::copy_n(y + at, unit, b);
                    for (std::size_t k = 0; k < unit; ++k) t[k] = m.op(a[k], b[k], m.mask);
                    std::copy_n(t, unit, out + at);
                    for (uint8_t *operand : {x, y}) {
                        if (!m.clears) break;
                        std::copy_n(operand + at, unit, a);
                        for (std::size_t k = 0; k < unit; ++k) a[k] &= static_cast<uint8_t>(~t[k]);
                        std::copy_n(a, unit, operand + at);
                    }
                }
                const std::string what = std::string(m.name) + ", " + l.name + ", shift " +
                                         std::to_string(shift) + ", size " + std::to_string(size);
                if (empty) {
                    ASSERT_EQ(result, nullptr) << what;
                } else if (l.dest < 0) {
                    ASSERT_NE(result, nullptr) << what;
                    ASSERT_EQ(Contents(result), fresh) << what;
                } else {
                    ASSERT_EQ(result, dest) << what;
                }
                for (int b = 0; b < 3; ++b) ASSERT_EQ(Contents(blocks[b]), model[b]) << what << " block " << b;
                simhost::Release(result);
                if (shift != 0) simhost::Release(dest);
                for (REALobject o : blocks) simhost::Release(o);
            }
        }
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

// The two AndBitsQVT overloads must not be swapped.
TEST_F(BitwiseTest, TheKernelsAreRegisteredUnderTheirDeclarations) {
    test::ExpectRegistered({
        {"AndBitsQVT(Second as memoryblock, Dest as memoryblock=nil) as memoryblock",
         QVT_PROC(REALobject(REALobject, REALobject, REALobject), AndBitsQVT)},
        {"AndBitsQVT(Second as memoryblock, Mask as integer, Dest as memoryblock=nil) as memoryblock",
         QVT_PROC(REALobject(REALobject, REALobject, intptr_t, REALobject), AndBitsQVT)},
        {"BitwiseXOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         QVT_PROC(REALobject(REALobject, REALobject, REALobject), BitwiseXOrQVT)},
    });
}

}  // namespace
}  // namespace qvt
