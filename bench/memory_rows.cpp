// Rows for the MemoryBlock methods that walk a range: copies, slices, fill,
// search and compare, byte order, mirroring, strided copy and bit expansion.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>

#include "bench/table.h"
#include "simhost/simhost.h"

namespace qvtbench {

namespace {

using O = REALobject;
using I = intptr_t;

// ---- Library routines --------------------------------------------------------

int64_t Memcpy(const Row &, Buffers &c) {
    std::memcpy(c.pd, c.pa, c.n);
    return 0;
}
int64_t Memmove(const Row &, Buffers &c) {
    std::memmove(c.pa + c.n, c.pa, c.n);
    return 0;
}
int64_t Memset(const Row &, Buffers &c) {
    std::memset(c.pa, 0x5A, c.n);
    return 0;
}
int64_t Reverse(const Row &, Buffers &c) {
    std::reverse(c.pa, c.pa + c.n);
    return 0;
}
// The last byte differs from the rest in both inputs it serves.
int64_t Memchr(const Row &, Buffers &c) {
    const void *at = std::memchr(c.pa, c.pa[c.n - 1], c.n);
    return at ? static_cast<const uint8_t *>(at) - c.pa : -1;
}
int64_t Memmem(const Row &, Buffers &c) {
    const void *at = memmem(c.pa, c.n, c.needle.data(), c.needle.size());
    return at ? static_cast<const uint8_t *>(at) - c.pa : -1;
}
int64_t Memcmp(const Row &, Buffers &c) { return std::memcmp(c.pa, c.pb, c.n) == 0; }

// ---- Copies and slices --------------------------------------------------------

int64_t PlainCopy(const uint8_t *from, uint8_t *to, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) to[i] = from[i];
    return 0;
}
int64_t CopyAToD(const Row &, Buffers &c) { return PlainCopy(c.pa, c.pd, c.n); }

// A copy whose bytes come from A and land in D (a block, raw memory or a
// new value): one plain loop and memcpy serve them all.
Row CopyOfA(Row row) {
    row.family = "copy";
    row.plain = CopyAToD;
    row.library = Memcpy;
    row.libraryKey = "memcpy";
    row.dEighths = 8;
    return row;
}

// The result block or string of a call, kept for release and comparison.
int64_t Keep(Buffers &c, O block) {
    c.result = block;
    return 0;
}
int64_t KeepText(Buffers &c, REALstring text) {
    c.resultText = text;
    return 0;
}

void StringOfB(const Row &, Buffers &c) {
    c.text = simhost::NewString(std::string_view(reinterpret_cast<const char *>(c.pb), c.n));
}

// ---- Search --------------------------------------------------------------------

// Naive search as the methods define it: every position, first byte first.
int64_t PlainFind(const uint8_t *data, std::size_t n, const std::vector<uint8_t> &target) {
    const std::size_t length = target.size();
    for (std::size_t at = 0; at + length <= n; ++at) {
        if (data[at] != target[0]) continue;
        std::size_t i = 1;
        while (i < length && data[at + i] == target[i]) ++i;
        if (i == length) return static_cast<int64_t>(at);
    }
    return -1;
}
int64_t PlainFindTarget(const Row &, Buffers &c) { return PlainFind(c.pa, c.n, c.needle); }

int64_t PlainFindByte(const Row &, Buffers &c) {
    for (std::size_t i = 0; i < c.n; ++i) {
        if (c.pa[i] == kNeedle) return static_cast<int64_t>(i);
    }
    return -1;
}
int64_t PlainFindNotByte(const Row &, Buffers &c) {
    for (std::size_t i = 0; i < c.n; ++i) {
        if (c.pa[i] != kUniform) return static_cast<int64_t>(i);
    }
    return -1;
}
// A search for one byte, or for the first other byte, compared with memchr.
Row ByteSearch(Row row) {
    row.family = "search";
    row.library = Memchr;
    row.libraryKey = "memchr";
    row.touched = 1;
    return row;
}

// A target of row.p bytes drawn from the block's own bytes (spaces left
// out), so that its bytes are as common as the data makes them.
void NeedleFromData(const Row &row, Buffers &c) {
    const auto length = static_cast<std::size_t>(row.p);
    std::mt19937 random(static_cast<unsigned>(length));
    c.needle.resize(length);
    for (auto &byte : c.needle) {
        do byte = c.pa[random() % (c.n - length)];
        while (byte == ' ');
    }
}

}  // namespace

