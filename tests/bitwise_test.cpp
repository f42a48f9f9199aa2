// The mask kernels and the bitwise operations of two blocks: worked values,
// the result block and its reference, the refusals and the trace, and every
// path against a plain byte loop over apart, shared and overlapping blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
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

class BitwiseTest : public test::KernelTest {};
class BitwiseDifferentialTest : public test::QuietKernelTest {};

Call Extract(intptr_t mask) {
    return [mask](REALobject s, REALobject, REALobject d) { return ExtractBitsQVT(s, mask, d); };
}
Call AndBitsMasked(intptr_t mask) {
    return [mask](REALobject s, REALobject t, REALobject d) { return AndBitsQVT(s, t, mask, d); };
}
const Call kAndBits = [](REALobject s, REALobject t, REALobject d) { return AndBitsQVT(s, t, d); };
const Call kAnd = &BitwiseAndQVT;
const Call kOr = &BitwiseOrQVT;
const Call kXOr = &BitwiseXOrQVT;

TEST_F(BitwiseTest, WorkedValuesOfEveryKernel) {
    const struct {
        const char *what;
        Call call;
        Bytes source, second;
        Bytes result, sourceAfter, secondAfter;
    } cases[] = {
        {"and", kAnd, {0xF0}, {0x3C}, {0x30}, {0xF0}, {0x3C}},
        {"or", kOr, {0xF0}, {0x3C}, {0xFC}, {0xF0}, {0x3C}},
        {"xor", kXOr, {0xF0}, {0x3C}, {0xCC}, {0xF0}, {0x3C}},
        {"andbits", kAndBits, {0xF0}, {0x3C}, {0x30}, {0xC0}, {0x0C}},
        {"andbits 0x10", AndBitsMasked(0x10), {0xF0}, {0x3C}, {0x10}, {0xE0}, {0x2C}},
        {"andbits 0", AndBitsMasked(0), {0xF0, 0xFF}, {0x3C, 0xFF}, {0, 0}, {0xF0, 0xFF}, {0x3C, 0xFF}},
        {"andbits 0x1F0", AndBitsMasked(0x1F0), {0xFF}, {0x3C}, {0x30}, {0xCF}, {0x0C}},
        {"extract 0x0F", Extract(0x0F), {0xAB, 0xCD}, {0x00}, {0x0B, 0x0D}, {0xAB, 0xCD}, {0x00}},
        {"extract 0xFF", Extract(0xFF), {0xAB, 0xCD}, {0x00}, {0xAB, 0xCD}, {0xAB, 0xCD}, {0x00}},
        {"extract 0x100", Extract(0x100), {0xAB, 0xCD}, {0x00}, {0, 0}, {0xAB, 0xCD}, {0x00}},
        {"extract -1", Extract(-1), {0xAB, 0xCD}, {0x00}, {0xAB, 0xCD}, {0xAB, 0xCD}, {0x00}},
        {"extract 0x1234", Extract(0x1234), {0xFF, 0x0F}, {0x00}, {0x34, 0x04}, {0xFF, 0x0F}, {0x00}},
    };
    for (const auto &c : cases) {
        REALobject source = simhost::NewBlock(c.source);
        REALobject second = simhost::NewBlock(c.second);
        REALobject result = Balanced([&] { return c.call(source, second, nullptr); });
        ASSERT_NE(result, nullptr) << c.what;
        EXPECT_EQ(Contents(result), c.result) << c.what;
        EXPECT_EQ(Contents(source), c.sourceAfter) << c.what;
        EXPECT_EQ(Contents(second), c.secondAfter) << c.what;
        EXPECT_TRUE(simhost::TakeExceptions().empty());
        simhost::Release(result);
        simhost::Release(source);
        simhost::Release(second);
    }
}

Bytes Tail(const Bytes &bytes, std::size_t from) { return Bytes(bytes.begin() + from, bytes.end()); }

