// The range methods called through the simulated host as a host program calls
// them, next to memcpy and memset, the library routine that does the same
// job, and the plain byte loop of each method, at five sizes: the largest is
// well beyond the last-level cache, so that its rows measure main memory.
//
// Benchmark names are "<kind>|<row>|<bytes>", kind being qvt, plain or lib;
// the label carries what scripts/bench-report needs to judge a row.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bench/table.h"
#include "shell/entry.h"
#include "simhost/simhost.h"

namespace qvtbench {

namespace {

constexpr std::size_t kSizes[] = {4 << 10, 64 << 10, 1 << 20, 16 << 20, 256 << 20};
// From this size on one call lasts long enough to time alone: two make a
// repetition, and a plain byte loop, which runs for seconds here and is
// checked against nothing, runs once.
constexpr std::size_t kOneRunSize = 256 << 20;
// Not a power of two, so that the tails behind word and vector loops are
// checked; a multiple of 32 as the bit expansion's groups ask.
constexpr std::size_t kCheckSize = 4096 + 3 * 32;
// Blocks up to 1 MiB keep their memory in the simulated host until a reset,
// so a call that builds one runs this many bytes' worth of times.
constexpr std::size_t kAllocationBudget = std::size_t{256} << 20;

simhost::Options Quiet() {
    simhost::Options options;
    options.logCalls = false;  // measure the plug-in, not the host's call log
    return options;
}

// ---- Contents ------------------------------------------------------------------

std::vector<uint8_t> RandomBytes(std::size_t n, uint64_t seed) {
    std::vector<uint8_t> bytes(n);
    uint64_t state = seed;
    for (std::size_t i = 0; i < n; i += 8) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        std::memcpy(bytes.data() + i, &state, std::min<std::size_t>(8, n - i));
    }
    return bytes;
}

// Words of English-like syllables, spaces and the odd full stop.
std::vector<uint8_t> Text(std::size_t n) {
    static const char *const kSyllables[] = {
        "the", "and", "in", "for", "re", "con", "ing", "er", "at", "ion", "ly", "ed", "to", "of",
        "a", "is", "it", "on", "with", "as", "be", "de", "pro", "com", "ex", "st", "ent", "ous",
        "al", "ment", "ter", "est", "ab", "man", "pre", "un", "dis", "over", "day", "light"};
    std::mt19937 random(7);
    std::vector<uint8_t> text;
    text.reserve(n + 32);
    while (text.size() < n) {
        const int syllables = 1 + static_cast<int>(random() % 3);
        for (int s = 0; s < syllables; ++s) {
            for (const char *c = kSyllables[random() % std::size(kSyllables)]; *c; ++c) text.push_back(*c);
        }
        if (random() % 12 == 0) text.push_back('.');
        text.push_back(' ');
    }
    text.resize(n);
    return text;
}

std::vector<uint8_t> Make(Data data, std::size_t n) {
    switch (data) {
        case Data::Zero: return std::vector<uint8_t>(n, 0);
        case Data::Random: return RandomBytes(n, 0x9E3779B97F4A7C15);
        case Data::Random2: return RandomBytes(n, 0xD1B54A32D192ED03);
        case Data::NeedleAtEnd: {
            auto bytes = RandomBytes(n, 0x9E3779B97F4A7C15);
            for (auto &b : bytes) b = b == kNeedle ? 0 : b;
            bytes.back() = kNeedle;
            return bytes;
        }
        case Data::Uniform: {
            std::vector<uint8_t> bytes(n, kUniform);
            bytes.back() = kUniform + 1;
            return bytes;
        }
        case Data::Text: return Text(n);
        case Data::Adversarial: return std::vector<uint8_t>(n, 'a');
        case Data::Pixels: {
            auto bytes = RandomBytes(n, 0x9E3779B97F4A7C15);
            for (auto &b : bytes) b = static_cast<uint8_t>(95 + b % 18);
            return bytes;
        }
        case Data::Floats: {
            std::vector<uint8_t> bytes(n);
            std::mt19937 random(11);
            std::uniform_real_distribution<float> magnitude(0.0f, 10.0f), angle(-3.14f, 3.14f);
            for (std::size_t i = 0; i + 8 <= n; i += 8) {
                const float pair[2] = {magnitude(random), angle(random)};
                std::memcpy(bytes.data() + i, pair, 8);
            }
            return bytes;
        }
    }
    return {};
}

// Contents are made once per kind and size; past the budget the longest
// unused large ones are dropped, so that beyond-cache rows do not pile up
// gigabytes of them.
const std::vector<uint8_t> &Contents(Data data, std::size_t n) {
    constexpr std::size_t kLarge = 64 << 20, kBudget = std::size_t{1} << 30;
    struct Made {
        std::vector<uint8_t> bytes;
        uint64_t used = 0;
    };
    static std::map<std::pair<Data, std::size_t>, Made> made;
    static uint64_t clock = 0;
    Made &entry = made[{data, n}];
    entry.used = ++clock;
    if (entry.bytes.size() == n) return entry.bytes;
    for (;;) {
        std::size_t held = n;
        auto oldest = made.end();
        for (auto it = made.begin(); it != made.end(); ++it) {
            if (it->second.bytes.size() < kLarge) continue;
            held += it->second.bytes.size();
            if (oldest == made.end() || it->second.used < oldest->second.used) oldest = it;
        }
        if (held <= kBudget || oldest == made.end()) break;
        oldest->second.bytes = std::vector<uint8_t>();
    }
    entry.bytes = Make(data, n);
    return entry.bytes;
}

REALobject NewBlock(int eighths, Data data, std::size_t n, uint8_t *&pointer) {
    if (eighths == 0) return nullptr;
    const std::size_t size = n * static_cast<std::size_t>(eighths) / 8;
    REALobject block = simhost::NewBlock(static_cast<RBInteger>(size));
    pointer = simhost::Bytes(block).data();
    const auto &bytes = Contents(data, size);
    std::memcpy(pointer, bytes.data(), size);
    return block;
}

}  // namespace

