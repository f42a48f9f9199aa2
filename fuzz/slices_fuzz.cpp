// Slices, append, fill, invert and the two block makers against their
// clipping rules; the receiver is never changed by a slice.
#include "fuzz_support.h"
#include "hostvalues/blocks.h"
#include "memory/slices.h"

namespace qvt::fuzz {
namespace {

struct Args {
    Block *block, *other;
    int64_t a, b, c;  // offset or length, count, value: as the method reads them
};

// What a call must do: a new block or nil, an exception, bytes written in
// place (in the model), or nothing the caller may ask for (skip).
struct Outcome {
    bool skip = false;
    std::optional<Bytes> fresh;
    std::optional<Raised> raised;
    // FillBytesQVT with a count below 1 and an offset above 0 is open: this
    // second model is accepted too.
    std::optional<Bytes> alternative;
};

const Raised kNilReceiver = Nil("memoryblock is nil");

std::optional<Bytes> Build(const uint8_t *from, int64_t count) {
    if (from == nullptr || count < 1) return std::nullopt;
    return Bytes(from, from + count);
}

Outcome Left(World &, Args &x) {
    const Block &b = *x.block;
    if (!b.handle) return {.raised = kNilReceiver};
    if (x.a < 1) return {};
    return {.fresh = Build(b.data, std::min(x.a, b.hostSize))};
}

Outcome Right(World &, Args &x) {
    const Block &b = *x.block;
    if (!b.handle) return {.raised = kNilReceiver};
    if (x.a < 1 || b.hostSize < 1) return {};
    const int64_t n = std::min(x.a, b.hostSize);
    return {.fresh = Build(b.data ? b.data + (b.hostSize - n) : nullptr, n)};
}

Outcome Mid(World &, Args &x, bool toEnd) {
    const Block &b = *x.block;
    if (!b.handle) return {.raised = kNilReceiver};
    if ((!toEnd && x.b < 1) || x.a < 0) return {};
    if (b.hostSize < 1 || x.a >= b.hostSize) return {};
    const int64_t n = toEnd || x.a + x.b > b.hostSize ? b.hostSize - x.a : x.b;
    return {.fresh = Build(b.data ? b.data + x.a : nullptr, n)};
}
Outcome MidToEnd(World &w, Args &x) { return Mid(w, x, true); }
Outcome MidLength(World &w, Args &x) { return Mid(w, x, false); }

Outcome Append(World &, Args &x) {
    const Block &b = *x.block, &o = *x.other;
    if (!b.handle || !o.handle) return {.raised = kNilReceiver};
    const int64_t sa = b.hostSize, sb = o.hostSize;
    if (sa < 1) return {.fresh = sb > 0 ? Build(o.data, sb) : std::nullopt};
    if (sb < 1) return {.fresh = Build(b.data, sa)};
    Bytes joined(b.data, b.data + sa);
    joined.insert(joined.end(), o.data, o.data + sb);
    return {.fresh = joined};
}

Outcome Fill(World &w, Args &x) {
    const Block &b = *x.block;
    if (!b.handle) return {.raised = kNilReceiver};
    int64_t n = x.b;
    const bool whole = x.b < 1;
    if (whole) {
        n = b.hostSize;
        if (n < 1) return {};
    }
    if (x.a < 0) return {};
    const auto value = static_cast<uint8_t>(x.c);
    if (whole && x.a > 0) {
        // Open: from the offset to the end, or nothing at all.
        Outcome open;
        open.alternative.emplace(w.Model(b), w.Model(b) + b.hostSize);
        std::memset(w.Model(b) + x.a, value, static_cast<std::size_t>(std::max<int64_t>(0, n - x.a)));
        return open;
    }
    if (!b.Holds(x.a, n)) return {.skip = true};
    std::memset(w.Model(b) + x.a, value, static_cast<std::size_t>(n));
    return {};
}

Outcome Invert(World &w, Args &x) {
    const Block &b = *x.block;
    if (x.b <= 0) return {};
    if (!b.handle || x.a < 0 || !b.Holds(x.a, x.b)) return {.skip = true};
    for (int64_t i = 0; i < x.b; ++i) w.Model(b)[x.a + i] = static_cast<uint8_t>(~w.Model(b)[x.a + i]);
    return {};
}

Outcome WithBytes(World &, Args &x) {
    const Block &b = *x.block;
    if (b.data == nullptr) return {.fresh = std::nullopt};
    if (x.b > 0 && !b.Holds(x.a, x.b)) return {.skip = true};
    return {.fresh = Build(b.data + x.a, x.b)};
}

struct Method {
    const char *name;
    Outcome (*model)(World &, Args &);
    REALobject (*call)(const Args &);
};

const Method kMethods[] = {
    {"MidQVT(offset)", &MidToEnd, [](const Args &x) { return MidQVT(x.block->handle, x.a); }},
    {"MidQVT(offset, length)", &MidLength,
     [](const Args &x) { return MidQVT(x.block->handle, x.a, x.b); }},
    {"LeftQVT", &Left, [](const Args &x) { return LeftQVT(x.block->handle, x.a); }},
    {"RightQVT", &Right, [](const Args &x) { return RightQVT(x.block->handle, x.a); }},
    {"AppendQVT", &Append, [](const Args &x) { return AppendQVT(x.block->handle, x.other->handle); }},
    {"FillBytesQVT", &Fill,
     [](const Args &x) { FillBytesQVT(x.block->handle, x.a, x.b, x.c); return REALobject{}; }},
    {"InvertBytesQVT", &Invert,
     [](const Args &x) { InvertBytesQVT(x.block->handle, x.a, x.b); return REALobject{}; }},
    {"NewMemoryBlockWithBytesQVT", &WithBytes, [](const Args &x) {
         uint8_t *data = x.block->data ? x.block->data + x.a : nullptr;
         return NewMemoryBlockWithBytesQVT(data, x.b);
     }},
};

void RunOne(FuzzedDataProvider &in, World &world) {
    const Method &m = in.PickValueInArray(kMethods);
    Args x{};
    PickBlocksAndRange(in, world, x);
    const auto size = static_cast<int64_t>(x.block->extent);
    x.c = Around(in, 0xFF);
    if (m.model == &WithBytes && (x.a < 0 || x.a > size)) x.a = 0;

    const Outcome want = m.model(world, x);
    if (want.skip) return;
    const REALobject got = Balanced(m.name, {}, [&] { return m.call(x); });
    ExpectRaised(want.raised, m.name);
    ExpectNewBlock(got, want.fresh, m.name);
    if (want.alternative) {
        const Block &b = *x.block;
        if (std::memcmp(b.data, want.alternative->data(), want.alternative->size()) == 0)
            world.Adopt(b, 0, want.alternative->size());
    }
    world.ExpectModel(m.name);
}

// A block over the caller's memory: its address, and a size nobody knows.
void FromPtr(FuzzedDataProvider &in, World &world) {
    Block &b = world.Add();
    const auto ptr = in.ConsumeBool() ? intptr_t{0} : reinterpret_cast<intptr_t>(b.data);
    const REALobject got = Balanced("NewMemoryBlockFromPtrQVT", {},
                                    [&] { return NewMemoryBlockFromPtrQVT(ptr); });
    ExpectRaised(std::nullopt, "NewMemoryBlockFromPtrQVT");
    if ((got == nullptr) != (ptr == 0)) Fail("NewMemoryBlockFromPtrQVT: nil for %ld", long(ptr));
    if (got == nullptr) return;
    const bool over = GetBlockPtr(got) == reinterpret_cast<void *>(ptr) && GetBlockSize(got) < 0;
    if (!over || simhost::RefCount(got) != 1) Fail("NewMemoryBlockFromPtrQVT: wrong block");
    simhost::Release(got);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace qvt::fuzz;
    return RunInput(data, size, 6, [](FuzzedDataProvider &in, World &world) {
        if (in.ConsumeIntegralInRange<int>(0, 15) == 0) FromPtr(in, world);
        else RunOne(in, world);
    });
}