// Puts the target last after breaking every earlier occurrence with a byte
// it lacks, so that every search walks the whole block.
void PutTarget(Buffers &c) {
    const std::size_t length = c.needle.size();
    int absent = 'a';
    while (absent < 256 && std::find(c.needle.begin(), c.needle.end(), absent) != c.needle.end()) ++absent;
    if (length == 1) {
        std::replace(c.pa, c.pa + c.n, c.needle[0], static_cast<uint8_t>(absent));
    } else if (absent < 256) {
        for (uint8_t *at = c.pa; (at = static_cast<uint8_t *>(memmem(at, c.pa + c.n - at, c.needle.data(), length)));) {
            *at = static_cast<uint8_t>(absent);
        }
    }
    std::memcpy(c.pa + c.n - length, c.needle.data(), length);
}
void TextNeedle(const Row &row, Buffers &c) {
    NeedleFromData(row, c);
    PutTarget(c);
}
// 1000 times 'a' and one 'b' in a block of 'a': the naive search compares
// 1000 bytes at every position.
void AdversarialNeedle(const Row &, Buffers &c) {
    c.needle.assign(1000, 'a');
    c.needle.push_back('b');
    PutTarget(c);
}
void StringTarget(Buffers &c) {
    c.text = simhost::NewString(
        std::string_view(reinterpret_cast<const char *>(c.needle.data()), c.needle.size()));
}
namespace {

void BlockTarget(Buffers &c) { c.target = simhost::NewBlock(c.needle); }

int64_t CallFindString(const Row &, REALproc f, Buffers &c) {
    return Invoke<I, O, I, I, REALstring>(f, c.a, 0, N(c), c.text);
}
int64_t CallFindBytes(const Row &, REALproc f, Buffers &c) {
    return Invoke<I, O, I, I, O, I, I>(f, c.a, 0, N(c), c.target, 0,
                                        static_cast<I>(c.needle.size()));
}

// ---- Byte order and mirroring ----------------------------------------------------

int64_t PlainSwapGroups(uint8_t *bytes, std::size_t n, std::size_t width) {
    for (std::size_t at = 0; at + width <= n; at += width) {
        for (std::size_t i = 0; i < width / 2; ++i) {
            std::swap(bytes[at + i], bytes[at + width - 1 - i]);
        }
    }
    return 0;
}
int64_t PlainSwapA(const Row &row, Buffers &c) {
    return PlainSwapGroups(c.pa, c.n, static_cast<std::size_t>(row.p));
}
int64_t PlainReverse(const Row &, Buffers &c) {
    for (std::size_t i = 0; i < c.n / 2; ++i) std::swap(c.pa[i], c.pa[c.n - 1 - i]);
    return 0;
}
// The in-place byte order forms count elements of row.p bytes.
int64_t CallElements(const Row &row, REALproc f, Buffers &c) {
    Invoke<void, O, I, I>(f, c.a, 0, N(c) / static_cast<I>(row.p));
    return 0;
}
int64_t CallRange(const Row &, REALproc f, Buffers &c) {
    Invoke<void, O, I, I>(f, c.a, 0, N(c));
    return 0;
}

// In-place reversals of the whole range, with std::reverse to compare...
Row WholeReversal(Row row) {
    row.call = CallRange;
    row.plain = PlainReverse;
    row.library = Reverse;
    row.libraryKey = "std::reverse";
    row.goal = Goal::Streaming;
    row.p = 1;
    return row;
}
// ...and of each group of row.p bytes; the call is over the range unless given.
Row GroupReversal(Row row) {
    if (row.call == nullptr) row.call = CallRange;
    row.plain = PlainSwapA;
    row.goal = Goal::Streaming;
    return row;
}

// Whether an in-place endian name swaps on this machine: its two orders differ.
bool Swaps(const std::string &orders) {
    auto order = [](char letter) {
        if (letter == 'N') letter = std::endian::native == std::endian::little ? 'L' : 'B';
        return letter;
    };
    return order(orders[0]) != order(orders[3]);
}

uint8_t MirroredBits(uint8_t v) {
    uint8_t out = 0;
    for (int bit = 0; bit < 8; ++bit) out = static_cast<uint8_t>(out | (((v >> bit) & 1) << (7 - bit)));
    return out;
}

int Bit(const uint8_t *p, std::size_t k) { return (p[k / 8] >> (7 - k % 8)) & 1; }
void SetBit(uint8_t *p, std::size_t k, int value) {
    const auto mask = static_cast<uint8_t>(1u << (7 - k % 8));
    p[k / 8] = static_cast<uint8_t>(value ? p[k / 8] | mask : p[k / 8] & ~mask);
}

// ---- Strided copy and bit expansion -------------------------------------------------

int64_t PlainCopyNthBytes(const Row &row, Buffers &c) {
    const auto count = static_cast<std::size_t>(row.p), step = static_cast<std::size_t>(row.q);
    for (std::size_t s = 0; s < c.n / step; ++s) {
        for (std::size_t k = 0; k < count; ++k) c.pa[s * count + k] = c.pb[s * step + k];
    }
    return 1;
}

}  // namespace