// ---- Buffers ----------------------------------------------------------------------

// The host is emptied first, unless the caller keeps buffers made before:
// blocks that earlier runs left kept are dropped.
Buffers Setup(const Row &row, std::size_t n, bool emptied) {
    if (emptied) simhost::Reset(Quiet());
    Buffers c;
    c.n = n;
    c.a = NewBlock(row.aEighths, row.aData, n, c.pa);
    c.b = NewBlock(row.bEighths, row.bData, n, c.pb);
    c.d = NewBlock(row.dEighths, row.dData, n, c.pd);
    if (row.prepare) row.prepare(row, c);
    return c;
}

void Drop(Buffers &c) {
    simhost::Release(c.result);
    simhost::Release(c.resultText);
    c.result = nullptr;
    c.resultText = nullptr;
}

void Teardown(Buffers &c) {
    Drop(c);
    for (REALobject block : {c.a, c.b, c.d, c.target}) simhost::Release(block);
    simhost::Release(c.text);
    simhost::Release(c.values);
}

namespace {

// ---- Benchmarks ---------------------------------------------------------------------

enum class Kind { Method, Plain, Library };

const char *GoalName(Goal goal) {
    switch (goal) {
        case Goal::None: break;
        case Goal::Streaming: return "streaming";
        case Goal::FindByte: return "findbyte";
        case Goal::FindNotByte: return "findnotbyte";
        case Goal::FindString: return "findstring";
        case Goal::Linear: return "linear";
        case Goal::Compare: return "compare";
    }
    return "none";
}

// Bytes read plus written per byte of the range, for the library routines.
double LibraryTouched(const std::string &key) {
    if (key == "memset" || key == "memchr" || key.starts_with("memmem")) return 1;
    return 2;  // memcpy, memmove, memcmp, std::reverse
}

void Label(benchmark::State &state, const Row &row, std::size_t n, Kind kind) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
    const double touched = (kind == Kind::Library ? LibraryTouched(row.libraryKey) : row.touched) * n;
    state.counters["touched"] = benchmark::Counter(touched);
    state.counters["touched_per_second"] =
        benchmark::Counter(touched, benchmark::Counter::kIsIterationInvariantRate);
    state.SetLabel("family=" + row.family + ";goal=" + GoalName(row.goal) + ";lib=" + row.libraryKey);
}

