// Small calls, one at a time: what a host program pays for a method it calls
// in a loop. Each row times the method through the simulated host, the host
// entries that call makes on its own (what any plug-in pays), and the plain
// C++ expression of the same job. The method's own cost is the first less
// the second.
//
// Benchmark names are "<kind>|<row>|<bytes>", kind being call, callhost or
// callplain; the label lists the row's host entries.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "bench/table.h"
#include "shell/definitions.h"
#include "simhost/simhost.h"

namespace qvtbench {

namespace {

// The host's entries as the plug-in finds them.
struct Entries {
    void (*lock)(REALobject) = nullptr;
    void (*unlock)(REALobject) = nullptr;
    void *(*ptr)(REALobject) = nullptr;
    RBInteger (*size)(REALobject) = nullptr;
    REALstring (*buildString)(const void *, int32_t, uint32_t) = nullptr;
    void (*unlockString)(REALstring) = nullptr;
};

template <typename F>
void Bind(F &slot, const char *name) {
    slot = reinterpret_cast<F>(simhost::Resolve(name));
}

// What a call works on; the bytes are the first of `a` and of `b`.
struct Operands {
    REALobject a = nullptr;
    REALobject b = nullptr;
    REALobject instance = nullptr;
    uint8_t *pb = nullptr;
    std::vector<uint8_t> bytes;  // a copy of a's for the plain expression
    int64_t field = 0;           // the plain accessor's field
    uint64_t step = 0;           // moves the argument between calls
    REALproc method = nullptr;
};

constexpr std::size_t kBlock = 64;
constexpr uint64_t kBits = kBlock * 8;

using Run = int64_t (*)(const Entries &, Operands &);

struct CallRow {
    const char *name;
    const char *receiver;  // "" for a global function
    const char *declaration;
    std::size_t bytes;   // the bytes one call covers
    const char *entries;  // host entries of one call, in order
    Run method;
    Run host;  // nullptr: the call needs no host entry
    Run plain;
};

using O = REALobject;
using I = intptr_t;

// ---- The host entries of each shape of call ------------------------------------

int64_t PinBlock(const Entries &e, Operands &c) {
    e.lock(c.a);
    const RBInteger size = e.size(c.a);
    void *p = e.ptr(c.a);
    benchmark::DoNotOptimize(p);
    e.unlock(c.a);
    return size;
}

int64_t PointerOf(const Entries &e, Operands &c) {
    void *p = e.ptr(c.a);
    benchmark::DoNotOptimize(p);
    return 0;
}

int64_t PointersOfTwo(const Entries &e, Operands &c) {
    void *p = e.ptr(c.a);
    void *q = e.ptr(c.b);
    benchmark::DoNotOptimize(p);
    benchmark::DoNotOptimize(q);
    return 0;
}

int64_t StringFromBlock(const Entries &e, Operands &c) {
    const RBInteger size = e.size(c.a);
    auto *p = static_cast<const uint8_t *>(e.ptr(c.a));
    REALstring s = e.buildString(p, 4, hostabi::kEncodingASCII);
    e.unlockString(s);
    return size;
}

// ---- Plain expressions ------------------------------------------------------------

uint64_t NextBit(Operands &c) { return c.step = (c.step + 7) % kBits; }

int64_t PlainGetBit(const Entries &, Operands &c) {
    const uint64_t bit = NextBit(c);
    return (c.bytes[bit / 8] >> (7 - bit % 8)) & 1;
}

int64_t PlainSetBit(const Entries &, Operands &c) {
    const uint64_t bit = NextBit(c);
    const unsigned shift = 7 - bit % 8;
    uint8_t &byte = c.bytes[bit / 8];
    byte = static_cast<uint8_t>((byte & ~(1u << shift)) | ((bit & 8) >> 3 << shift));
    return 0;
}

int64_t PlainMirror8(const Entries &, Operands &c) {
    for (std::size_t i = 0; i < 8; ++i) {
        uint8_t in = c.bytes[i], out = 0;
        for (int bit = 0; bit < 8; ++bit) out = static_cast<uint8_t>(out << 1 | (in >> bit & 1));
        c.bytes[i] = out;
    }
    return 0;
}

int64_t PlainFind16(const Entries &, Operands &c) {
    const void *at = std::memchr(c.bytes.data(), kNeedle, 16);
    return at ? static_cast<const uint8_t *>(at) - c.bytes.data() : -1;
}

int64_t PlainEqual16(const Entries &, Operands &c) {
    benchmark::DoNotOptimize(c.pb);
    return std::memcmp(c.bytes.data(), c.pb, 16) == 0;
}

int64_t PlainString4(const Entries &, Operands &c) {
    std::string s(reinterpret_cast<const char *>(c.bytes.data()), 4);
    benchmark::DoNotOptimize(s.data());
    return static_cast<int64_t>(s.size());
}

int64_t PlainSwap32(const Entries &, Operands &c) {
    const auto n = static_cast<uint32_t>(++c.step);
    const uint32_t swapped = n >> 24 | (n >> 8 & 0xFF00) | (n << 8 & 0xFF0000) | n << 24;
    // Big to native: a swap on little-endian machines only.
    const uint16_t probe = 1;
    uint8_t first;
    std::memcpy(&first, &probe, 1);
    return first ? swapped : n;
}

int64_t PlainField(const Entries &, Operands &c) {
    benchmark::DoNotOptimize(c.field);
    return c.field;
}

// ---- The methods, as the host calls them --------------------------------------------

const CallRow kRows[] = {
    {"GetBitQVT", "MemoryBlock", "GetBitQVT(Bit as UInt64) as Integer", 1,
     "REALLockObject memoryBlockGetSize memoryBlockGetPtr REALUnlockObject",
     [](const Entries &, Operands &c) -> int64_t { return Invoke<I, O, uint64_t>(c.method, c.a, NextBit(c)); },
     PinBlock, PlainGetBit},
    {"SetBitQVT", "MemoryBlock", "SetBitQVT(Bit as UInt64, Value as Integer)", 1,
     "REALLockObject memoryBlockGetSize memoryBlockGetPtr REALUnlockObject",
     [](const Entries &, Operands &c) -> int64_t {
         const uint64_t bit = NextBit(c);
         Invoke<void, O, uint64_t, I>(c.method, c.a, bit, static_cast<I>((bit & 8) >> 3));
         return 0;
     },
     PinBlock, PlainSetBit},
    {"MirrorBitsInBytesQVT", "MemoryBlock", "MirrorBitsInBytesQVT(offsetByte as Integer, lengthByte as integer)", 8,
     "memoryBlockGetPtr",
     [](const Entries &, Operands &c) -> int64_t {
         Invoke<void, O, I, I>(c.method, c.a, 0, 8);
         return 0;
     },
     PointerOf, PlainMirror8},
    {"FindByteQVT", "MemoryBlock", "FindByteQVT(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer", 16,
     "memoryBlockGetPtr",
     [](const Entries &, Operands &c) -> int64_t { return Invoke<I, O, I, I, I>(c.method, c.a, 0, 16, kNeedle); },
     PointerOf, PlainFind16},
    {"BytesEqualQVT", "MemoryBlock", "BytesEqualQVT(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean", 16,
     "memoryBlockGetPtr memoryBlockGetPtr",
     [](const Entries &, Operands &c) -> int64_t { return Invoke<bool, O, I, I, O, I>(c.method, c.a, 0, 16, c.b, 0); },
     PointersOfTwo, PlainEqual16},
    {"GetStringQVT", "MemoryBlock", "GetStringQVT(offset as Integer, numBytes as Integer) as String", 4,
     "memoryBlockGetSize memoryBlockGetPtr REALBuildStringWithEncoding REALUnlockString",
     [](const Entries &e, Operands &c) -> int64_t {
         REALstring s = Invoke<REALstring, O, I, I>(c.method, c.a, 0, 4);
         e.unlockString(s);
         return s != nullptr;
     },
     StringFromBlock, PlainString4},
    {"EndianU32_BtoNQVT", "", "EndianU32_BtoNQVT(n as UInt32) as UInt32", 4, "",
     [](const Entries &, Operands &c) -> int64_t {
         return Invoke<uint32_t, uint32_t>(c.method, static_cast<uint32_t>(++c.step));
     },
     nullptr, PlainSwap32},
    {"MemoryBlockQVT.Size", "MemoryBlockQVT", "Size", 8, "",
     [](const Entries &, Operands &c) -> int64_t { return Invoke<int64_t, O, I>(c.method, c.instance, 0); },
     nullptr, PlainField},
};

// Host strings stay with the host until its reset, so rows that make them
// start a fresh host after this many calls, untimed: the strings' memory is
// then used again, as a host that frees its strings would.
constexpr int64_t kStringCalls = 1000;

REALproc Find(const CallRow &row) {
    if (std::string_view(row.receiver) == "MemoryBlockQVT") {
        auto property = simhost::FindProperty(row.declaration, row.receiver);
        return property ? property->getter : nullptr;
    }
    auto method = simhost::FindMethod(row.declaration, row.receiver);
    return method ? method->function : nullptr;
}

// Found once, while the plug-in's load is registered: a reset forgets it.
struct Found {
    REALproc methods[std::size(kRows)] = {};
    REALproc construct = nullptr;
};

Found &Functions() {
    static Found found;
    return found;
}

void FindFunctions() {
    Found &found = Functions();
    for (std::size_t i = 0; i < std::size(kRows); ++i) found.methods[i] = Find(kRows[i]);
    auto construct = simhost::FindMethod("Constructor(Size as Int64)", "MemoryBlockQVT");
    found.construct = construct ? construct->function : nullptr;
}

Operands Setup(const CallRow &row, bool logCalls = false) {
    simhost::Options options;
    options.logCalls = logCalls;  // a benchmark pays for no recording
    simhost::Reset(options);
    // Registered again as the load did, so that the host can make instances.
    reinterpret_cast<void (*)(REALclassDefinition *)>(simhost::Resolve("PluginRegisterClass"))(
        &qvt::gMemoryBlockQVTClass);
    Operands c;
    c.method = Functions().methods[&row - kRows];
    std::vector<uint8_t> bytes(kBlock);
    for (std::size_t i = 0; i < kBlock; ++i) bytes[i] = static_cast<uint8_t>('a' + i % 26);
    bytes[15] = kNeedle;
    c.a = simhost::NewBlock(bytes);
    c.b = simhost::NewBlock(bytes);
    c.pb = simhost::Bytes(c.b).data();
    c.bytes = bytes;
    c.field = kBlock;
    c.instance = simhost::NewInstance("MemoryBlockQVT");
    if (Functions().construct && c.instance) {
        Invoke<void, O, int64_t>(Functions().construct, c.instance, kBlock);
    }
    return c;
}

void Teardown(Operands &c) {
    for (REALobject o : {c.a, c.b, c.instance}) simhost::Release(o);
}

const Entries &HostEntries() {
    static const Entries entries = [] {
        Entries e;
        Bind(e.lock, "REALLockObject");
        Bind(e.unlock, "REALUnlockObject");
        Bind(e.ptr, "memoryBlockGetPtr");
        Bind(e.size, "memoryBlockGetSize");
        Bind(e.buildString, "REALBuildStringWithEncoding");
        Bind(e.unlockString, "REALUnlockString");
        return e;
    }();
    return entries;
}

bool MakesStrings(const CallRow &row) {
    return std::string_view(row.entries).find("String") != std::string_view::npos;
}

void Time(benchmark::State &state, const CallRow &row, Run run) {
    const Entries &e = HostEntries();
    Operands c = Setup(row);
    const int64_t batch = MakesStrings(row) ? kStringCalls : 0;
    int64_t calls = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(run(e, c));
        benchmark::ClobberMemory();
        if (++calls == batch) {
            state.PauseTiming();
            Teardown(c);
            c = Setup(row);
            calls = 0;
            state.ResumeTiming();
        }
    }
    state.SetLabel(std::string("entries=") + row.entries);
    Teardown(c);
}

// Each row's host entries as the host logs them for one call, against the
// entries it times alone: a difference would make the subtraction wrong.
// False when the method is not there to time.
bool CheckEntries(const CallRow &row) {
    Operands c = Setup(row, true);
    if (!c.method) {
        benchmark::AddCustomContext(std::string("missing: ") + row.name, "not registered under its declaration");
        std::fprintf(stderr, "not registered: %s\n", row.name);
        Teardown(c);
        return false;
    }
    simhost::ClearCalls();
    row.method(HostEntries(), c);
    std::string made;
    for (const auto &call : simhost::Calls()) made += (made.empty() ? "" : " ") + call.entry;
    Teardown(c);
    if (made != row.entries) {
        benchmark::AddCustomContext(std::string("wrong: ") + row.name, "host entries " + made + " not " + row.entries);
        std::fprintf(stderr, "host entries of %s: %s, not %s\n", row.name, made.c_str(), row.entries);
    }
    return true;
}

}  // namespace

void RegisterCallRows() {
    FindFunctions();
    for (const CallRow &row : kRows) {
        if (!CheckEntries(row)) continue;
        for (auto [kind, run] : {std::pair{"call|", row.method}, {"callhost|", row.host}, {"callplain|", row.plain}}) {
            if (!run) continue;
            const std::string name = kind + std::string(row.name) + "|" + std::to_string(row.bytes);
            benchmark::RegisterBenchmark(name.c_str(), [&row, run](benchmark::State &s) { Time(s, row, run); });
        }
    }
}

}  // namespace qvtbench