std::vector<Row> MemoryRows() {
    std::vector<Row> rows = {
        // ---- copies between blocks and raw memory; slices ----
        {.name = "CopyBytesQVT in one block",
         .family = "copy",
         .declaration = "CopyBytesQVT(srcOfs as Integer, numBytes as Integer, destOfs as Integer)",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             Invoke<void, O, I, I, I>(f, c.a, 0, N(c), N(c));
             return 0;
         },
         .plain = [](const Row &, Buffers &c) { return PlainCopy(c.pa, c.pa + c.n, c.n); },
         .library = Memmove,
         .libraryKey = "memmove",
         .aEighths = 16},
        CopyOfA({.name = "CopyBytesQVT to a block",
                 .declaration = "CopyBytesQVT(srcOfs as Integer, numBytes as Integer, destBlk as "
                                "MemoryBlock, destOfs as Integer)",
                 .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
                     Invoke<void, O, I, I, O, I>(f, c.a, 0, N(c), c.d, 0);
                     return 0;
                 }}),
        CopyOfA({.name = "CopyBytesToMacPtrQVT",
                 .declaration = "CopyBytesToMacPtrQVT(srcOfs as Integer, numBytes as Integer, "
                                "destPtr as Ptr)",
                 .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
                     Invoke<void, O, I, I, void *>(f, c.a, 0, N(c), c.pd);
                     return 0;
                 }}),
        {.name = "CopyBytesFromMacPtrQVT",
         .family = "copy",
         .declaration = "CopyBytesFromMacPtrQVT(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             Invoke<void, O, const void *, I, I>(f, c.a, c.pb, N(c), 0);
             return 0;
         },
         .plain = [](const Row &, Buffers &c) { return PlainCopy(c.pb, c.pa, c.n); },
         .library = Memcpy,
         .libraryKey = "memcpy",
         .bEighths = 8},
        CopyOfA({.name = "GetStringQVT",
                 .declaration = "GetStringQVT(offset as Integer, numBytes as Integer) as String",
                 .call = [](const Row &, REALproc f, Buffers &c) {
                     return KeepText(c, Invoke<REALstring, O, I, I>(f, c.a, 0, N(c)));
                 },
                 .aData = Data::Text,
                 .allocates = true}),
        {.name = "SetStringQVT",
         .family = "copy",
         .declaration = "SetStringQVT(str as String, offset as Integer)",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             Invoke<void, O, REALstring, I>(f, c.a, c.text, 0);
             return 0;
         },
         .plain = [](const Row &, Buffers &c) { return PlainCopy(c.pb, c.pa, c.n); },
         .library = Memcpy,
         .libraryKey = "memcpy",
         .bEighths = 8,
         .bData = Data::Text,
         .prepare = StringOfB},
        CopyOfA({.name = "LeftQVT",
                 .declaration = "LeftQVT(length as integer) as Memoryblock",
                 .call = [](const Row &, REALproc f, Buffers &c) {
                     return Keep(c, Invoke<O, O, I>(f, c.a, N(c)));
                 },
                 .allocates = true}),
        CopyOfA({.name = "RightQVT",
                 .declaration = "RightQVT(length As Integer) as Memoryblock",
                 .call = [](const Row &, REALproc f, Buffers &c) {
                     return Keep(c, Invoke<O, O, I>(f, c.a, N(c)));
                 },
                 .allocates = true}),
        CopyOfA({.name = "MidQVT(offset)",
                 .declaration = "MidQVT(offset as integer) as Memoryblock",
                 .call = [](const Row &, REALproc f, Buffers &c) {
                     return Keep(c, Invoke<O, O, I>(f, c.a, 0));
                 },
                 .allocates = true}),
        CopyOfA({.name = "MidQVT(offset, length)",
                 .declaration = "MidQVT(offset As Integer, length As Integer) as Memoryblock",
                 .call = [](const Row &, REALproc f, Buffers &c) {
                     return Keep(c, Invoke<O, O, I, I>(f, c.a, 0, N(c)));
                 },
                 .allocates = true}),
        {.name = "AppendQVT",
         .family = "copy",
         .declaration = "AppendQVT(other as Memoryblock) as Memoryblock",
         .call = [](const Row &, REALproc f, Buffers &c) { return Keep(c, Invoke<O, O, O>(f, c.a, c.b)); },
         .plain = [](const Row &, Buffers &c) {
             PlainCopy(c.pa, c.pd, c.n / 2);
             return PlainCopy(c.pb, c.pd + c.n / 2, c.n / 2);
         },
         .library = Memcpy,
         .libraryKey = "memcpy",
         .aEighths = 4,
         .bEighths = 4,
         .dEighths = 8,
         .allocates = true},
        CopyOfA({.name = "NewMemoryBlockWithBytesQVT",
                 .declaration = "NewMemoryBlockWithBytesQVT(Data as Ptr, size as Integer) as MemoryBlock",
                 .call = [](const Row &, REALproc f, Buffers &c) {
                     return Keep(c, Invoke<O, const void *, I>(f, c.pa, N(c)));
                 },
                 .global = true,
                 .allocates = true}),

        // ---- fill and invert ----
        {.name = "FillBytesQVT",
         .family = "fill",
         .declaration = "FillBytesQVT(offset as integer, count as integer, value as integer)",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             Invoke<void, O, I, I, I>(f, c.a, 0, N(c), 0x5A);
             return 0;
         },
         .plain = [](const Row &, Buffers &c) -> int64_t {
             for (std::size_t i = 0; i < c.n; ++i) c.pa[i] = 0x5A;
             return 0;
         },
         .library = Memset,
         .libraryKey = "memset",
         .touched = 1,
         .goal = Goal::Streaming},
        {.name = "InvertBytesQVT",
         .family = "fill",
         .declaration = "InvertBytesQVT(offset as integer, count as integer)",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             Invoke<void, O, I, I>(f, c.a, 0, N(c));
             return 0;
         },
         .plain = [](const Row &, Buffers &c) -> int64_t {
             for (std::size_t i = 0; i < c.n; ++i) c.pa[i] = static_cast<uint8_t>(~c.pa[i]);
             return 0;
         },
         .goal = Goal::Streaming},

        // ---- search and compare ----
        ByteSearch({.name = "FindByteQVT(byte)",
                    .declaration = "FindByteQVT(srcOfs as Integer, numBytes as Integer, byteValue "
                                   "as integer) as integer",
                    .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
                        return Invoke<I, O, I, I, I>(f, c.a, 0, N(c), kNeedle);
                    },
                    .plain = PlainFindByte,
                    .aData = Data::NeedleAtEnd,
                    .goal = Goal::FindByte}),
        ByteSearch({.name = "FindByteQVT(values)",
                    .declaration = "FindByteQVT(values() as UInt8, StartByteOffset as Integer = "
                                   "0) as Integer",
                    .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
                        return Invoke<I, O, REALarray, I>(f, c.a, c.values, 0);
                    },
                    .plain = PlainFindByte,
                    .aData = Data::NeedleAtEnd,
                    .prepare = [](const Row &, Buffers &c) {
                        c.values = simhost::NewArray(simhost::kArrayUInt8, {kNeedle});
                    }}),
        ByteSearch({.name = "FindNotByteQVT",
                    .declaration = "FindNotByteQVT(srcOfs as Integer, numBytes as Integer, "
                                   "byteValue as integer) as integer",
                    .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
                        return Invoke<I, O, I, I, I>(f, c.a, 0, N(c), kUniform);
                    },
                    .plain = PlainFindNotByte,
                    .aData = Data::Uniform,
                    .goal = Goal::FindNotByte}),
        {.name = "BytesZeroQVT",
         .family = "search",
         .declaration = "BytesZeroQVT(srcOfs as Integer, numBytes as Integer) as Boolean",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             return Invoke<bool, O, I, I>(f, c.a, 0, N(c));
         },
         .plain = [](const Row &, Buffers &c) -> int64_t {
             for (std::size_t i = 0; i < c.n; ++i) {
                 if (c.pa[i] != 0) return 0;
             }
             return 1;
         },
         // memcmp of the range with a zeroed range of the same length.
         .library = Memcmp,
         .libraryKey = "memcmp",
         .bEighths = 8,
         .aData = Data::Zero,
         .bData = Data::Zero,
         .touched = 1,
         .goal = Goal::Compare},
        {.name = "BytesEqualQVT",
         .family = "search",
         .declaration = "BytesEqualQVT(srcOfs as Integer, numBytes as Integer, destBlk as "
                        "MemoryBlock, destOfs as Integer) as Boolean",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             return Invoke<bool, O, I, I, O, I>(f, c.a, 0, N(c), c.b, 0);
         },
         .plain = [](const Row &, Buffers &c) -> int64_t {
             for (std::size_t i = 0; i < c.n; ++i) {
                 if (c.pa[i] != c.pb[i]) return 0;
             }
             return 1;
         },
         .library = Memcmp,
         .libraryKey = "memcmp",
         .bEighths = 8,
         .bData = Data::Random,
         .touched = 2,
         .goal = Goal::Compare},

        // ---- whole-range byte order and mirroring ----
        WholeReversal({.name = "SwapBytesQVT",
                       .family = "endian",
                       .declaration = "SwapBytesQVT(offset as Integer, numBytes as Integer)"}),
        GroupReversal({.name = "SwapBytes16QVT",
                       .family = "endian",
                       .declaration = "SwapBytes16QVT(offset as Integer, numBytes as Integer)",
                       .p = 2}),
        GroupReversal({.name = "SwapBytes32QVT",
                       .family = "endian",
                       .declaration = "SwapBytes32QVT(offset as Integer, numBytes as Integer)",
                       .p = 4}),
        WholeReversal({.name = "MirrorBytesQVT",
                       .family = "mirror",
                       .declaration =
                           "MirrorBytesQVT(offsetByte as Integer = 0, lengthByte as integer = -1)"}),
        {.name = "MirrorBitsInBytesQVT",
         .family = "mirror",
         .declaration = "MirrorBitsInBytesQVT(offsetByte as Integer, lengthByte as integer)",
         .call = CallRange,
         // The plain loop takes each byte's mirror from a table, as the method
         // is described; a bit loop per byte would be slower.
         .plain = [](const Row &, Buffers &c) -> int64_t {
             static const auto table = [] {
                 std::array<uint8_t, 256> t{};
                 for (int v = 0; v < 256; ++v) t[v] = MirroredBits(static_cast<uint8_t>(v));
                 return t;
             }();
             for (std::size_t i = 0; i < c.n; ++i) c.pa[i] = table[c.pa[i]];
             return 0;
         },
         .goal = Goal::Streaming,
         .p = 1},
        {.name = "MirrorBitsQVT",
         .family = "mirror",
         .declaration = "MirrorBitsQVT(offsetBit as Integer, lengthBit as integer)",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             Invoke<void, O, I, I>(f, c.a, 0, 8 * N(c));
             return 0;
         },
         .plain = [](const Row &, Buffers &c) -> int64_t {
             for (std::size_t i = 0, j = 8 * c.n - 1; i < j; ++i, --j) {
                 const int bitI = Bit(c.pa, i), bitJ = Bit(c.pa, j);
                 SetBit(c.pa, j, bitI);
                 SetBit(c.pa, i, bitJ);
             }
             return 0;
         },
         .sizeLimit = kInCache},

        // ---- strided copy and bit expansion ----
        {.name = "CopyNthBytesQVT 1 of 4",
         .family = "strided",
         .declaration = "CopyNthBytesQVT(source as memoryblock, SourceOffsetBytes as integer, "
                        "DestinationOffsetBytes as integer, ByteCount as integer, StepCount as "
                        "integer, NumberOfSteps as integer) as boolean",
         .call = [](const Row &row, REALproc f, Buffers &c) -> int64_t {
             return Invoke<bool, O, O, I, I, I, I, I>(f, c.a, c.b, 0, 0, static_cast<I>(row.p),
                                                      static_cast<I>(row.q),
                                                      N(c) / static_cast<I>(row.q));
         },
         .plain = PlainCopyNthBytes,
         .aEighths = 2,
         .bEighths = 8,
         .touched = 1.25,
         .goal = Goal::Streaming,
         .p = 1,
         .q = 4},
        {.name = "CopyNthBitsQVT 1 of 2",
         .family = "strided",
         .declaration = "CopyNthBitsQVT(source as memoryblock, SourceOffsetBits as integer, "
                        "DestinationOffsetBits as integer, BitCount as integer, StepCount as "
                        "integer, NumberOfSteps as integer) as boolean",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             return Invoke<bool, O, O, I, I, I, I, I>(f, c.a, c.b, 0, 0, 1, 1, 4 * N(c));
         },
         .plain = [](const Row &, Buffers &c) -> int64_t {
             for (std::size_t k = 0; k < 4 * c.n; ++k) SetBit(c.pa, k, Bit(c.pb, 2 * k));
             return 1;
         },
         .aEighths = 4,
         .bEighths = 8,
         .touched = 1.5},
        {.name = "ExpandBitsQVT",
         .family = "strided",
         .declaration = "ExpandBitsQVT(dest as memoryblock, SourceByteCount as integer, LowValue as "
                        "integer = 0, HighValue as integer = 255) as boolean",
         .call = [](const Row &, REALproc f, Buffers &c) -> int64_t {
             return Invoke<bool, O, O, I, I, I>(f, c.a, c.d, N(c) / 8, 0, 255);
         },
         .plain = [](const Row &, Buffers &c) -> int64_t {
             for (std::size_t i = 0; i < c.n; ++i) {
                 c.pd[i] = ((c.pa[i / 8] >> (7 - i % 8)) & 1) ? 255 : 0;
             }
             return 1;
         },
         .aEighths = 1,
         .dEighths = 8,
         .touched = 1.125,
         .goal = Goal::Streaming},
    };

    Row threeOfFour = rows[rows.size() - 3];
    threeOfFour.name = "CopyNthBytesQVT 3 of 4";
    threeOfFour.aEighths = 6;
    threeOfFour.touched = 1.75;
    threeOfFour.p = 3;
    rows.push_back(threeOfFour);

    // Targets of 1 to 256 bytes at the end of text and of random bytes; the
    // two forms share the search routine, so FindBytesQVT takes a few.
    std::size_t longest[2] = {};  // the 32-byte rows on text of both forms
    for (int length : {1, 2, 3, 4, 8, 16, 32, 64, 256}) {
        for (Data data : {Data::Text, Data::Random}) {
            for (bool string : {true, false}) {
                if (!string && (data != Data::Text || (length != 4 && length != 32))) continue;
                if (length == 32 && data == Data::Text) longest[string ? 0 : 1] = rows.size();
                const std::string what = std::to_string(length) + "-byte target" +
                                         (data == Data::Random ? " in random bytes" : "");
                rows.push_back(
                    {.name = (string ? "FindStringQVT " : "FindBytesQVT ") + what,
                     .family = "search",
                     .declaration =
                         string ? "FindStringQVT(srcOfs as Integer, maxBytes as Integer, target as "
                                  "String) as Integer"
                                : "FindBytesQVT(srcOfs as Integer, maxBytes as Integer, target as "
                                  "MemoryBlock, targOfs as Integer, targLen as Integer) as Integer",
                     .call = string ? CallFindString : CallFindBytes,
                     .plain = PlainFindTarget,
                     .library = Memmem,
                     .libraryKey = "memmem " + what,
                     .aData = data,
                     .prepare = string ? Prepare([](const Row &row, Buffers &c) {
                         TextNeedle(row, c);
                         StringTarget(c);
                     })
                                       : Prepare([](const Row &row, Buffers &c) {
                                             TextNeedle(row, c);
                                             BlockTarget(c);
                                         }),
                     .touched = 1,
                     .goal = Goal::FindString,
                     .p = length});
            }
        }
    }
    // The plain loop costs 1000 comparisons a byte here: it stops at 1 MiB.
    for (bool string : {true, false}) {
        Row row = rows[longest[string ? 0 : 1]];
        row.name = (string ? "FindStringQVT" : "FindBytesQVT") + std::string(" adversarial");
        row.aData = Data::Adversarial;
        row.libraryKey = "memmem adversarial";
        row.prepare = string ? Prepare([](const Row &r, Buffers &c) {
            AdversarialNeedle(r, c);
            StringTarget(c);
        })
                             : Prepare([](const Row &r, Buffers &c) {
                                   AdversarialNeedle(r, c);
                                   BlockTarget(c);
                               });
        row.goal = Goal::Linear;
        row.plainLimit = std::size_t{1} << 20;
        rows.push_back(row);
    }

    // The in-place byte order names that swap on this machine; the others
    // touch no byte and have nothing to measure.
    std::vector<std::pair<std::string, int>> swaps;  // name, element width
    for (const char *element : {"S32", "U32", "S16", "U16"}) {
        for (const char *orders : {"BtoN", "BtoL", "NtoB", "NtoL", "LtoN", "LtoB"}) {
            if (Swaps(orders))
                swaps.emplace_back(std::string("Endian") + element + "_" + orders + "QVT",
                                   element[1] == '3' ? 4 : 2);
        }
    }
    for (int width : {2, 4}) swaps.emplace_back("EndianSwap" + std::to_string(8 * width) + "QVT", width);
    for (const auto &[name, width] : swaps) {
        rows.push_back(GroupReversal({.name = name,
                                      .family = "endian",
                                      .declaration = name + "(offset as integer,count as integer)",
                                      .call = CallElements,
                                      .p = width}));
    }
    return rows;
}

}  // namespace qvtbench
