// The three decoders against a plain reading of the well-formedness table:
// same output, same count, a zero behind it, nothing written further on in
// the buffer the callers give (two bytes per input byte plus 16, or four).
#include "fuzz_support.h"
#include "utf8_model.h"
#include "hostvalues/unicode.h"

namespace qvt::fuzz {
namespace {

std::vector<uint32_t> PairsToPoints(const std::vector<uint16_t> &units) {
    std::vector<uint32_t> out;
    for (std::size_t i = 0; i < units.size();) {
        const uint32_t c = units[i];
        const bool follows = i + 1 < units.size();
        if (c >= 0xD800 && c <= 0xDBFF && follows) {
            const uint32_t d = units[i + 1];
            if (d >= 0xDC00 && d <= 0xDFFF) out.push_back(0x10000 + ((c - 0xD800) << 10) + (d - 0xDC00));
            i += 2;
        } else if (c >= 0xDC00 && c <= 0xDFFF && follows) {
            i += 2;
        } else {
            out.push_back(c);
            ++i;
        }
    }
    return out;
}

// Runs a decoder into a buffer of `room` units filled with a sentinel, and
// checks the output, its terminating zero and the untouched rest.
template <typename Unit, typename Decode>
void Expect(const char *name, std::size_t room, const std::vector<uint32_t> &want, Decode decode) {
    constexpr auto kSentinel = static_cast<Unit>(0xA5A5A5A5u);
    std::vector<Unit> out(room, kSentinel);
    const std::size_t got = decode(out.data());
    if (got != want.size()) Fail("%s: %zu units, expected %zu", name, got, want.size());
    for (std::size_t i = 0; i < got; ++i)
        if (out[i] != want[i]) Fail("%s: unit %zu is %x, expected %x", name, i, unsigned(out[i]), want[i]);
    if (out[got] != 0) Fail("%s: no zero behind the output", name);
    for (std::size_t i = got + 1; i < room; ++i)
        if (out[i] != kSentinel) Fail("%s: unit %zu written behind the zero", name, i);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace qvt::fuzz;
    if (size == 0) return 0;
    const Bytes bytes(data + 1, data + size);
    const std::size_t n = bytes.size();
    switch (data[0] % 4) {
    case 0:
        Expect<uint16_t>("ConvertUTF8ToUTF16", n + 8, AsUTF16(DecodeUTF8(bytes)),
                         [&](uint16_t *out) { return qvt::ConvertUTF8ToUTF16(bytes.data(), n, out); });
        break;
    case 1:
        Expect<uint32_t>("ConvertUTF8ToUTF32", n + 4, DecodeUTF8(bytes),
                         [&](uint32_t *out) { return qvt::ConvertUTF8ToUTF32(bytes.data(), n, out); });
        break;
    case 2: {
        std::vector<uint16_t> units(n / 2);
        for (std::size_t i = 0; i < units.size(); ++i)
            units[i] = static_cast<uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
        Expect<uint32_t>("ConvertUTF16ToUTF32", units.size() + 4, PairsToPoints(units),
                         [&](uint32_t *out) {
                             return qvt::ConvertUTF16ToUTF32(units.data(), units.size(), out);
                         });
        break;
    }
    default:
        // Nothing to decode: a null output is never written to.
        if (qvt::ConvertUTF8ToUTF16(bytes.data(), 0, nullptr) != 0 ||
            qvt::ConvertUTF8ToUTF32(bytes.data(), 0, nullptr) != 0)
            Fail("an empty input decoded to something");
        break;
    }
    return 0;
}
