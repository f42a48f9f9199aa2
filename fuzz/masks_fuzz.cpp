// The mask kernels and the block bitwise operations against their plain
// path: 8-byte units, then single bytes, in ascending order, each unit read
// whole, then stored to the result, the receiver, Second, in this order.
// Windows that overlap by a few bytes make the unit and the order visible.
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

// The unit of `width` bytes at `at`.
void Unit(Op op, uint8_t *x, uint8_t *y, uint8_t *r, uint8_t mask, std::size_t at,
          std::size_t width) {
    uint8_t a[8], b[8] = {}, t[8];
    std::memcpy(a, x + at, width);
    if (op != Op::Extract) std::memcpy(b, y + at, width);
    for (std::size_t k = 0; k < width; ++k) {
        switch (op) {
        case Op::Extract: t[k] = a[k] & mask; break;
        case Op::AndBits: case Op::And: t[k] = a[k] & b[k]; break;
        case Op::AndBitsMask: t[k] = a[k] & b[k] & mask; break;
        case Op::Or: t[k] = a[k] | b[k]; break;
        case Op::XOr: t[k] = a[k] ^ b[k]; break;
        }
    }
    std::memcpy(r + at, t, width);
    if (op != Op::AndBits && op != Op::AndBitsMask) return;
    // The bits are cleared in what the memory holds by then.
    for (uint8_t *operand : {x, y}) {
        std::memcpy(a, operand + at, width);
        for (std::size_t k = 0; k < width; ++k) a[k] = static_cast<uint8_t>(a[k] & ~t[k]);
        std::memcpy(operand + at, a, width);
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
            for (std::size_t at = 0, width = 8; at < n; at += width) {
                if (n - at < 8) width = 1;
                Unit(m.op, x, y, r, static_cast<uint8_t>(mask), at, width);
            }
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
    return qvt::fuzz::RunInput(data, size, 6, qvt::fuzz::RunOne);
}
