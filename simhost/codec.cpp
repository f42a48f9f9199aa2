#include "simhost/codec.h"

#include <bit>

#include "abi/plugin_abi.h"
#include "simhost/platform.h"

namespace simhost::detail {

namespace {

constexpr uint32_t kUTF16BE = 0x10000100;
constexpr uint32_t kUTF16LE = 0x14000100;
constexpr uint32_t kUTF32BE = 0x18000100;
constexpr uint32_t kUTF32LE = 0x1C000100;

constexpr bool kLittle = std::endian::native == std::endian::little;

struct Codec {
    const char *name;
    std::size_t unit;    // bytes per code unit
    bool asciiSuperset;  // the 7-bit range reads as ASCII
};

bool Lookup(uint32_t id, Codec &codec) {
    switch (id) {
        case hostabi::kEncodingMacRoman: codec = {"MACINTOSH", 1, true}; return true;
        case hostabi::kEncodingLatin1: codec = {"ISO-8859-1", 1, true}; return true;
        case hostabi::kEncodingWindowsLatin1: codec = {"CP1252", 1, true}; return true;
        case hostabi::kEncodingASCII: codec = {"ASCII", 1, true}; return true;
        case hostabi::kEncodingUTF8: codec = {"UTF-8", 1, true}; return true;
        case hostabi::kEncodingUnknown: codec = {"ISO-8859-1", 1, true}; return true;
        case hostabi::kEncodingUTF16:
            codec = {kLittle ? "UTF-16LE" : "UTF-16BE", 2, false};
            return true;
        case hostabi::kEncodingUTF32:
            codec = {kLittle ? "UTF-32LE" : "UTF-32BE", 4, false};
            return true;
        case kUTF16BE: codec = {"UTF-16BE", 2, false}; return true;
        case kUTF16LE: codec = {"UTF-16LE", 2, false}; return true;
        case kUTF32BE: codec = {"UTF-32BE", 4, false}; return true;
        case kUTF32LE: codec = {"UTF-32LE", 4, false}; return true;
        default: return false;
    }
}

// A byte order mark at the start of native-order text picks the order.
std::string_view TakeByteOrderMark(std::string_view bytes, uint32_t id, Codec &codec) {
    using namespace std::string_view_literals;
    struct Mark {
        uint32_t id;
        std::string_view bytes;
        const char *name;
    };
    static constexpr Mark kMarks[] = {
        {hostabi::kEncodingUTF16, "\xFF\xFE"sv, "UTF-16LE"},
        {hostabi::kEncodingUTF16, "\xFE\xFF"sv, "UTF-16BE"},
        {hostabi::kEncodingUTF32, "\xFF\xFE\0\0"sv, "UTF-32LE"},
        {hostabi::kEncodingUTF32, "\0\0\xFE\xFF"sv, "UTF-32BE"},
    };
    for (const Mark &m : kMarks) {
        if (m.id == id && bytes.starts_with(m.bytes)) {
            codec.name = m.name;
            return bytes.substr(m.bytes.size());
        }
    }
    return bytes;
}

}  // namespace

bool IsKnownEncoding(uint32_t id) {
    Codec c;
    return Lookup(id, c);
}

bool ConvertText(std::string_view bytes, uint32_t from, uint32_t to, std::string &out) {
    Codec source, target;
    if (!Lookup(from, source) || !Lookup(to, target) || to == hostabi::kEncodingUnknown)
        return false;
    bytes = TakeByteOrderMark(bytes, from, source);
    if (source.asciiSuperset && target.asciiSuperset) {
        bool ascii = true;
        for (char c : bytes) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
        if (ascii) {
            out.assign(bytes);
            return true;
        }
    }
    // Everything passes through UTF-32 so that each side's failures are
    // replaced in its own units.
    const char *middle = kLittle ? "UTF-32LE" : "UTF-32BE";
    using namespace std::string_view_literals;
    std::string_view bad = kLittle ? "\xFD\xFF\0\0"sv : "\0\0\xFF\xFD"sv;
    std::string wide;
    if (!platform::Transcode(source.name, middle, bytes, source.unit, bad, wide)) return false;
    std::string question;
    if (target.unit == 1) {
        question = "?";
    } else if (!platform::Transcode("ASCII", target.name, "?", 1, {}, question)) {
        return false;
    }
    return platform::Transcode(middle, target.name, wide, 4, question, out);
}

}  // namespace simhost::detail
