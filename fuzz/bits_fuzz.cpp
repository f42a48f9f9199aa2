// The six bit methods against a plain model of bit numbering, bounds and
// the OR of the whole shifted value.
#include "fuzz_support.h"
#include "memory/bits.h"

namespace qvt::fuzz {
namespace {

struct Method {
    const char *name;
    const char *reportedAs;  // the working routine the range error names
    bool writes;
    bool takesValue;
    intptr_t fixedValue;
    intptr_t (*call)(REALobject, uint64_t, intptr_t);
};

const Method kMethods[] = {
    {"GetBitQVT", "GetBitQVT", false, false, 0,
     [](REALobject b, uint64_t bit, intptr_t) { return GetBitQVT(b, bit); }},
    {"IsBitSetQVT", "GetBitQVT", false, false, 0,
     [](REALobject b, uint64_t bit, intptr_t) { return intptr_t{IsBitSetQVT(b, bit)}; }},
    {"SetBitQVT(Integer)", "SetBitQVT", true, true, 0,
     [](REALobject b, uint64_t bit, intptr_t v) { SetBitQVT(b, bit, v); return intptr_t{0}; }},
    {"SetBitQVT", "SetBitQVT", true, false, 1,
     [](REALobject b, uint64_t bit, intptr_t) { SetBitQVT(b, bit); return intptr_t{0}; }},
    {"SetBitQVT(true)", "SetBitQVT", true, false, 1,
     [](REALobject b, uint64_t bit, intptr_t) { SetBitQVT(b, bit, true); return intptr_t{0}; }},
    {"SetBitQVT(false)", "SetBitQVT", true, false, 0,
     [](REALobject b, uint64_t bit, intptr_t) { SetBitQVT(b, bit, false); return intptr_t{0}; }},
    {"ClearBitQVT", "SetBitQVT", true, false, 0,
     [](REALobject b, uint64_t bit, intptr_t) { ClearBitQVT(b, bit); return intptr_t{0}; }},
};

uint64_t BitArgument(FuzzedDataProvider &in, const Block &b) {
    static constexpr uint64_t kWide[] = {~uint64_t{0}, uint64_t{1} << 32, uint64_t{1} << 63,
                                         (uint64_t{1} << 61) + 3, ~uint64_t{0} - 7};
    if (in.ConsumeIntegralInRange<int>(0, 9) == 0) return in.PickValueInArray(kWide);
    return static_cast<uint64_t>(Around(in, static_cast<int64_t>(b.extent * 8)));
}

void RunOne(FuzzedDataProvider &in, World &world) {
    const Method &m = in.PickValueInArray(kMethods);
    Block &b = world.Add();
    const uint64_t bit = BitArgument(in, b);
    const intptr_t value = m.takesValue ? static_cast<intptr_t>(Around(in, 1)) : m.fixedValue;

    // The holder sees a negative size as 0, and then no bound is tested.
    const uint64_t size = b.hostSize > 0 ? static_cast<uint64_t>(b.hostSize) : 0;
    std::optional<Raised> raised;
    bool reaches = false;
    if (b.data == nullptr) {
        raised = Nil("Memoryblock is nil?");
    } else if (size != 0 && bit / 8 >= size) {
        raised = Raised{"OutOfBoundsException",
                        RangeText("Bit", m.reportedAs, static_cast<int64_t>(bit),
                                  static_cast<int64_t>(size * 8))};
    } else {
        // Without a known size the bit must lie in the memory: the caller's limit.
        if (bit / 8 >= b.extent) return;
        reaches = true;
    }

    intptr_t expected = 0;
    if (reaches) {
        uint8_t &byte = world.Model(b)[bit / 8];
        const unsigned shift = 7 - bit % 8;
        if (m.writes)
            byte = static_cast<uint8_t>((byte & ~(1u << shift)) |
                                        (static_cast<uintptr_t>(value) << shift));
        else
            expected = (byte >> shift) & 1;
    }
    const intptr_t got = Balanced(m.name, {}, [&] { return m.call(b.handle, bit, value); });
    if (got != expected) Fail("%s(%llu): %ld, expected %ld", m.name,
                              static_cast<unsigned long long>(bit), static_cast<long>(got),
                              static_cast<long>(expected));
    ExpectRaised(raised, m.name);
    world.ExpectModel(m.name);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    return qvt::fuzz::RunInput(data, size, 8, qvt::fuzz::RunOne);
}
