// The mask kernels and the block bitwise operations against the plain byte
// loop in ascending order: each byte read, then stored to the result, the
// receiver, Second, in this order. Windows that overlap by a few bytes make
// the order visible; the word loop the kernels' description tells of would
// give other bytes there, and the byte loop is the rule for every fast path.
#include "fuzz_support.h"
#include "kernels/bitwise.h"
#include "kernels/masks.h"

namespace qvt::fuzz {
namespace {

enum class Op { Extract, AndBits, AndBitsMask, And, Or, XOr };

struct Method {
    const char *name;
    Op op;
    REALobject (*call)(REALobject, REALobject, intptr_t, REALobject);
};

const Method kMethods[] = {
    {"ExtractBitsQVT", Op::Extract,
     [](REALobject s, REALobject, intptr_t m, REALobject d) { return ExtractBitsQVT(s, m, d); }},
    {"AndBitsQVT", Op::AndBits,
     [](REALobject s, REALobject t, intptr_t, REALobject d) { return AndBitsQVT(s, t, d); }},
    {"AndBitsQVT(Mask)", Op::AndBitsMask,
     [](REALobject s, REALobject t, intptr_t m, REALobject d) { return AndBitsQVT(s, t, m, d); }},
    {"BitwiseAndQVT", Op::And,
     [](REALobject s, REALobject t, intptr_t, REALobject d) { return BitwiseAndQVT(s, t, d); }},
    {"BitwiseOrQVT", Op::Or,
     [](REALobject s, REALobject t, intptr_t, REALobject d) { return BitwiseOrQVT(s, t, d); }},
    {"BitwiseXOrQVT", Op::XOr,
     [](REALobject s, REALobject t, intptr_t, REALobject d) { return BitwiseXOrQVT(s, t, d); }},
};

// The byte at `at`.
void Unit(Op op, uint8_t *x, uint8_t *y, uint8_t *r, uint8_t mask, std::size_t at) {
    const uint8_t a = x[at];
    const uint8_t b = op == Op::Extract ? 0 : y[at];
    uint8_t t = 0;
    switch (op) {
    case Op::Extract: t = a & mask; break;
    case Op::AndBits: case Op::And: t = a & b; break;
    case Op::AndBitsMask: t = a & b & mask; break;
    case Op::Or: t = a | b; break;
    case Op::XOr: t = a ^ b; break;
    }
    r[at] = t;
    if (op == Op::AndBits || op == Op::AndBitsMask) {
        // The bits are cleared in what the memory holds by then.
        x[at] = static_cast<uint8_t>(x[at] & ~t);
        y[at] = static_cast<uint8_t>(y[at] & ~t);
    }
}

void RunOne(FuzzedDataProvider &in, World &world) {
    const Method &m = in.PickValueInArray(kMethods);
    const bool hasSecond = m.op != Op::Extract;
    Block &source = world.Add(200);
    Block *second = hasSecond ? &world.Add(200) : nullptr;
    Block &dest = world.Add(200);
    const intptr_t mask = static_cast<intptr_t>(Around(in, 0xFF));

    std::optional<Raised> raised;
    std::optional<Bytes> fresh;  // the expected new block
    bool locksDest = false;
    if (source.handle == nullptr) {
        raised = Nil("Source Memoryblock is nil");
    } else if (hasSecond && second->handle == nullptr) {
        raised = Nil("Second Memoryblock is nil");
    } else if (source.hostSize >= 1 && (!hasSecond || second->hostSize >= 1)) {
        const auto n = static_cast<std::size_t>(
            hasSecond ? std::min(source.hostSize, second->hostSize) : source.hostSize);
        // The caller gives a Dest that holds n bytes.
        if (dest.handle != nullptr && dest.data != nullptr && dest.extent < n) return;
        if (dest.handle != nullptr && dest.data == nullptr) {
            raised = Nil("Destination Memoryblock is nil");
        } else {
            Bytes result(n);
            uint8_t *r = dest.handle ? world.Model(dest) : result.data();
            uint8_t *x = world.Model(source);
            uint8_t *y = hasSecond ? world.Model(*second) : nullptr;
            for (std::size_t at = 0; at < n; ++at) Unit(m.op, x, y, r, static_cast<uint8_t>(mask), at);
            if (dest.handle) locksDest = true;
            else fresh = result;
        }
    }

    std::vector<REALobject> given;
    if (locksDest) given.push_back(dest.handle);
    const REALobject got = Balanced(m.name, given, [&] {
        return m.call(source.handle, hasSecond ? second->handle : nullptr, mask, dest.handle);
    });
    ExpectRaised(raised, m.name);
    if (locksDest) {
        if (got != dest.handle) Fail("%s: Dest was not returned", m.name);
        simhost::Release(got);
    } else {
        ExpectNewBlock(got, fresh, m.name);
    }
    world.ExpectModel(m.name);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace qvt::fuzz;
    FuzzedDataProvider in(data, size);
    FreshHost();
    World world(in);
    for (int calls = 0; calls < 6 && in.remaining_bytes() > 0; ++calls) RunOne(in, world);
    return 0;
}
