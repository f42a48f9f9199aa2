#include "hostvalues/wide_strings.h"

#include <cstring>
#include <memory>

#include "diagnostics/debuglog.h"
#include "hostvalues/allocation.h"
#include "hostvalues/strings.h"
#include "hostvalues/unicode.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {

namespace {

// Inputs of fewer values than this convert in a buffer on the stack.
constexpr std::size_t kStackValues = 200;

// Hosts that build with an encoding convert the wide string to UTF-8 at once.
REALstring BuildLabelledAndConvert(const void *bytes, int64_t count, uint32_t encoding) {
    REALstring wide =
        host::REALBuildStringWithEncoding(bytes, static_cast<int32_t>(count), encoding);
    if (!wide) return nullptr;
    REALstring converted = host::REALConvertString(wide, hostabi::kEncodingUTF8);
    host::REALUnlockString(wide);
    return converted;
}

// Same guard as REALBuildUnicodeString, for callers that come here directly.
bool Buildable(const void *bytes, int64_t count) {
    return bytes && count > 0 && count <= 0x7FFFFFFF;
}

}  // namespace

REALstring REALBuildUnicodeStringUTF16(const void *bytes, int64_t count) {
    if (!Buildable(bytes, count)) return nullptr;
    if (gHostVersion >= 2012.0) {
        return BuildLabelledAndConvert(bytes, count, hostabi::kEncodingUTF16);
    }
    REALstring wide = host::REALBuildString(bytes, static_cast<int32_t>(count));
    if (!wide) {
        if (Debugging()) DebugLogText("Out of memory in REALBuildUnicodeStringUTF16.");
        return nullptr;
    }
    host::REALSetStringEncoding(wide, hostabi::kEncodingUTF16);
    REALstring converted = host::REALConvertString(wide, hostabi::kEncodingUTF8);
    host::REALUnlockString(wide);
    return converted;
}

REALstring REALBuildUnicodeStringUTF32(const void *bytes, int64_t count) {
    if (!Buildable(bytes, count)) return nullptr;
    // Older hosts have no UTF-32 conversion: go through UTF-16 ourselves.
    if (gHostVersion >= 2013.0) {
        return BuildLabelledAndConvert(bytes, count, hostabi::kEncodingUTF32);
    }
    const auto values = static_cast<std::size_t>(count / 4);
    uint16_t stackUnits[2 * kStackValues + 1];
    std::unique_ptr<void, FreeMemoryDeleter> heapUnits;
    uint16_t *units = stackUnits;
    if (values >= kStackValues) {
        heapUnits.reset(AllocateMemory(static_cast<int64_t>((2 * values + 1) * sizeof(uint16_t))));
        if (!heapUnits) {
            if (Debugging()) DebugLogText("Out of memory in REALBuildUnicodeStringUTF32.");
            return nullptr;
        }
        units = static_cast<uint16_t *>(heapUnits.get());
    }
    const auto *input = static_cast<const uint8_t *>(bytes);
    std::size_t written = 0;
    for (std::size_t i = 0; i < values; ++i) {
        uint32_t value;
        std::memcpy(&value, input + 4 * i, sizeof value);
        written += AppendUTF16(value, units + written);
    }
    units[written] = 0;
    return REALBuildUnicodeStringUTF16(units, static_cast<int64_t>(2 * written));
}

REALstring PString2RB(const unsigned char *text, uint32_t encoding) {
    if (Debugging()) LogWideEncodingMisuse("PString2RB", encoding);
    if (!text) return nullptr;
    // A terminated copy, as the ASCII check prints the text.
    char bytes[256];
    const std::size_t length = text[0];
    std::memcpy(bytes, text + 1, length);
    bytes[length] = '\0';
    if (Debugging()) CheckASCIIText(bytes, static_cast<int64_t>(length), encoding);
    return REALBuildUnicodeString(bytes, static_cast<int64_t>(length), encoding);
}

REALstring CString2RB(const char *text, int64_t limit, uint32_t encoding) {
    if (!text || limit <= 0) return nullptr;
    const void *end = std::memchr(text, 0, static_cast<std::size_t>(limit));
    const int64_t length = end ? static_cast<const char *>(end) - text : limit;
    return REALBuildUnicodeString(text, length, encoding);
}

REALstring UTF16String2RB(const uint16_t *text) {
    if (!text) return nullptr;
    int64_t units = 0;
    while (text[units] != 0) ++units;
    return REALBuildUnicodeString(text, 2 * units, hostabi::kEncodingUTF16);
}

}  // namespace qvt