void RunMethod(benchmark::State &state, const Row &row, std::size_t n) {
    Buffers c = Setup(row, n);
    for (auto _ : state) {
        benchmark::DoNotOptimize(row.call(row, row.function, c));
        benchmark::ClobberMemory();
        Drop(c);
    }
    Label(state, row, n, Kind::Method);
    Teardown(c);
}

void RunLoop(benchmark::State &state, const Row &row, std::size_t n, Kind kind) {
    Buffers c = Setup(row, n);
    const Loop loop = kind == Kind::Plain ? row.plain : row.library;
    for (auto _ : state) {
        benchmark::DoNotOptimize(c.pa);
        benchmark::DoNotOptimize(loop(row, c));
        benchmark::ClobberMemory();
    }
    Label(state, row, n, kind);
    Teardown(c);
}

std::string Name(const char *kind, const std::string &row, std::size_t n) {
    return std::string(kind) + "|" + row + "|" + std::to_string(n);
}

// Registers one row at every size: the method, its plain loop, and its
// library routine unless a row before it registered that already.
void Register(const Row &row, std::set<std::string> &libraries) {
    const bool newLibrary = row.library && libraries.insert(row.libraryKey).second;
    for (std::size_t n : kSizes) {
        const auto within = [n](std::size_t limit) { return limit == 0 || n <= limit; };
        if (row.call && row.function && within(row.sizeLimit)) {
            auto *b = benchmark::RegisterBenchmark(Name("qvt", row.name, n).c_str(),
                                                   [&row, n](benchmark::State &s) { RunMethod(s, row, n); });
            if (row.allocates) {
                b->Iterations(static_cast<int64_t>(std::max<std::size_t>(4, kAllocationBudget / n)));
            } else if (n >= kOneRunSize) {
                b->Iterations(2);
            }
        }
        if (row.plain && within(row.plainLimit) && within(row.sizeLimit)) {
            auto *b = benchmark::RegisterBenchmark(Name("plain", row.name, n).c_str(), [&row, n](benchmark::State &s) {
                RunLoop(s, row, n, Kind::Plain);
            });
            if (n >= kOneRunSize) b->Iterations(1)->Repetitions(1);
        }
        if (newLibrary) {
            auto *b = benchmark::RegisterBenchmark(Name("lib", row.libraryKey, n).c_str(), [&row, n](benchmark::State &s) {
                RunLoop(s, row, n, Kind::Library);
            });
            if (n >= kOneRunSize) b->Iterations(2);
        }
    }
}

}  // namespace

// ---- Checking the bytes ------------------------------------------------------------

static std::vector<uint8_t> Copy(const uint8_t *p, std::size_t size) {
    return p ? std::vector<uint8_t>(p, p + size) : std::vector<uint8_t>{};
}

