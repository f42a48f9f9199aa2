// The rows of the benchmark: each names a method by its declaration, says how
// a host program calls it on a range of n bytes, and gives the plain
// byte-by-byte loop of the same job (and a library routine where one exists).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "abi/plugin_abi.h"

namespace qvtbench {

// What a call works on; made before the timing starts.
struct Buffers {
    std::size_t n = 0;  // bytes walked, the size of the benchmark
    REALobject a = nullptr;  // the receiver
    REALobject b = nullptr;  // a second operand or source
    REALobject d = nullptr;  // a destination
    uint8_t *pa = nullptr;
    uint8_t *pb = nullptr;
    uint8_t *pd = nullptr;
    std::vector<uint8_t> needle;      // a search target
    REALstring text = nullptr;        // a string operand
    REALarray values = nullptr;       // an array operand
    REALobject target = nullptr;      // a target block
    REALobject result = nullptr;      // a block a call returned: released after it
    REALstring resultText = nullptr;  // a string a call returned: released after it
};

// Contents of a block before the first call. Two blocks of one kind and size
// hold the same bytes.
enum class Data {
    Zero,
    Random,
    Random2,      // other bytes than Random
    NeedleAtEnd,  // random bytes without kNeedle, and kNeedle last
    Uniform,      // all kUniform, and one other byte last
    Text,         // English-like words
    Adversarial,  // all 'a'
    Pixels,       // bytes around 100, so that a tolerance test matches often
    Floats,       // pairs of moderate floats
};

constexpr uint8_t kNeedle = 0xEE;
constexpr uint8_t kUniform = 'x';

// The size up to which a range may still sit in a last-level cache.
constexpr std::size_t kInCache = 16 << 20;

// The goal a row is checked against in the report.
enum class Goal { None, Streaming, FindByte, FindNotByte, FindString, Linear, Compare };

struct Row;
// A call or loop on the buffers; gives a result to compare (0 for none).
using Call = int64_t (*)(const Row &, REALproc, Buffers &);
using Loop = int64_t (*)(const Row &, Buffers &);
using Prepare = void (*)(const Row &, Buffers &);

struct Row {
    std::string name;  // as shown in the table; unique
    std::string family;
    std::string declaration;  // empty for a baseline without a method
    Call call = nullptr;
    Loop plain = nullptr;
    Loop library = nullptr;
    std::string libraryKey;  // rows with one key share one library benchmark
    // Block sizes in eighths of n; 0 for no block.
    int aEighths = 8;
    int bEighths = 0;
    int dEighths = 0;
    Data aData = Data::Random;
    Data bData = Data::Random2;
    Data dData = Data::Zero;
    Prepare prepare = nullptr;
    double touched = 2;  // bytes read plus bytes written, per byte walked
    Goal goal = Goal::None;
    bool global = false;     // a global function, not a method of MemoryBlock
    bool allocates = false;  // builds a host value on every call
    std::size_t plainLimit = 0;  // the largest size the plain loop runs at; 0: all
    // The largest size the row runs at; 0: all. Rows bound by arithmetic, not
    // memory, learn nothing beyond the cache and take minutes there.
    std::size_t sizeLimit = 0;
    // Arguments of shared call and loop routines.
    int64_t p = 0;
    int64_t q = 0;
    double x = 0;
    REALproc function = nullptr;  // found at start-up
};

// A row's buffers at n bytes, in an emptied host unless `emptied` is
// false, and their release.
Buffers Setup(const Row &row, std::size_t n, bool emptied = true);
void Drop(Buffers &c);  // what one call returned
void Teardown(Buffers &c);
// Runs each method and its plain loop once on equal buffers at n bytes; one
// line for each row whose results or bytes differ.
std::vector<std::string> CheckRows(const std::vector<Row> &rows, std::size_t n);

// Puts c.needle last in block A after breaking every earlier occurrence, so
// that a search walks the whole block; and makes it a string in c.text.
void PutTarget(Buffers &c);
void StringTarget(Buffers &c);

// Sweeps the arguments that may pick a method's path over their range at a
// size a cache holds, reruns each sweep's worst and best values at
// `largeSize`, and writes the results as JSON to `path`. Only the sweeps
// whose method and argument match `filter` (a regular expression) run;
// false, with a message, for a filter that is none or a file not written.
bool RunSweeps(const std::vector<Row> &rows, const std::string &filter, const std::string &path,
               std::size_t largeSize);

std::vector<Row> MemoryRows();
std::vector<Row> KernelRows();
// The per-call rows, registered apart from the range rows above.
void RegisterCallRows();

// Calls a registered function through the C signature its declaration maps to.
template <typename R, typename... A>
R Invoke(REALproc function, A... args) {
    return reinterpret_cast<R (*)(A...)>(function)(args...);
}

inline intptr_t N(const Buffers &c) { return static_cast<intptr_t>(c.n); }

}  // namespace qvtbench
