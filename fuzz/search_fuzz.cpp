// The search and compare methods against plain loops: positions from the
// block's start, the -1/-2 codes, the two raising methods' texts, and no
// byte changed.
#include "fuzz_support.h"
#include "memory/search.h"

namespace qvt::fuzz {
namespace {

struct Args {
    Block *block, *other;
    int64_t a, b, c, d;
    Bytes values;          // the values array or the target string
    REALstring target;     // nil, or a string of `values`
    bool nilArray;
};

// The expected result, or nothing the caller may ask for.
struct Outcome {
    bool skip = false;
    intptr_t result = 0;
    std::optional<Raised> raised;
};
const Outcome kSkip{.skip = true};

Outcome FindValues(World &, Args &x) {
    const Block &b = *x.block;
    if (x.nilArray) return {.result = 0, .raised = Nil("values array is nil")};
    if (b.data == nullptr) return {.result = -1, .raised = Nil("Memoryblock is nil?")};
    const int64_t size = std::max<int64_t>(b.hostSize, 0);
    if (x.a < 0 || x.a >= size)
        return {.raised = Raised{"OutOfBoundsException", RangeText("offset", "FindByteQVT", x.a, size)}};
    for (int64_t p = x.a; p < size; ++p)
        for (uint8_t v : x.values)
            if (b.data[p] == v) return {.result = p};
    return {.result = -1};
}

Outcome FindByte(const Args &x, bool equal) {
    const Block &b = *x.block;
    if (b.data == nullptr || x.b <= 0) return {.result = -1};
    if (x.a < 0 || !b.Holds(x.a, x.b)) return kSkip;
    for (int64_t p = x.a; p < x.a + x.b; ++p)
        if ((b.data[p] == static_cast<uint8_t>(x.c)) == equal) return {.result = p};
    return {.result = -1};
}
Outcome FindEqual(World &, Args &x) { return FindByte(x, true); }
Outcome FindNot(World &, Args &x) { return FindByte(x, false); }

Outcome Equal(World &, Args &x) {
    const Block &b = *x.block, &o = *x.other;
    if (b.data == nullptr || o.data == nullptr) return {.result = 0};
    if (x.a < 0 || x.c < 0 || !b.Holds(x.a, x.b) || !o.Holds(x.c, x.b)) return kSkip;
    return {.result = std::memcmp(b.data + x.a, o.data + x.c, static_cast<std::size_t>(x.b)) == 0};
}

Outcome Zero(World &, Args &x) {
    const Block &b = *x.block;
    if (b.handle == nullptr) return {.result = 0};
    if (x.a < 0) return {.result = 0, .raised = Raised{"OutOfBoundsException", "source offset < 0"}};
    if (x.b < 0) return {.result = 0, .raised = Raised{"OutOfBoundsException", "length < 0"}};
    if (b.data == nullptr) return {.result = 0};
    if (!b.Holds(x.a, x.b)) return kSkip;
    for (int64_t i = 0; i < x.b; ++i)
        if (b.data[x.a + i] != 0) return {.result = 0};
    return {.result = 1};
}

// The routine behind FindStringQVT and FindBytesQVT.
Outcome Search(const Block &b, int64_t from, int64_t maxBytes, const uint8_t *target,
               int64_t count) {
    if (b.data == nullptr) return {.result = -2};
    const int64_t size = b.hostSize;
    const int64_t length = maxBytes == 0 ? size : maxBytes;
    const int64_t end = from + length;
    const int64_t limit = size != 0 ? size : end;
    if (count < 1 || length < 1 || from < 0 || from >= limit) return {.result = -2};
    // On a block of size 0, maxBytes alone bounds the search: the caller's limit.
    if (size == 0 && !b.Holds(from, length)) return kSkip;
    const int64_t stop = std::min(end, limit);
    for (int64_t p = from; p + count <= stop; ++p)
        if (std::memcmp(b.data + p, target, static_cast<std::size_t>(count)) == 0) return {.result = p};
    return {.result = -1};
}

Outcome FindString(World &, Args &x) {
    return Search(*x.block, x.a, x.b, x.values.data(),
                  x.target ? static_cast<int64_t>(x.values.size()) : 0);
}

Outcome FindBytes(World &, Args &x) {
    const Block &t = *x.other;
    if (x.block->handle == nullptr || t.handle == nullptr) return {.result = -2};
    int64_t count = x.d;
    if (count < 1) {
        count = t.hostSize - x.c;
        if (count < 1) return {.result = -2};
    }
    if (x.c < 0) return {.result = -2};
    if (t.hostSize != 0 && x.c >= t.hostSize) return {.result = -2};
    // A positive targLen must stay inside the target: the caller's limit.
    if (!t.Holds(x.c, count) || t.data == nullptr) return kSkip;
    return Search(*x.block, x.a, x.b, t.data + x.c, count);
}

struct Method {
    const char *name;
    Outcome (*model)(World &, Args &);
    intptr_t (*call)(const Args &, REALarray);
};

const Method kMethods[] = {
    {"FindByteQVT(values)", &FindValues,
     [](const Args &x, REALarray v) { return FindByteQVT(x.block->handle, v, x.a); }},
    {"BytesEqualQVT", &Equal, [](const Args &x, REALarray) {
         return intptr_t{BytesEqualQVT(x.block->handle, x.a, x.b, x.other->handle, x.c)};
     }},
    {"BytesZeroQVT", &Zero,
     [](const Args &x, REALarray) { return intptr_t{BytesZeroQVT(x.block->handle, x.a, x.b)}; }},
    {"FindNotByteQVT", &FindNot,
     [](const Args &x, REALarray) { return FindNotByteQVT(x.block->handle, x.a, x.b, x.c); }},
    {"FindByteQVT", &FindEqual,
     [](const Args &x, REALarray) { return FindByteQVT(x.block->handle, x.a, x.b, x.c); }},
    {"FindStringQVT", &FindString,
     [](const Args &x, REALarray) { return FindStringQVT(x.block->handle, x.a, x.b, x.target); }},
    {"FindBytesQVT", &FindBytes, [](const Args &x, REALarray) {
         return FindBytesQVT(x.block->handle, x.a, x.b, x.other->handle, x.c, x.d);
     }},
};

void Check(const Method &m, const Args &x, REALarray values, const Outcome &want, World &world) {
    const intptr_t got = Balanced(m.name, {}, [&] { return m.call(x, values); });
    if (got != want.result)
        Fail("%s(%ld, %ld, %ld, %ld): %ld, expected %ld", m.name, long(x.a), long(x.b), long(x.c),
             long(x.d), long(got), long(want.result));
    ExpectRaised(want.raised, m.name);
    world.ExpectModel(m.name);
}

void RunOne(FuzzedDataProvider &in, World &world) {
    const Method &m = in.PickValueInArray(kMethods);
    Args x{};
    PickBlocksAndRange(in, world, x);
    x.c = in.ConsumeBool() ? Around(in, 0) : Around(in, 'A');
    x.d = Around(in, static_cast<int64_t>(x.other->extent) - x.c);
    // Targets and values are often taken from the block itself, so that
    // something is found; mostly short, at times long enough to be picked
    // from far into the target.
    const auto length = in.ConsumeIntegralInRange<std::size_t>(0, in.ConsumeBool() ? 6 : 40);
    if (in.ConsumeBool() && x.block->data != nullptr && length <= x.block->extent) {
        const std::size_t at = in.ConsumeIntegralInRange<std::size_t>(0, x.block->extent - length);
        x.values.assign(x.block->data + at, x.block->data + at + length);
    } else {
        x.values = world.Consume(length);
    }
    x.nilArray = in.ConsumeIntegralInRange<int>(0, 15) == 0;
    const bool nilString = in.ConsumeIntegralInRange<int>(0, 15) == 0;

    if (!nilString && !x.values.empty())
        x.target = simhost::NewString(
            std::string_view(reinterpret_cast<const char *>(x.values.data()), x.values.size()));
    REALarray values = nullptr;
    if (!x.nilArray)
        values = simhost::NewArray(simhost::kArrayUInt8,
                                   std::vector<int64_t>(x.values.begin(), x.values.end()));
    const Outcome want = m.model(world, x);
    if (!want.skip) Check(m, x, values, want, world);
    if (values) simhost::Release(values);
    if (x.target) simhost::Release(x.target);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    return qvt::fuzz::RunInput(data, size, 6, qvt::fuzz::RunOne);
}