// The receiver of 10 bytes and the second of 3: 3 bytes are processed, into
// a new block of 3 or the front of a longer Dest, which is itself returned.
TEST_F(BitwiseTest, TheShorterBlockSetsTheLengthAndDestKeepsItsTail) {
    for (const Call &call : {kAnd, kOr, kXOr, kAndBits, AndBitsMasked(0xFF)}) {
        Bytes results[2];
        for (bool intoDest : {false, true}) {
            REALobject source = simhost::NewBlock(Bytes(10, 0xFF));
            REALobject second = simhost::NewBlock(Bytes(3, 0x0F));
            REALobject dest = intoDest ? simhost::NewBlock(Bytes(20, 0xEE)) : nullptr;
            REALobject result = Balanced([&] { return call(source, second, dest); });
            ASSERT_NE(result, nullptr);
            EXPECT_EQ(result, intoDest ? dest : result);
            results[intoDest] = Contents(result);
            EXPECT_EQ(Tail(Contents(source), 3), Bytes(7, 0xFF));
            EXPECT_TRUE(simhost::TakeExceptions().empty());
            for (REALobject o : {result, dest, source, second}) simhost::Release(o);
        }
        EXPECT_EQ(results[0].size(), 3u);
        EXPECT_EQ(Tail(results[1], 3), Bytes(17, 0xEE));
        EXPECT_EQ(Bytes(results[1].begin(), results[1].begin() + 3), results[0]);
    }
    REALobject source = simhost::NewBlock(Bytes(9, 0x3C));
    REALobject dest = simhost::NewBlock(Bytes(12, 0xEE));
    EXPECT_EQ(Balanced([&] { return ExtractBitsQVT(source, 0xF0, dest); }), dest);
    EXPECT_EQ(Contents(dest), (Bytes{0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0xEE,
                                     0xEE, 0xEE}));
    for (REALobject o : {dest, dest, source}) simhost::Release(o);
}

// What the shared blocks end as: the receiver or Second that is also Dest
// loses every bit it had in common, and the other one only those.
TEST_F(BitwiseTest, SharedBlocksEndAsTheByteLoopLeavesThem) {
    const Bytes x{0xF0, 0xAA, 0x0F, 0xFF, 0x12, 0x34, 0x56, 0x78, 0x9A};
    const Bytes y{0x3C, 0x55, 0xFF, 0x0F, 0xFF, 0x00, 0x56, 0x87, 0x9A};
    Bytes xOnly(9), yOnly(9);
    for (int i = 0; i < 9; ++i) {
        xOnly[i] = static_cast<uint8_t>(x[i] & ~y[i]);
        yOnly[i] = static_cast<uint8_t>(y[i] & ~x[i]);
    }
    const struct {
        Call call;
        bool secondIsReceiver, intoSecond;
        Bytes receiverAfter, secondAfter;
    } cases[] = {
        {kXOr, true, false, Bytes(9, 0), Bytes(9, 0)},
        {kAndBits, true, false, Bytes(9, 0), Bytes(9, 0)},
        {kAndBits, false, false, Bytes(9, 0), yOnly},
        {kAndBits, false, true, xOnly, Bytes(9, 0)},
    };
    for (const auto &c : cases) {
        REALobject source = simhost::NewBlock(x);
        REALobject second = c.secondIsReceiver ? source : simhost::NewBlock(y);
        REALobject dest = c.intoSecond ? second : source;
        EXPECT_EQ(Balanced([&] { return c.call(source, second, dest); }), dest);
        EXPECT_EQ(Contents(source), c.receiverAfter);
        EXPECT_EQ(Contents(second), c.secondAfter);
        for (REALobject o : {dest, source, c.secondIsReceiver ? nullptr : second}) simhost::Release(o);
    }
}

