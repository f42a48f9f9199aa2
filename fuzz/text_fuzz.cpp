// rbText over strings of random bytes in any encoding id, its views asked
// for in random order: every view is terminated and readable to its end,
// the views the wrapper computes itself match a plain decoder, and the
// wrapper gives back every reference and string-data record it took.
#include "fuzz_support.h"
#include "utf8_model.h"
#include "hostvalues/text.h"

namespace qvt::fuzz {
namespace {

using View = rbText::View;

constexpr uint32_t kViewEncoding[] = {
    hostabi::kEncodingWindowsLatin1, hostabi::kEncodingMacRoman, hostabi::kEncodingASCII,
    hostabi::kEncodingUTF8, hostabi::kEncodingLatin1, hostabi::kEncodingUTF16,
    hostabi::kEncodingUTF32};

struct Subject {
    REALstring string;
    Bytes bytes;
    uint32_t encoding;
};

std::size_t UnitSize(View v) { return v == rbText::kUTF16 ? 2 : v == rbText::kUTF32 ? 4 : 1; }

uint32_t UnitAt(const void *data, View v, std::size_t i) {
    const auto *bytes = static_cast<const uint8_t *>(data) + i * UnitSize(v);
    uint32_t value = 0;
    if (v == rbText::kUTF16) {
        uint16_t u;
        std::memcpy(&u, bytes, 2);
        value = u;
    } else if (v == rbText::kUTF32) {
        std::memcpy(&value, bytes, 4);
    } else {
        value = *bytes;
    }
    return value;
}

// What the view must hold, where the wrapper computes it itself or takes
// the string's own bytes.
std::optional<std::vector<uint32_t>> Expected(const Subject &s, View v) {
    if (s.string == nullptr) return std::vector<uint32_t>{};
    const bool eightBit = UnitSize(v) == 1;
    const bool ascii = std::all_of(s.bytes.begin(), s.bytes.end(), [](uint8_t c) { return c < 0x80; });
    const bool checked8 = s.encoding == hostabi::kEncodingUTF8 || s.encoding == hostabi::kEncodingASCII ||
                          s.encoding == hostabi::kEncodingWindowsLatin1 ||
                          s.encoding == hostabi::kEncodingMacRoman ||
                          s.encoding == hostabi::kEncodingLatin1 || s.encoding == hostabi::kEncodingUnknown;
    const std::vector<uint32_t> own(s.bytes.begin(), s.bytes.end());
    if (checked8 && ascii) return own;  // the wide views widen it unit for unit
    if (s.encoding == hostabi::kEncodingUTF8 || s.encoding == hostabi::kEncodingASCII) {
        if (v == rbText::kUTF32) return DecodeUTF8(s.bytes);
        if (v == rbText::kUTF16) return AsUTF16(DecodeUTF8(s.bytes));
        if (v == rbText::kUTF8 || (v == rbText::kASCII && s.encoding == hostabi::kEncodingASCII))
            return own;
    }
    // Every byte has a character in these two: the host gives them back as they are.
    if (eightBit && s.encoding == kViewEncoding[v] &&
        (s.encoding == hostabi::kEncodingMacRoman || s.encoding == hostabi::kEncodingLatin1))
        return own;
    return std::nullopt;
}

void ExpectView(rbText &text, const Subject &s, View v) {
    const int32_t length = text.Length(v);
    const void *data = text.Data(v);
    if (length < 0 || data == nullptr) Fail("view %d: length %d, data %p", int(v), length, data);
    if ((text.DataOrNull(v) == nullptr) != (length == 0)) Fail("view %d: DataOrNull disagrees", int(v));
    // Every unit is read: the sanitizer sees a view that is shorter than told.
    std::vector<uint32_t> units;
    for (int32_t i = 0; i < length; ++i) units.push_back(UnitAt(data, v, static_cast<std::size_t>(i)));
    if (UnitAt(data, v, static_cast<std::size_t>(length)) != 0) Fail("view %d: no zero unit behind", int(v));
    const auto want = Expected(s, v);
    if (want && units != *want)
        Fail("view %d of %zu bytes in %x: %zu units, expected %zu", int(v), s.bytes.size(),
             s.encoding, units.size(), want->size());
    if (text.check1 != rbText::kCheckWord || text.check2 != rbText::kCheckWord)
        Fail("the wrapper's check words were overwritten");
}

Subject MakeSubject(FuzzedDataProvider &in) {
    static constexpr uint32_t kEncodings[] = {
        hostabi::kEncodingUTF8, hostabi::kEncodingASCII, hostabi::kEncodingWindowsLatin1,
        hostabi::kEncodingMacRoman, hostabi::kEncodingLatin1, hostabi::kEncodingUTF16,
        hostabi::kEncodingUTF32, 0x10000100, 0x14000100, 0x18000100, 0x1C000100,
        hostabi::kEncodingUnknown, 0x0BAD0001};
    Subject s{};
    if (in.ConsumeIntegralInRange<int>(0, 9) == 0) return s;
    s.encoding = in.PickValueInArray(kEncodings);
    s.bytes = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<std::size_t>(0, 40));
    // Wide strings come in whole units, as a host has them.
    if (s.encoding == hostabi::kEncodingUTF16) s.bytes.resize(s.bytes.size() & ~std::size_t{1});
    if (s.encoding >= hostabi::kEncodingUTF32) s.bytes.resize(s.bytes.size() & ~std::size_t{3});
    s.string = simhost::NewString(
        std::string_view(reinterpret_cast<const char *>(s.bytes.data()), s.bytes.size()), s.encoding);
    return s;
}

// A chain of wrappers, each asked for views in the input's order.
void RunChain(FuzzedDataProvider &in) {
    std::vector<Subject> subjects;
    const int count = in.ConsumeIntegralInRange<int>(1, 3);
    for (int i = 0; i < count; ++i) subjects.push_back(MakeSubject(in));
    const simhost::Snapshot before = simhost::TakeSnapshot();
    rbText *chain = nullptr;
    for (const Subject &s : subjects) {
        rbText *text = NewText(s.string);
        if (text == nullptr) Fail("NewText gave null");
        if (in.ConsumeIntegralInRange<int>(0, 7) == 0) text->TreatAsASCII();
        const bool treated = text->kind == rbText::kASCIIText && s.string != nullptr;
        for (int asks = in.ConsumeIntegralInRange<int>(0, 8); asks > 0; --asks) {
            const auto v = static_cast<View>(in.ConsumeIntegralInRange<int>(0, rbText::kViewCount - 1));
            if (treated) {
                // The 8-bit views are the string's bytes, whatever it holds.
                const int32_t length = text->Length(v);
                if (UnitSize(v) == 1 && length != static_cast<int32_t>(s.bytes.size()))
                    Fail("TreatAsASCII: view %d has %d bytes of %zu", int(v), length, s.bytes.size());
                (void)text->Data(v);
            } else {
                ExpectView(*text, s, v);
            }
        }
        AddTextChain(&chain, text);
    }
    FreeTextChain(chain);
    const std::string difference = simhost::CompareSnapshot(before);
    if (!difference.empty()) Fail("rbText: references: %s", difference.c_str());

    // Four-character codes: the first four Mac Roman bytes, or four blanks.
    const Subject &s = subjects.front();
    const uint32_t code = StringToOSType(s.string);
    const bool macRoman = s.encoding == hostabi::kEncodingMacRoman ||
                          (s.encoding == hostabi::kEncodingUTF8 &&
                           std::all_of(s.bytes.begin(), s.bytes.end(), [](uint8_t c) { return c < 0x80; }));
    if (s.string == nullptr || (macRoman && (s.bytes.empty() || s.bytes.size() >= 4))) {
        const uint32_t want = s.bytes.size() < 4 ? 0x20202020u
                                                 : uint32_t{s.bytes[0]} << 24 | uint32_t{s.bytes[1]} << 16 |
                                                       uint32_t{s.bytes[2]} << 8 | s.bytes[3];
        if (code != want) Fail("StringToOSType: %08x, expected %08x", code, want);
    }
    const bool ascii = std::all_of(s.bytes.begin(), s.bytes.end(), [](uint8_t c) { return c < 0x80; });
    if (IsASCIIString(s.string) != ascii) Fail("IsASCIIString: %d", !ascii);
    const REALstring back = Balanced("OSTypeToString", {}, [&] { return OSTypeToString(code); });
    const std::string bytes = simhost::StringBytes(back);
    const char want[4] = {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
    const uint32_t encoding = (code & 0x80808080u) == 0 ? hostabi::kEncodingASCII : hostabi::kEncodingMacRoman;
    if (bytes != std::string(want, 4) || simhost::StringEncoding(back) != encoding)
        Fail("OSTypeToString(%08x): wrong string", code);
    simhost::Release(back);
    for (const Subject &subject : subjects)
        if (subject.string) simhost::Release(subject.string);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace qvt::fuzz;
    FuzzedDataProvider in(data, size);
    static constexpr double kHosts[] = {2011.0, 2012.5, 2013.04};
    FreshHost(in.PickValueInArray(kHosts));
    RunChain(in);
    ExpectNoFaults("rbText");
    return 0;
}
