// Addresses, four-character codes and fixed strings against their quiet
// rules: refused or clipped where the size is known, trusted where it isn't.
#include <bit>

#include "fuzz_support.h"
#include "memory/addresses.h"

namespace qvt::fuzz {
namespace {

struct Args {
    Block *block;
    int64_t offset, count;
    REALstring str;  // the string given, of `bytes`
    Bytes bytes;
};

// The expected number or string, bytes changed in the model, or skip.
struct Outcome {
    bool skip = false;
    uint64_t number = 0;
    std::optional<Bytes> text;  // nil when empty
    uint32_t encoding = 0;
    bool adoptCode = false;     // the code of a 1..3-byte string is open
};
const Outcome kSkip{.skip = true};

Outcome Address(World &, Args &x) {
    const Block &b = *x.block;
    if (x.offset < 0 || (b.Known() && x.offset > b.hostSize)) return {};
    return {.number = reinterpret_cast<uintptr_t>(b.data) + static_cast<uint64_t>(x.offset)};
}

Outcome ReadCode(World &, Args &x) {
    const Block &b = *x.block;
    if (x.offset < 0 || (b.Known() && x.offset + 4 > b.hostSize)) return {};
    if (!b.Known() && !b.Holds(x.offset, 4)) return kSkip;
    uint32_t code;
    std::memcpy(&code, b.data + x.offset, 4);
    Bytes text(4);
    for (int i = 0; i < 4; ++i) text[i] = static_cast<uint8_t>(code >> (24 - 8 * i));
    const bool ascii = (code & 0x80808080u) == 0;
    return {.text = text, .encoding = ascii ? hostabi::kEncodingASCII : hostabi::kEncodingMacRoman};
}

Outcome WriteCode(World &w, Args &x) {
    const Block &b = *x.block;
    if (x.offset < 0 || (b.Known() && x.offset + 4 > b.hostSize)) return {};
    if (!b.Known() && !b.Holds(x.offset, 4)) return kSkip;
    uint32_t code = 0x20202020;
    if (x.bytes.size() >= 4)
        code = uint32_t{x.bytes[0]} << 24 | uint32_t{x.bytes[1]} << 16 | uint32_t{x.bytes[2]} << 8 |
               x.bytes[3];
    std::memcpy(w.Model(b) + x.offset, &code, 4);
    return {.adoptCode = !x.bytes.empty() && x.bytes.size() < 4};
}

Outcome GetString(World &, Args &x) {
    const Block &b = *x.block;
    if (x.count < 0 || x.offset < 0) return {};
    int64_t n = x.count;
    if (b.Known()) {
        if (x.offset > b.hostSize) return {};
        n = std::min(n, b.hostSize - x.offset);
    } else if (!b.Holds(x.offset, n) || b.data == nullptr) {
        return kSkip;
    }
    if (n == 0) return {};
    Bytes text(b.data + x.offset, b.data + x.offset + n);
    const bool ascii = std::all_of(text.begin(), text.end(), [](uint8_t c) { return c < 0x80; });
    return {.text = text, .encoding = ascii ? hostabi::kEncodingASCII : hostabi::kEncodingUnknown};
}

Outcome SetString(World &w, Args &x) {
    const Block &b = *x.block;
    auto n = static_cast<int64_t>(x.bytes.size());
    if (n < 1 || x.offset < 0) return {};
    if (b.Known()) {
        if (x.offset >= b.hostSize) return {};
        n = std::min(n, b.hostSize - x.offset);
    } else if (!b.Holds(x.offset, n) || b.data == nullptr) {
        return kSkip;
    }
    std::memcpy(w.Model(b) + x.offset, x.bytes.data(), static_cast<std::size_t>(n));
    return {};
}

struct Method {
    const char *name;
    Outcome (*model)(World &, Args &);
    // A number (addresses) or a string (texts) comes back.
    uint64_t (*number)(const Args &);
    REALstring (*text)(const Args &);
};

const Method kMethods[] = {
    {"AddressQVT", &Address, [](const Args &x) { return AddressQVT(x.block->handle, x.offset); },
     nullptr},
    {"AddressPtrQVT", &Address,
     [](const Args &x) {
         return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(AddressPtrQVT(x.block->handle, x.offset)));
     },
     nullptr},
    {"OSTypeQVT", &ReadCode, nullptr,
     [](const Args &x) { return OSTypeQVT(x.block->handle, static_cast<intptr_t>(x.offset)); }},
    {"OSTypeQVT(assigns)", &WriteCode, nullptr,
     [](const Args &x) {
         OSTypeQVT(x.block->handle, static_cast<intptr_t>(x.offset), x.str);
         return REALstring{};
     }},
    {"GetStringQVT", &GetString, nullptr,
     [](const Args &x) {
         return GetStringQVT(x.block->handle, static_cast<intptr_t>(x.offset),
                             static_cast<intptr_t>(x.count));
     }},
    {"SetStringQVT", &SetString, nullptr,
     [](const Args &x) {
         SetStringQVT(x.block->handle, x.str, static_cast<intptr_t>(x.offset));
         return REALstring{};
     }},
};

void Check(const Method &m, Args &x, const Outcome &want, World &world) {
    if (m.number) {
        const uint64_t got = Balanced(m.name, {}, [&] { return m.number(x); });
        if (got != want.number)
            Fail("%s(%lld): %llx, expected %llx", m.name, static_cast<long long>(x.offset),
                 static_cast<unsigned long long>(got), static_cast<unsigned long long>(want.number));
    } else {
        const REALstring got = Balanced(m.name, {}, [&] { return m.text(x); });
        if ((got != nullptr) != want.text.has_value())
            Fail("%s(%lld, %lld): %s, expected %s", m.name, static_cast<long long>(x.offset),
                 static_cast<long long>(x.count), got ? "a string" : "nil",
                 want.text ? "a string" : "nil");
        if (got != nullptr) {
            const std::string bytes = simhost::StringBytes(got);
            if (Bytes(bytes.begin(), bytes.end()) != *want.text ||
                simhost::StringEncoding(got) != want.encoding)
                Fail("%s: string %s in %x, expected %s in %x", m.name,
                     Hex(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()).c_str(),
                     simhost::StringEncoding(got), Hex(want.text->data(), want.text->size()).c_str(),
                     want.encoding);
            simhost::Release(got);
        }
    }
    ExpectRaised(std::nullopt, m.name);
    if (want.adoptCode) world.Adopt(*x.block, static_cast<std::size_t>(x.offset), 4);
    world.ExpectModel(m.name);
}

void RunOne(FuzzedDataProvider &in, World &world) {
    const Method &m = in.PickValueInArray(kMethods);
    Args x{};
    x.block = &world.Add(64);
    const auto size = static_cast<int64_t>(x.block->extent);
    x.offset = in.ConsumeBool() ? Around(in, 0) : Around(in, size);
    x.count = Around(in, size - x.offset);
    if (m.model == &Address && in.ConsumeIntegralInRange<int>(0, 7) == 0)
        x.offset = in.ConsumeIntegral<int64_t>();  // 64 bits wide, and trusted without a size
    // Mac Roman text, so that the code reads the bytes as they are.
    x.bytes = world.Consume(in.ConsumeIntegralInRange<std::size_t>(0, 9));
    if (!x.bytes.empty() || in.ConsumeBool())
        x.str = simhost::NewString(
            std::string_view(reinterpret_cast<const char *>(x.bytes.data()), x.bytes.size()),
            hostabi::kEncodingMacRoman);
    const Outcome want = m.model(world, x);
    if (!want.skip) Check(m, x, want, world);
    if (x.str) simhost::Release(x.str);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    return qvt::fuzz::RunInput(data, size, 6, qvt::fuzz::RunOne);
}