// A block of 0 bytes, of unknown size or without memory gives nil quietly,
// and a given Dest keeps its references.
TEST_F(BitwiseTest, EmptyBlocksGiveNilWithoutATrace) {
    uint8_t memory[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    REALobject empty = simhost::NewBlock(Bytes{});
    REALobject memoryless = simhost::NewMemorylessBlock();
    REALobject unknown = simhost::NewForeignBlock(memory);
    REALobject full = simhost::NewBlock(Bytes(8, 0xFF));
    REALobject dest = simhost::NewBlock(Bytes(8, 0xEE));
    const struct {
        Call call;
        REALobject source, second;
    } cases[] = {
        {kAnd, empty, full},    {kOr, full, empty},     {kXOr, unknown, full},
        {kAnd, full, unknown},  {kAndBits, empty, full}, {kAndBits, full, unknown},
        {AndBitsMasked(1), unknown, full}, {kXOr, memoryless, full}, {kAnd, full, memoryless},
        {Extract(1), empty, nullptr}, {Extract(1), unknown, nullptr}, {Extract(1), memoryless, nullptr},
    };
    for (const auto &c : cases) {
        for (REALobject d : {static_cast<REALobject>(nullptr), dest}) {
            gDebugging = true;
            test::StderrCapture output;
            EXPECT_EQ(Balanced([&] { return c.call(c.source, c.second, d); }), nullptr);
            const std::string lines = output.Take();
            gDebugging = false;
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
    REALobject block = simhost::NewBlock(Bytes(8, 0x5A));
    REALobject other = simhost::NewBlock(Bytes(8, 0xA5));
    REALobject empty = simhost::NewBlock(Bytes{});
    REALobject memoryless = simhost::NewMemorylessBlock();
    REALobject shortDest = simhost::NewBlock(Bytes(7, 0xEE));
    const char *kSource = "NilObjectException: Source Memoryblock is nil";
    const char *kSecond = "NilObjectException: Second Memoryblock is nil";
    const char *kDest = "NilObjectException: Destination Memoryblock is nil";
    const char *kShort = "OutOfBoundsException: Destination Memoryblock is too small";
    const struct {
        REALobject source, second, dest;
        const char *trace;
        const char *exception;
    } pairs[] = {
        {nullptr, other, nullptr, "source is nil", kSource},
        {nullptr, nullptr, other, "source is nil", kSource},
        {block, nullptr, other, "second is nil", kSecond},
        {empty, nullptr, nullptr, "second is nil", kSecond},  // nil tests come before sizes
        {block, other, memoryless, "dp is nil", kDest},
        {block, other, shortDest, "dest is too small", kShort},
    };
    for (const Call &call : {kAnd, kOr, kXOr, kAndBits, AndBitsMasked(3)}) {
        for (const auto &p : pairs) {
            gDebugging = true;
            test::StderrCapture output;
            EXPECT_EQ(Balanced([&] { return call(p.source, p.second, p.dest); }), nullptr);
            const std::string lines = output.Take();
            gDebugging = false;
            EXPECT_EQ(OneException(), p.exception);
            EXPECT_NE(lines.find(std::string("QVT Debug: ") + p.trace + "\n"), std::string::npos)
                << lines;
        }
    }
    const struct {
        REALobject source, dest;
        const char *exception;
    } singles[] = {
        {nullptr, other, kSource},
        {block, memoryless, kDest},
        {block, shortDest, kShort},
    };
    for (const auto &s : singles) {
        EXPECT_EQ(Balanced([&] { return ExtractBitsQVT(s.source, 0xFF, s.dest); }), nullptr);
        EXPECT_EQ(OneException(), s.exception);
    }
    EXPECT_EQ(Contents(block), Bytes(8, 0x5A));
    EXPECT_EQ(Contents(other), Bytes(8, 0xA5));
    EXPECT_EQ(Contents(shortDest), Bytes(7, 0xEE));
    for (REALobject o : {block, other, empty, memoryless, shortDest}) simhost::Release(o);
}

TEST_F(BitwiseTest, TraceOfEachKernel) {
    REALobject source = simhost::NewBlock(Bytes(10, 0xFF));
    REALobject second = simhost::NewBlock(Bytes(9, 0xFF));
    const std::string prefix = "QVT Debug: ";
    const struct {
        Call call;
        std::vector<std::string> lines;
    } cases[] = {
        {kXOr, {"BitwiseXOrQVT", "SourceSize 10", "SecondSize 9", "SourceSize 1, 1"}},
        {kAndBits, {"AndBits64QVT", "SourceSize 1, 1"}},
        {AndBitsMasked(-2),
         {"AndBitsMask64QVT", "mask -2", "SourceSize 10", "SecondSize 9", "SourceSize 1, 1"}},
        {Extract(0x1234),
         {"ExtractBits64QVT", "mask 4660", "SourceSize 10",
          "Mask " + std::to_string(0x3434343434343434ULL), "SourceSize 1, 2"}},
    };
    for (const auto &c : cases) {
        gDebugging = true;
        test::StderrCapture output;
        REALobject result = c.call(source, second, nullptr);
        std::string expected;
        for (const auto &line : c.lines) expected += prefix + line + "\n";
        gDebugging = false;
        EXPECT_EQ(output.Take(), expected);
        simhost::Release(result);
    }
    simhost::Release(source);
    simhost::Release(second);
}

// ---- Against the byte loop -------------------------------------------------

using Model = void (*)(uint8_t *x, uint8_t *y, uint8_t *out, std::size_t n, uint8_t m);

void AndModel(uint8_t *x, uint8_t *y, uint8_t *out, std::size_t n, uint8_t) {
    for (std::size_t i = 0; i < n; ++i) out[i] = x[i] & y[i];
}
void OrModel(uint8_t *x, uint8_t *y, uint8_t *out, std::size_t n, uint8_t) {
    for (std::size_t i = 0; i < n; ++i) out[i] = x[i] | y[i];
}
void XOrModel(uint8_t *x, uint8_t *y, uint8_t *out, std::size_t n, uint8_t) {
    for (std::size_t i = 0; i < n; ++i) out[i] = x[i] ^ y[i];
}
void AndBitsModel(uint8_t *x, uint8_t *y, uint8_t *out, std::size_t n, uint8_t m) {
    for (std::size_t i = 0; i < n; ++i) {
        const auto t = static_cast<uint8_t>(x[i] & y[i] & m);
        out[i] = t;
        x[i] &= static_cast<uint8_t>(~t);
        y[i] &= static_cast<uint8_t>(~t);
    }
}
void ExtractModel(uint8_t *x, uint8_t *, uint8_t *out, std::size_t n, uint8_t m) {
    for (std::size_t i = 0; i < n; ++i) out[i] = x[i] & m;
}

Bytes Noise(std::size_t size, uint32_t seed) {
    Bytes bytes(size);
    for (auto &b : bytes) {
        seed = seed * 1664525u + 1013904223u;
        b = static_cast<uint8_t>(seed >> 24);
    }
    return bytes;
}

// Where the operands lie: block 0 is the receiver, 1 the second block, 2 a
// block of its own for Dest; -1 is no Dest. A Dest at an offset is a block
// over that memory, overlapping its carrier in part.
struct Layout {
    const char *name;
    std::size_t extraSource, extraSecond;
    int second;
    int dest;
    std::size_t destOffset;
};

const Layout kLayouts[] = {
    {"new block", 0, 0, 1, -1, 0},
    {"three blocks", 2, 0, 1, 2, 0},
    {"dest is receiver", 0, 5, 1, 0, 0},
    {"dest is second", 0, 0, 1, 1, 0},
    {"second is receiver", 0, 0, 0, 2, 0},
    {"all one block", 0, 0, 0, 0, 0},
    {"dest inside receiver", 3, 0, 1, 0, 3},
    {"dest inside receiver, a word on", 9, 0, 1, 0, 9},
    {"dest inside second", 0, 1, 1, 1, 1},
};

TEST_F(BitwiseDifferentialTest, EveryPathGivesTheByteLoopsBytes) {
    const struct {
        const char *name;
        Call call;
        Model model;
        uint8_t mask;
        bool pair;
    } methods[] = {
        {"and", kAnd, &AndModel, 0, true},
        {"or", kOr, &OrModel, 0, true},
        {"xor", kXOr, &XOrModel, 0, true},
        {"andbits", kAndBits, &AndBitsModel, 0xFF, true},
        {"andbits masked", AndBitsMasked(0x3C5A), &AndBitsModel, 0x5A, true},
        {"extract", Extract(0x6C), &ExtractModel, 0x6C, false},
    };
    std::vector<std::size_t> sizes;
    for (std::size_t s = 0; s <= 200; ++s) sizes.push_back(s);
    for (std::size_t s : {1000, 4096 + 7}) sizes.push_back(s);
    for (const auto &m : methods) {
        for (const Layout &l : kLayouts) {
            // One block is all ExtractBitsQVT reads; its n is the receiver's
            // size, which leaves no room for a Dest inside it.
            if (!m.pair && (l.second != 1 || l.destOffset != 0 || l.dest == 1)) continue;
            for (std::size_t size : sizes) {
                Bytes model[3] = {Noise(size + l.extraSource, static_cast<uint32_t>(size)),
                                  Noise(size + l.extraSecond, static_cast<uint32_t>(size) + 7),
                                  Bytes(size + 16, 0xEE)};
                REALobject blocks[3];
                for (int b = 0; b < 3; ++b) blocks[b] = simhost::NewBlock(model[b]);
                REALobject dest = nullptr;
                if (l.dest >= 0) {
                    dest = l.destOffset == 0
                               ? blocks[l.dest]
                               : simhost::NewForeignBlock(simhost::Bytes(blocks[l.dest]).data() +
                                                          l.destOffset);
                }
                // The host's accounting grows with every block made: the
                // references are checked on the small sizes only.
                auto call = [&] { return m.call(blocks[0], blocks[l.second], dest); };
                REALobject result = size < 10 ? Balanced(call) : call();

                const std::size_t n =
                    m.pair ? std::min(model[0].size(), model[l.second].size()) : model[0].size();
                const bool empty = model[0].empty() || (m.pair && model[l.second].empty());
                Bytes fresh(n);
                if (!empty) {
                    uint8_t *out = l.dest < 0 ? fresh.data() : model[l.dest].data() + l.destOffset;
                    m.model(model[0].data(), model[l.second].data(), out, n, m.mask);
                }
                const std::string what = std::string(m.name) + ", " + l.name + ", size " +
                                         std::to_string(size);
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
                if (l.destOffset != 0) simhost::Release(dest);
                for (REALobject b : blocks) simhost::Release(b);
            }
        }
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(BitwiseTest, EveryKernelIsRegisteredUnderItsDeclaration) {
    REALPluginMain(&simhost::Resolve);
    using Pair = REALobject(REALobject, REALobject, REALobject);
    const struct {
        const char *declaration;
        REALproc function;
    } rows[] = {
        {"ExtractBitsQVT(Mask as integer, Dest as memoryblock=nil) as memoryblock",
         QVT_PROC(REALobject(REALobject, intptr_t, REALobject), ExtractBitsQVT)},
        {"AndBitsQVT(Second as memoryblock, Dest as memoryblock=nil) as memoryblock",
         QVT_PROC(Pair, AndBitsQVT)},
        {"AndBitsQVT(Second as memoryblock, Mask as integer, Dest as memoryblock=nil) as "
         "memoryblock",
         QVT_PROC(REALobject(REALobject, REALobject, intptr_t, REALobject), AndBitsQVT)},
        {"BitwiseAndQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         QVT_PROC(Pair, BitwiseAndQVT)},
        {"BitwiseOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         QVT_PROC(Pair, BitwiseOrQVT)},
        {"BitwiseXOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         QVT_PROC(Pair, BitwiseXOrQVT)},
    };
    for (const auto &row : rows) {
        auto method = simhost::FindMethod(row.declaration, "MemoryBlock");
        ASSERT_TRUE(method.has_value()) << row.declaration;
        EXPECT_EQ(method->function, row.function) << row.declaration;
    }
}

}  // namespace
}  // namespace qvt
