// Sweeps of the arguments whose value may pick a method's path: each value
// timed at a size a cache holds, against memcpy (streaming methods) or the
// library routine (searches) in the same run, its bytes checked against the
// plain loop; then the worst and the best value again beyond every cache.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <regex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/table.h"

namespace qvtbench {

namespace {

using O = REALobject;
using I = intptr_t;

// Held by the last-level cache of the machines we run on, and large enough
// that every path a call may take at 256 MiB is taken here too (the 16-bit
// scaling checks a line from 2^18 samples on).
constexpr std::size_t kSweepSize = 1 << 20;
constexpr std::size_t kCheckSize = 4096 + 3 * 32;
// Offset sweeps leave this many bytes at the end, so that every offset
// walks the same length inside the block.
constexpr intptr_t kSlack = 64;

struct Case {
    std::string value;  // as the report shows it
    Row row;
};

struct Sweep {
    std::string method;
    std::string argument;
    Goal goal;
    std::vector<Case> cases;
};

std::string Shown(double value, int decimals) {
    if (std::isnan(value)) return "NaN";
    if (value == 0 && std::signbit(value)) return "-0.0";
    char text[64];
    if (decimals < 0 && value == std::trunc(value) && std::fabs(value) < 1e15) {
        std::snprintf(text, sizeof text, "%.0f", value);
    } else if (decimals >= 0) {
        std::snprintf(text, sizeof text, "%.*f", decimals, value);
    } else {
        std::snprintf(text, sizeof text, "%.17g", value);
        // The shortest form that reads back as the same double.
        for (int digits = 1; digits <= 17; ++digits) {
            char shorter[64];
            std::snprintf(shorter, sizeof shorter, "%.*g", digits, value);
            if (std::strtod(shorter, nullptr) == value) {
                std::snprintf(text, sizeof text, "%s", shorter);
                break;
            }
        }
    }
    return text;
}

// One case a value: the base row with `set` applied.
template <typename Set>
std::vector<Case> Cases(const Row &base, const std::vector<double> &values, Set set, int decimals = -1) {
    std::vector<Case> cases;
    for (double value : values) {
        Row row = base;
        set(row, value);
        cases.push_back({Shown(value, decimals), row});
    }
    return cases;
}

const Row &Named(const std::vector<Row> &rows, const std::string &name) {
    for (const Row &row : rows) {
        if (row.name == name) return row;
    }
    std::fprintf(stderr, "sweep: no row %s\n", name.c_str());
    std::abort();
}

// ---- Values --------------------------------------------------------------------

// Every two-decimal factor from 0.01 to 4.00, the far ones, and those with
// no ordinary product.
std::vector<double> Factors() {
    std::vector<double> values;
    for (int hundredths = 1; hundredths <= 400; ++hundredths) values.push_back(hundredths / 100.0);
    for (double far : {1e-6, 1e6, 0.0, -0.0, 65535.99, 1e300, 0x1p-1074, 0x1p-1022,
                       std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        values.push_back(far);
    }
    return values;
}

// Dense near every power of two, and a few others.
std::vector<double> Divisors() {
    std::vector<double> values{0, 5, 7, 10, 100, 255, 257, 1000, 10000, 65536, 1 << 20};
    for (int k = 0; k <= 16; ++k) {
        for (int d = -3; d <= 3; ++d) {
            const int64_t value = (int64_t{1} << k) + d;
            if (value >= 1 && value <= 65535) values.push_back(static_cast<double>(value));
        }
    }
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
    return values;
}

std::vector<double> Range(int first, int last, int step = 1) {
    std::vector<double> values;
    for (int v = first; v <= last; v += step) values.push_back(v);
    return values;
}

std::vector<double> With(std::vector<double> values, std::initializer_list<double> more) {
    values.insert(values.end(), more);
    return values;
}

// 4-byte targets of common, rare and absent bytes, put last in text.
const char *const kTargets[] = {"the ", "tion", "eeee", "    ", "e e ", "ing.", "zzzz", "qxqx", "\xff\xff\xff\xff",
                                "\x01\x02\x03\x04"};

// ---- Calls at an offset ------------------------------------------------------------

int64_t MultiplyAt(const Row &row, REALproc f, Buffers &c) {
    Invoke<void, O, double, I, I, I>(f, c.a, row.x, static_cast<I>(row.p), N(c) - kSlack, static_cast<I>(row.q));
    return 0;
}
int64_t FillAt(const Row &row, REALproc f, Buffers &c) {
    Invoke<void, O, I, I, I>(f, c.a, static_cast<I>(row.p), N(c) - kSlack, 0x5A);
    return 0;
}
int64_t CopyToAt(const Row &row, REALproc f, Buffers &c) {
    Invoke<void, O, I, I, O, I>(f, c.a, 0, N(c) - kSlack, c.d, static_cast<I>(row.p));
    return 0;
}
int64_t NarrowFrom(const Row &row, REALproc f, Buffers &c) {
    Invoke<void, O, O, I, I, I, I>(f, c.a, c.d, static_cast<I>(row.p), 0, (N(c) - kSlack) / 2, 3);
    return 0;
}

int64_t ExpandTo(const Row &row, REALproc f, Buffers &c) {
    return Invoke<bool, O, O, I, I, I>(f, c.a, c.d, N(c) / 8, 0, static_cast<I>(row.p));
}

// The same row called at offsets 0..63; the bytes are checked by the tests.
Sweep Offsets(const Row &base, const char *argument, Call call) {
    Row row = base;
    row.call = call;
    row.plain = nullptr;
    return {base.name.substr(0, base.name.find(' ')), argument, base.goal,
            Cases(row, Range(0, 63), [](Row &r, double v) { r.p = static_cast<int64_t>(v); })};
}

std::vector<Sweep> Sweeps(const std::vector<Row> &rows) {
    std::vector<Sweep> sweeps;
    const auto setFactor = [](Row &r, double v) { r.x = v; };
    const auto setQ = [](Row &r, double v) { r.q = static_cast<int64_t>(v); };
    const auto setP = [](Row &r, double v) { r.p = static_cast<int64_t>(v); };
    for (const char *name : {"MultiplyUInt16QVT x1.5", "MultiplyUInt8QVT x1.5"}) {
        const Row &base = Named(rows, name);
        const std::string method = base.name.substr(0, base.name.find(' '));
        sweeps.push_back({method, "Factor", base.goal, Cases(base, Factors(), setFactor)});
        sweeps.push_back({method, "Factor, MultiplyOnlyOver 100", base.goal, Cases(base, Factors(), [](Row &r, double v) {
                              r.x = v;
                              r.q = 100;
                          })});
    }
    sweeps.push_back({"MultiplyUInt16QVT", "MultiplyOnlyOver", Goal::Streaming,
                      Cases(Named(rows, "MultiplyUInt16QVT x1.5"),
                            {-1, 0, 1, 2, 100, 255, 256, 1000, 10000, 32767, 32768, 40000, 65533, 65534, 65535}, setQ)});
    sweeps.push_back({"MultiplyUInt8QVT", "MultiplyOnlyOver", Goal::Streaming,
                      Cases(Named(rows, "MultiplyUInt8QVT x1.5"), With(Range(-1, 254, 15), {254, 255}), setQ)});
    sweeps.push_back(Offsets(Named(rows, "MultiplyUInt16QVT x1.5"), "offsetByte", MultiplyAt));

    sweeps.push_back({"CopyUShortToByteQVT", "divisor", Goal::Streaming,
                      Cases(Named(rows, "CopyUShortToByteQVT /3"), Divisors(), setP)});
    sweeps.push_back({"CopyByteToUShortQVT", "divisor (factor)", Goal::Streaming,
                      Cases(Named(rows, "CopyByteToUShortQVT x1000"), Divisors(), setP)});
    sweeps.push_back(Offsets(Named(rows, "CopyUShortToByteQVT /3"), "SourceOffset", NarrowFrom));

    for (const char *method : {"MaxQVT", "MinQVT"}) {
        Sweep sweep{method, "BitSize, Signed", Goal::Streaming, {}};
        for (int bits : {8, 16, 32, 64}) {
            for (bool isSigned : {false, true}) {
                const std::string name = std::string(method) + (isSigned ? " signed " : " ") + std::to_string(bits);
                sweep.cases.push_back({std::to_string(bits) + (isSigned ? " signed" : " unsigned"), Named(rows, name)});
            }
        }
        sweeps.push_back(sweep);
    }

    Row strided = Named(rows, "CopyNthBytesQVT 1 of 4");
    strided.aEighths = 8;
    sweeps.push_back({"CopyNthBytesQVT", "StepCount (ByteCount 1)", Goal::Streaming,
                      Cases(strided, Range(1, 64), [](Row &r, double v) {
                          r.q = static_cast<int64_t>(v);
                          r.touched = 1 + 1 / v;
                      })});
    sweeps.push_back({"CopyNthBytesQVT", "ByteCount (StepCount 64)", Goal::Streaming,
                      Cases(strided, Range(1, 64), [](Row &r, double v) {
                          r.p = static_cast<int64_t>(v);
                          r.q = 64;
                          r.touched = 1 + v / 64;
                      })});

    sweeps.push_back(Offsets(Named(rows, "FillBytesQVT"), "offset", FillAt));
    sweeps.push_back(Offsets(Named(rows, "CopyBytesQVT to a block"), "destOfs", CopyToAt));
    sweeps.back().method = "CopyBytesQVT";
    Row expand = Named(rows, "ExpandBitsQVT");
    expand.call = ExpandTo;
    expand.plain = nullptr;  // values past a byte spill into the next bytes; the tests check them
    sweeps.push_back({"ExpandBitsQVT", "HighValue (LowValue 0)", Goal::Streaming,
                      Cases(expand, {-1, 0, 1, 128, 255, 256, 4095, 65535}, setP)});
    sweeps.push_back({"AndBitsQVT", "Mask", Goal::Streaming,
                      Cases(Named(rows, "AndBitsQVT with mask"), {0x00, 0x01, 0x0F, 0x3C, 0x80, 0xFE, 0xFF}, setP)});
    sweeps.push_back({"_Calc3te", "Tolerance", Goal::Streaming,
                      Cases(Named(rows, "_Calc3te"), {0.0, 0.01, 0.05, 0.1, 0.2, 0.5, 1.0, 2.0}, setFactor)});
    sweeps.push_back({"_Calc2teCMYK", "iByteMax", Goal::Streaming,
                      Cases(Named(rows, "_Calc2teCMYK"), {-1, 0, 1, 100, 255, 256, 510, 1020, 2000}, setQ)});

    for (const char *name : {"FindStringQVT 4-byte target", "FindStringQVT 4-byte target in random bytes"}) {
        Row base = Named(rows, name);
        sweeps.push_back({"FindStringQVT", std::string("target length") + (base.aData == Data::Random ? ", random bytes" : ", text"),
                          Goal::FindString, Cases(base, With(Range(1, 64), {100, 128, 256, 1000}), setP)});
    }
    Row targets = Named(rows, "FindStringQVT 4-byte target");
    targets.prepare = [](const Row &row, Buffers &c) {
        const char *target = kTargets[row.p];
        c.needle.assign(target, target + 4);
        PutTarget(c);
        StringTarget(c);
    };
    Sweep bytes{"FindStringQVT", "target bytes (4)", Goal::FindString, {}};
    for (std::size_t k = 0; k < std::size(kTargets); ++k) {
        Row row = targets;
        row.p = static_cast<int64_t>(k);
        std::string shown;
        for (int i = 0; i < 4; ++i) {
            const auto byte = static_cast<unsigned char>(kTargets[k][i]);
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", byte);
            shown += byte >= 0x20 && byte < 0x7F ? std::string(1, static_cast<char>(byte)) : hex;
        }
        bytes.cases.push_back({"\"" + shown + "\"", row});
    }
    sweeps.push_back(bytes);
    return sweeps;
}

// ---- Timing --------------------------------------------------------------------

double CpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// One thing to time: a method's call, or a library routine, on buffers of
// its own made before the timing.
class Timed {
  public:
    // The first of those timed together empties the host.
    Timed(const Row &row, std::size_t n, bool library, bool first)
        : row_(row), c_(Setup(row, n, first)), library_(library) {}
    ~Timed() { Teardown(c_); }
    Timed(const Timed &) = delete;
    Timed &operator=(const Timed &) = delete;

    // CPU seconds of `count` runs.
    double Run(int count) {
        const double start = CpuSeconds();
        for (int i = 0; i < count; ++i) {
            if (library_) {
                benchmark::DoNotOptimize(row_.library(row_, c_));
            } else {
                benchmark::DoNotOptimize(row_.call(row_, row_.function, c_));
            }
            benchmark::ClobberMemory();
            Drop(c_);
        }
        return CpuSeconds() - start;
    }

  private:
    const Row &row_;
    Buffers c_;
    bool library_;
};

// The fastest run of each, their rounds taking turns, so that a change in
// the machine's load falls on all of them alike. Each round runs each as
// often as lasts about `batch` seconds (once when one run lasts longer).
std::vector<double> Fastest(const std::vector<Timed *> &timed, int rounds, double batch) {
    std::vector<int> counts;
    for (Timed *t : timed) counts.push_back(std::max(1, static_cast<int>(batch / std::max(t->Run(1), 1e-9))));
    std::vector<double> best(timed.size(), std::numeric_limits<double>::infinity());
    for (int r = 0; r < rounds; ++r) {
        for (std::size_t k = 0; k < timed.size(); ++k) best[k] = std::min(best[k], timed[k]->Run(counts[k]) / counts[k]);
    }
    return best;
}

struct Timing {
    int rounds;
    double batch;
};
constexpr Timing kInCacheTiming{7, 2e-3};
constexpr Timing kBeyondTiming{5, 0};

bool IsSearch(Goal goal) { return goal == Goal::FindString || goal == Goal::FindByte; }

// Streaming: the time over memcpy's for the same bytes touched (lower is
// better); searches: the library routine's time over the method's, a speed
// ratio (higher is better). memcpy, the row and its library routine are
// timed in turns.
double Ratio(const Sweep &sweep, const Row &row, const Row &memcpyRow, std::size_t n, Timing timing) {
    Timed method(row, n, false, true);
    if (IsSearch(sweep.goal)) {
        Timed library(row, n, true, false);
        const auto times = Fastest({&method, &library}, timing.rounds, timing.batch);
        return times[1] / times[0];
    }
    Timed copy(memcpyRow, n, true, false);
    const auto times = Fastest({&method, &copy}, timing.rounds, timing.batch);
    return times[0] / (times[1] * row.touched / 2.0);
}

std::string Quoted(const std::string &text) {
    std::string out = "\"";
    for (char ch : text) {
        if (ch == '"' || ch == '\\') out += '\\';
        out += ch;
    }
    return out + "\"";
}

const char *GoalText(Goal goal) { return IsSearch(goal) ? "findstring" : "streaming"; }

}  // namespace

bool RunSweeps(const std::vector<Row> &rows, const std::string &filter, const std::string &path,
               std::size_t largeSize) {
    const auto began = std::chrono::steady_clock::now();
    std::regex wanted;
    try {
        wanted.assign(filter.empty() ? "." : filter);
    } catch (const std::regex_error &error) {
        std::fprintf(stderr, "sweep: %s is not a regular expression: %s\n", filter.c_str(), error.what());
        return false;
    }
    const Row &memcpyRow = Named(rows, "memcpy");
    std::string json = "{\n  \"sweeps\": [";
    std::vector<std::string> wrong;
    bool first = true;
    for (const Sweep &sweep : Sweeps(rows)) {
        if (!std::regex_search(sweep.method + " " + sweep.argument, wanted)) continue;
        if (!sweep.cases.front().row.function) continue;
        const bool search = IsSearch(sweep.goal);
        std::vector<double> ratios;
        for (const Case &c : sweep.cases) {
            for (const auto &line : CheckRows({c.row}, kCheckSize)) wrong.push_back(sweep.method + " " + sweep.argument + " " + c.value + ": " + line);
            ratios.push_back(Ratio(sweep, c.row, memcpyRow, kSweepSize, kInCacheTiming));
        }
        // The worst is the slowest against the peer; so is the best the fastest.
        const auto [low, high] = std::minmax_element(ratios.begin(), ratios.end());
        const std::size_t worst = static_cast<std::size_t>((search ? low : high) - ratios.begin());
        const std::size_t best = static_cast<std::size_t>((search ? high : low) - ratios.begin());
        const double worstLarge = Ratio(sweep, sweep.cases[worst].row, memcpyRow, largeSize, kBeyondTiming);
        const double bestLarge = Ratio(sweep, sweep.cases[best].row, memcpyRow, largeSize, kBeyondTiming);
        std::fprintf(stderr, "sweep %s %s: worst %s %.2f (%.2f at %zu), best %s %.2f (%.2f)\n", sweep.method.c_str(),
                     sweep.argument.c_str(), sweep.cases[worst].value.c_str(), ratios[worst], worstLarge, largeSize,
                     sweep.cases[best].value.c_str(), ratios[best], bestLarge);

        char numbers[256];
        json += first ? "\n" : ",\n";
        first = false;
        json += "    {\"method\": " + Quoted(sweep.method) + ", \"argument\": " + Quoted(sweep.argument) +
                ", \"goal\": \"" + GoalText(sweep.goal) + "\", \"values\": [";
        for (std::size_t k = 0; k < ratios.size(); ++k) {
            std::snprintf(numbers, sizeof numbers, "%s[%s, %.4f]", k ? ", " : "", Quoted(sweep.cases[k].value).c_str(), ratios[k]);
            json += numbers;
        }
        std::snprintf(numbers, sizeof numbers, "], \"worst\": {\"value\": %s, \"small\": %.4f, \"large\": %.4f}",
                      Quoted(sweep.cases[worst].value).c_str(), ratios[worst], worstLarge);
        json += numbers;
        std::snprintf(numbers, sizeof numbers, ", \"best\": {\"value\": %s, \"small\": %.4f, \"large\": %.4f}}",
                      Quoted(sweep.cases[best].value).c_str(), ratios[best], bestLarge);
        json += numbers;
    }
    double load[3] = {};
    const int loads = getloadavg(load, 3);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    char context[256];
    std::snprintf(context, sizeof context,
                  "\n  ],\n  \"small_size\": %zu,\n  \"large_size\": %zu,\n  \"seconds\": %.1f,\n"
                  "  \"load_avg\": [%.2f, %.2f, %.2f],\n  \"wrong\": [",
                  kSweepSize, largeSize, seconds, loads > 0 ? load[0] : 0.0, loads > 1 ? load[1] : 0.0,
                  loads > 2 ? load[2] : 0.0);
    json += context;
    for (std::size_t k = 0; k < wrong.size(); ++k) json += (k ? ", " : "") + Quoted(wrong[k]);
    json += "]\n}\n";
    for (const auto &line : wrong) std::fprintf(stderr, "sweep: wrong bytes: %s\n", line.c_str());
    std::FILE *out = std::fopen(path.c_str(), "w");
    if (!out) {
        std::fprintf(stderr, "sweep: cannot write %s\n", path.c_str());
        return false;
    }
    std::fputs(json.c_str(), out);
    std::fclose(out);
    std::fprintf(stderr, "sweep: %.0f s, %s\n", seconds, path.c_str());
    return true;
}

}  // namespace qvtbench