// Runs each method and its plain loop once on equal buffers and compares
// results and bytes: a wrong byte here makes a fast number meaningless.
std::vector<std::string> CheckRows(const std::vector<Row> &rows, std::size_t n) {
    std::vector<std::string> wrong;
    for (const Row &row : rows) {
        if (!row.call || !row.function || !row.plain) continue;
        Buffers method = Setup(row, n);
        const int64_t got = row.call(row, row.function, method);
        std::vector<uint8_t> a = Copy(method.pa, n * row.aEighths / 8);
        std::vector<uint8_t> b = Copy(method.pb, n * row.bEighths / 8);
        std::vector<uint8_t> d = Copy(method.pd, n * row.dEighths / 8);
        if (method.result) {
            auto bytes = simhost::Bytes(method.result);
            d.assign(bytes.begin(), bytes.end());
        }
        if (method.resultText) {
            const std::string text = simhost::StringBytes(method.resultText);
            d.assign(text.begin(), text.end());
        }
        const std::vector<std::string> faults = simhost::Faults();
        Teardown(method);

        Buffers plain = Setup(row, n);
        const int64_t expected = row.plain(row, plain);
        std::string what;
        if (got != expected) what += " result " + std::to_string(got) + " not " + std::to_string(expected) + ";";
        if (a != Copy(plain.pa, a.size())) what += " receiver bytes differ;";
        if (b != Copy(plain.pb, b.size())) what += " second block differs;";
        if (d != Copy(plain.pd, d.size())) what += " destination or result differs;";
        for (const auto &fault : faults) what += " host fault: " + fault + ";";
        Teardown(plain);
        if (!what.empty()) wrong.push_back(row.name + ":" + what);
    }
    return wrong;
}

namespace {

Row Baseline(const char *key, Loop loop, double touched) {
    return {.name = key,
            .family = "baseline",
            .library = loop,
            .libraryKey = key,
            .dEighths = 8,
            .touched = touched};
}

}  // namespace

}  // namespace qvtbench

int main(int argc, char **argv) {
    using namespace qvtbench;
    // Our own flags, taken out before the benchmark library reads the rest.
    std::string sweepOut, sweepFilter;
    bool sweepOnly = false;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.starts_with("--sweep_out=")) {
            sweepOut = argument.substr(12);
        } else if (argument.starts_with("--sweep=")) {
            sweepFilter = argument.substr(8);
        } else if (argument == "--sweep_only") {
            sweepOnly = true;
        } else {
            argv[kept++] = argv[i];
        }
    }
    argc = kept;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

    // Load the plug-in once, as a host does, and find every row's function
    // by its declaration; the functions stay valid across host resets.
    simhost::Reset(Quiet());
    REALPluginMain(&simhost::Resolve);
    static std::vector<Row> rows = {
        Baseline("memcpy", [](const Row &, Buffers &c) -> int64_t {
            std::memcpy(c.pd, c.pa, c.n);
            return 0;
        }, 2),
        Baseline("memset", [](const Row &, Buffers &c) -> int64_t {
            std::memset(c.pa, 0x5A, c.n);
            return 0;
        }, 1),
    };
    for (auto part : {MemoryRows(), KernelRows()}) rows.insert(rows.end(), part.begin(), part.end());
    std::vector<std::string> missing;
    for (Row &row : rows) {
        if (row.declaration.empty()) continue;
        auto method = simhost::FindMethod(row.declaration, row.global ? "" : "MemoryBlock");
        if (method && (row.global == method->receiverClass.empty())) row.function = method->function;
        if (!row.function) missing.push_back(row.name);
    }
    RegisterCallRows();  // before the first reset, which forgets the registrations
    for (const auto &name : missing) {
        benchmark::AddCustomContext("missing: " + name, "not registered under its declaration");
        std::fprintf(stderr, "not registered: %s\n", name.c_str());
    }
    for (const auto &line : CheckRows(rows, kCheckSize)) {
        benchmark::AddCustomContext("wrong: " + line.substr(0, line.find(':')), line.substr(line.find(':') + 2));
        std::fprintf(stderr, "wrong bytes: %s\n", line.c_str());
    }

    if (!sweepOnly) {
        std::set<std::string> libraries;
        for (const Row &row : rows) Register(row, libraries);
        benchmark::RunSpecifiedBenchmarks();
    }
    const bool swept = sweepOut.empty() || RunSweeps(rows, sweepFilter, sweepOut, kSizes[std::size(kSizes) - 1]);
    benchmark::Shutdown();
    return swept ? 0 : 2;
}
