// MemoryBlockQVT through a sequence of its members against a model of its
// state: size, bytes, and one host block over the memory whose reference is
// the object's alone. The object's end must leave nothing behind.
#include "fuzz_support.h"
#include "hostvalues/blocks.h"
#include "memory/memoryblockqvt.h"
#include "shell/definitions.h"
#include "shell/validation.h"

namespace qvt::fuzz {
namespace {

namespace M = MemoryBlockQVT;

const Raised kNilError = Nil("Memoryblock is nil");
const Raised kSizeError{"UnsupportedOperationException", "Size must be greater than zero."};
const Raised kMemoryError{"OutOfMemoryException", "Failed to allocate memory"};
constexpr int64_t kLargestAllocation = 0x7FFFFFFF;

struct Model {
    Bytes bytes;  // the memory; empty when the object holds none
};

struct Args {
    REALobject instance;
    Block *mem;
    REALstring str;
    Bytes strBytes;
    int64_t size, offset;
};

// What an operation must give: a result, an exception, and whether the
// object's memory (and so its host block) is replaced.
struct Outcome {
    bool skip = false;
    int64_t result = 0;
    std::optional<Raised> raised;
    bool replaces = false;
};

// A constructor with arguments: reset, then copy `count` bytes or raise.
Outcome Construct(Model &model, bool isNil, const uint8_t *from, int64_t count,
                  bool sizeFirst = true) {
    model.bytes.clear();
    if (isNil) return {.raised = kNilError, .replaces = true};
    if (sizeFirst && count <= 0) return {.raised = kSizeError, .replaces = true};
    if (count > kLargestAllocation) return {.raised = kMemoryError, .replaces = true};
    model.bytes.assign(from, from + count);
    return {.replaces = true};
}

Outcome Empty(Model &, Args &) { return {}; }

Outcome OfSize(Model &model, Args &x) {
    model.bytes.clear();
    if (x.size <= 0) return {.raised = kSizeError, .replaces = true};
    if (x.size > kLargestAllocation) return {.raised = kMemoryError, .replaces = true};
    model.bytes.assign(static_cast<std::size_t>(x.size), 0);
    return {.replaces = true};
}

Outcome OfMem(Model &model, Args &x) {
    const Block &b = *x.mem;
    const int64_t n = b.data ? std::max<int64_t>(b.hostSize, 0) : 0;
    return Construct(model, b.handle == nullptr, b.data, n);
}

Outcome OfMemRange(Model &model, Args &x) {
    const Block &b = *x.mem;
    // The range is the caller's, and a source without data is outside what
    // the constructor takes; a size the allocator refuses is its own error.
    const bool refused = x.size > kLargestAllocation;
    if (b.handle && x.size > 0 &&
        (!b.data || x.offset < 0 || !b.Holds(x.offset, refused ? 0 : x.size)))
        return {.skip = true};
    const bool copies = b.data && x.size > 0 && x.size <= kLargestAllocation;
    return Construct(model, b.handle == nullptr, copies ? b.data + x.offset : nullptr, x.size);
}

Outcome OfStr(Model &model, Args &x) {
    return Construct(model, x.str == nullptr, x.strBytes.data(),
                     static_cast<int64_t>(x.strBytes.size()));
}

Outcome OfStrRange(Model &model, Args &x) {
    const auto length = static_cast<int64_t>(x.strBytes.size());
    const int64_t copied = x.size > kLargestAllocation ? 0 : x.size;
    if (x.str && x.size > 0 && (x.offset < 0 || x.offset + copied > length)) return {.skip = true};
    const bool copies = x.str && x.size > 0 && x.size <= kLargestAllocation;
    return Construct(model, x.str == nullptr, copies ? x.strBytes.data() + x.offset : nullptr,
                     x.size);
}

Outcome Create(Model &model, Args &x) {
    model.bytes.clear();
    if (x.size <= 0 || x.size > kLargestAllocation) return {.result = 0, .replaces = true};
    model.bytes.assign(static_cast<std::size_t>(x.size), 0);
    return {.result = 1, .replaces = true};
}

Outcome Resize(Model &model, Args &x) {
    if (x.size <= 0 || x.size > kLargestAllocation || model.bytes.empty()) return {.result = 0};
    // The bytes gained are not cleared: RunOne takes them from the memory.
    model.bytes.resize(static_cast<std::size_t>(x.size));
    return {.result = 1, .replaces = true};
}

Outcome Close(Model &model, Args &) {
    model.bytes.clear();
    return {.replaces = true};
}

struct Method {
    const char *name;
    Outcome (*model)(Model &, Args &);
    int64_t (*call)(const Args &);
};

const Method kMethods[] = {
    {"Constructor", &Empty, [](const Args &x) { M::Constructor(x.instance); return int64_t{0}; }},
    {"Constructor(Size)", &OfSize,
     [](const Args &x) { M::Constructor(x.instance, x.size); return int64_t{0}; }},
    {"Constructor(Mem)", &OfMem,
     [](const Args &x) { M::Constructor(x.instance, x.mem->handle); return int64_t{0}; }},
    {"Constructor(Mem, Size, Offset)", &OfMemRange, [](const Args &x) {
         M::Constructor(x.instance, x.mem->handle, x.size, x.offset);
         return int64_t{0};
     }},
    {"Constructor(Str)", &OfStr,
     [](const Args &x) { M::Constructor(x.instance, x.str); return int64_t{0}; }},
    {"Constructor(Str, Size, Offset)", &OfStrRange, [](const Args &x) {
         M::Constructor(x.instance, x.str, x.size, x.offset);
         return int64_t{0};
     }},
    {"Create", &Create, [](const Args &x) { return int64_t{M::Create(x.instance, x.size)}; }},
    {"Resize", &Resize, [](const Args &x) { return int64_t{M::Resize(x.instance, x.size)}; }},
    {"Close", &Close, [](const Args &x) { M::Close(x.instance); return int64_t{0}; }},
};

M::Data State(REALobject instance) {
    M::Data data;
    std::memcpy(&data, simhost::InstanceData(instance).data(), sizeof data);
    return data;
}

// Sizes stay small when they are valid: the allocator is real.
int64_t SizeArgument(FuzzedDataProvider &in) {
    static constexpr int64_t kInvalid[] = {0, -1, kLargestAllocation + 1, INT64_MAX, INT64_MIN,
                                           int64_t{1} << 32};
    if (in.ConsumeIntegralInRange<int>(0, 7) == 0) return in.PickValueInArray(kInvalid);
    const int64_t size = Around(in, 16);
    return size > 4096 && size <= kLargestAllocation ? size % 4096 : size;
}

void ExpectState(const Model &model, REALobject instance, const char *method) {
    const M::Data data = State(instance);
    const auto size = static_cast<int64_t>(model.bytes.size());
    if (data.size != size || (data.address != nullptr) != (size > 0) ||
        (data.block != nullptr) != (size > 0))
        Fail("%s: size %lld, address %p, block %p; expected size %lld", method,
             static_cast<long long>(data.size), data.address, static_cast<void *>(data.block),
             static_cast<long long>(size));
    if (M::Size(instance, 0) != size ||
        M::Address(instance, 0) != static_cast<int64_t>(reinterpret_cast<intptr_t>(data.address)))
        Fail("%s: the properties disagree with the object's data", method);
    if (size == 0) return;
    if (std::memcmp(data.address, model.bytes.data(), model.bytes.size()) != 0)
        Fail("%s: bytes\n  got  %s\n  want %s", method,
             Hex(static_cast<const uint8_t *>(data.address), model.bytes.size()).c_str(),
             Hex(model.bytes.data(), model.bytes.size()).c_str());
    if (simhost::RefCount(data.block) != 1 || GetBlockPtr(data.block) != data.address)
        Fail("%s: the host block is not the object's alone, or not over its memory", method);
}

void RunOne(FuzzedDataProvider &in, World &world, Model &model, REALobject instance) {
    if (in.ConsumeIntegralInRange<int>(0, 5) == 0) {
        // Memory: the same object as held, one more reference for the caller.
        const M::Data data = State(instance);
        const REALobject got = Balanced("Memory", {}, [&] { return M::Memory(instance, 0); });
        if (got != data.block) Fail("Memory: not the object's host block");
        if (got) simhost::Release(got);
        // Bytes of the program's own, so that copies have something to carry.
        if (!model.bytes.empty()) {
            const Bytes bytes = world.Consume(model.bytes.size());
            std::copy(bytes.begin(), bytes.end(), static_cast<uint8_t *>(data.address));
            std::copy(bytes.begin(), bytes.end(), model.bytes.begin());
        }
        return;
    }
    const Method &m = in.PickValueInArray(kMethods);
    Args x{};
    x.instance = instance;
    x.mem = &world.Add(48);
    x.size = SizeArgument(in);
    const int64_t rest = static_cast<int64_t>(x.mem->extent) - std::clamp<int64_t>(x.size, 0, 4096);
    x.offset = in.ConsumeBool() ? Around(in, 0) : Around(in, rest);
    if (in.ConsumeIntegralInRange<int>(0, 5) != 0) {
        x.strBytes = world.Consume(in.ConsumeIntegralInRange<std::size_t>(0, 24));
        static constexpr uint32_t kEncodings[] = {hostabi::kEncodingUTF8, hostabi::kEncodingMacRoman,
                                                  hostabi::kEncodingUnknown};
        x.str = simhost::NewString(
            std::string_view(reinterpret_cast<const char *>(x.strBytes.data()), x.strBytes.size()),
            in.PickValueInArray(kEncodings));
    }

    Model next = model;
    const Outcome want = m.model(next, x);
    if (!want.skip) {
        const M::Data before = State(instance);
        // The old host block ends with the object's reference; nothing else moves.
        const std::string ended = want.replaces && before.block
                                      ? simhost::Name(before.block) + " ended: 0 references held, 1 expected\n"
                                      : "";
        const simhost::Snapshot snapshot = simhost::TakeSnapshot();
        const int64_t got = m.call(x);
        const M::Data after = State(instance);
        const std::string difference = simhost::CompareSnapshot(snapshot, {after.block != before.block ? after.block : nullptr});
        if (difference != ended) Fail("%s: references:\n%sexpected:\n%s", m.name, difference.c_str(), ended.c_str());
        if (got != want.result) Fail("%s(%lld): %lld, expected %lld", m.name, static_cast<long long>(x.size),
                                     static_cast<long long>(got), static_cast<long long>(want.result));
        ExpectRaised(want.raised, m.name);
        if (m.model == &Resize && got == 1) {
            const auto kept = std::min<std::size_t>(model.bytes.size(), next.bytes.size());
            const auto *bytes = static_cast<const uint8_t *>(after.address);
            std::copy(bytes + kept, bytes + next.bytes.size(), next.bytes.begin() + static_cast<std::ptrdiff_t>(kept));
        }
        model = next;
        ExpectState(model, instance, m.name);
        world.ExpectModel(m.name);
    }
    if (x.str) simhost::Release(x.str);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace qvt::fuzz;
    FuzzedDataProvider in(data, size);
    FreshHost();
    // As a load registers the class; the last host wrote its offset into the record.
    qvt::gPluginSDKVersion = qvt::RecordVersionForHost(qvt::gHostVersion);
    qvt::gpartname = "Memory";
    qvt::gMemoryBlockQVTClass.forSystemUse = 0;
    qvt::RegisterClass(&qvt::gMemoryBlockQVTClass);
    const REALobject instance = simhost::NewInstance("MemoryBlockQVT");
    {
        Model model;
        RunCalls(in, 10, [&](FuzzedDataProvider &, World &world) {
            RunOne(in, world, model, instance);
        });
    }
    // The object's end runs Close: no block and no memory may stay.
    simhost::Release(instance);
    if (simhost::LiveObjects() != 0) Fail("%zu objects outlive the object", simhost::LiveObjects());
    ExpectNoFaults("the object's end");
    return 0;
}
