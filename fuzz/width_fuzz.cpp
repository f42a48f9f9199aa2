// Width conversion against the per-sample rule in ascending order, which
// also fixes the outcome of overlapping ranges.
#include "fuzz_support.h"
#include "kernels/width.h"

namespace qvt::fuzz {
namespace {

using Convert = void (*)(REALobject, REALobject, intptr_t, intptr_t, intptr_t, intptr_t);

uint16_t Load16(const uint8_t *p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}

void Up(uint8_t *s, uint8_t *d, int64_t count, int32_t divisor) {
    for (int64_t i = 0; i < count; ++i) {
        const auto v = static_cast<uint16_t>(s[i] * static_cast<uint32_t>(divisor));
        std::memcpy(d + 2 * i, &v, 2);
    }
}

void Down(uint8_t *s, uint8_t *d, int64_t count, int32_t divisor) {
    for (int64_t i = 0; i < count; ++i)
        d[i] = divisor == 0 ? 0
                            : static_cast<uint8_t>(Load16(s + 2 * i) / static_cast<uint32_t>(divisor));
}

struct Method {
    const char *name;
    Convert call;
    void (*model)(uint8_t *, uint8_t *, int64_t, int32_t);
    int sourceUnit, destUnit;
    bool mayIgnoreNil;  // widening may ignore a nil block: the implementer's choice
};

const Method kMethods[] = {
    {"CopyByteToUShortQVT", &CopyByteToUShortQVT, &Up, 1, 2, true},
    {"CopyUShortToByteQVT", &CopyUShortToByteQVT, &Down, 2, 1, false},
};

int32_t Divisor(FuzzedDataProvider &in) {
    static constexpr int32_t kDivisors[] = {0,    1,    2,    4,    8,     16,    32,  64,
                                            128,  256,  512,  1024, 2048,  4096,  8192, 16384,
                                            257,  3,    1000, -1,   32768, 65536, 65537};
    return in.ConsumeBool() ? in.PickValueInArray(kDivisors) : in.ConsumeIntegral<int32_t>();
}

void RunOne(FuzzedDataProvider &in, World &world) {
    const Method &m = in.PickValueInArray(kMethods);
    Block &source = world.Add(200);
    Block &dest = world.Add(200);
    const int64_t count = Around(in, static_cast<int64_t>(source.extent) / m.sourceUnit);
    const int64_t sourceAt = Around(in, 0);
    const int64_t destAt = Around(in, 0);
    const int32_t divisor = Divisor(in);

    std::optional<Raised> raised;
    // Nil blocks are tested before null pointers.
    if (source.handle == nullptr) {
        raised = Nil("Source Memoryblock is nil");
    } else if (dest.handle == nullptr) {
        raised = Nil("Destination Memoryblock is nil");
    } else if (source.data == nullptr) {
        raised = Nil("Source Memoryblock is nil");
    } else if (dest.data == nullptr) {
        raised = Nil("Destination Memoryblock is nil");
    } else if (count > 0) {
        // Both ranges are the caller's to keep inside their blocks.
        if (!source.Holds(sourceAt, count * m.sourceUnit) || !dest.Holds(destAt, count * m.destUnit))
            return;
        m.model(world.Model(source) + sourceAt, world.Model(dest) + destAt, count, divisor);
    }
    Balanced(m.name, {}, [&] {
        m.call(source.handle, dest.handle, static_cast<intptr_t>(sourceAt),
               static_cast<intptr_t>(destAt), static_cast<intptr_t>(count), divisor);
        return 0;
    });
    if (m.mayIgnoreNil && (source.handle == nullptr || dest.handle == nullptr)) {
        const auto got = TakeOneException(m.name);
        if (got && got != raised) Fail("%s: raised %s for a nil block", m.name, got->message.c_str());
    } else {
        ExpectRaised(raised, m.name);
    }
    world.ExpectModel(m.name);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    return qvt::fuzz::RunInput(data, size, 6, qvt::fuzz::RunOne);
}
