#include "hostvalues/strings.h"

#include <algorithm>
#include <cstring>

#include "diagnostics/debuglog.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {

namespace {

bool IsKnownEncoding(uint32_t encoding) {
    switch (encoding) {
        case abi::kEncodingMacRoman:
        case abi::kEncodingUTF16:
        case abi::kEncodingLatin1:
        case abi::kEncodingWindowsLatin1:
        case abi::kEncodingASCII:
        case abi::kEncodingUnknown:
        case abi::kEncodingUTF8:
        case abi::kEncodingUTF32:
            return true;
        default:
            return false;
    }
}

// Encodings whose ASCII text is better labelled as ASCII.
bool IsASCIICompatible8Bit(uint32_t encoding) {
    return encoding == abi::kEncodingMacRoman || encoding == abi::kEncodingLatin1 ||
           encoding == abi::kEncodingWindowsLatin1 || encoding == abi::kEncodingUnknown;
}

bool AllBelow128(const uint8_t *bytes, int64_t count) {
    return std::all_of(bytes, bytes + count, [](uint8_t b) { return b < 0x80; });
}

}  // namespace

REALstring REALBuildUnicodeString(const void *bytes, int64_t count, uint32_t encoding) {
    if (!bytes || count <= 0) return nullptr;
    if (count > 0x7FFFFFFF) {
        if (Debugging()) DebugLogText("Count too big for REALBuildUnicodeString.");
        return nullptr;
    }
    // Wide text needs the UTF-16 and UTF-32 routes, which this build lacks.
    if (encoding == abi::kEncodingUTF16 || encoding == abi::kEncodingUTF32) return nullptr;
    if (IsASCIICompatible8Bit(encoding) && AllBelow128(static_cast<const uint8_t *>(bytes), count)) {
        encoding = abi::kEncodingASCII;
    }
    if (!IsKnownEncoding(encoding) && Debugging()) {
        DebugLogUInt32("Unknown encoding in REALBuildUnicodeString", encoding);
    }
    const auto length = static_cast<int32_t>(count);
    if (gHostVersion >= 2012.0) return host::REALBuildStringWithEncoding(bytes, length, encoding);
    REALstring string = host::REALBuildString(bytes, length);
    if (string) host::REALSetStringEncoding(string, encoding);
    return string;
}

void CheckASCIIText(const char *text, int64_t length, uint32_t encoding) {
    if (encoding != abi::kEncodingASCII || length <= 0) return;
    const auto *bytes = reinterpret_cast<const uint8_t *>(text);
    if (!AllBelow128(bytes, length)) DebugLogStrings("Error: text is not ascii", text);
}

REALstring CString2RB(const char *text, uint32_t encoding) {
    if (Debugging()) {
        if (encoding == abi::kEncodingUTF16) {
            DebugLogText("Error: kREALTextEncodingUTF16 not useful for CString2RB!");
        } else if (encoding == abi::kEncodingUTF32) {
            DebugLogText("Error: kREALTextEncodingUTF32 not useful for CString2RB!");
        }
    }
    if (!text) return nullptr;
    const auto length = static_cast<int64_t>(std::strlen(text));
    if (Debugging()) CheckASCIIText(text, length, encoding);
    return REALBuildUnicodeString(text, length, encoding);
}

}  // namespace qvt
