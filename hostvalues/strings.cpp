#include "hostvalues/strings.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>

#include "diagnostics/debuglog.h"
#include "hostvalues/raise.h"
#include "hostvalues/translate.h"
#include "hostvalues/wide_strings.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {

namespace {

bool IsKnownEncoding(uint32_t encoding) {
    switch (encoding) {
        case hostabi::kEncodingMacRoman:
        case hostabi::kEncodingUTF16:
        case hostabi::kEncodingLatin1:
        case hostabi::kEncodingWindowsLatin1:
        case hostabi::kEncodingASCII:
        case hostabi::kEncodingUnknown:
        case hostabi::kEncodingUTF8:
        case hostabi::kEncodingUTF32:
            return true;
        default:
            return false;
    }
}

// Encodings whose ASCII text is better labelled as ASCII.
bool IsASCIICompatible8Bit(uint32_t encoding) {
    return encoding == hostabi::kEncodingMacRoman || encoding == hostabi::kEncodingLatin1 ||
           encoding == hostabi::kEncodingWindowsLatin1 || encoding == hostabi::kEncodingUnknown;
}

bool AllBelow128(const uint8_t *bytes, int64_t count) {
    return std::all_of(bytes, bytes + count, [](uint8_t b) { return b < 0x80; });
}

REALstring BuildUnicodeString(const void *bytes, int64_t count, uint32_t encoding) {
    if (!bytes || count <= 0) return nullptr;
    if (count > 0x7FFFFFFF) {
        if (Debugging()) DebugLogText("Count too big for REALBuildUnicodeString.");
        return nullptr;
    }
    if (encoding == hostabi::kEncodingUTF16) return REALBuildUnicodeStringUTF16(bytes, count);
    if (encoding == hostabi::kEncodingUTF32) return REALBuildUnicodeStringUTF32(bytes, count);
    if (IsASCIICompatible8Bit(encoding) && AllBelow128(static_cast<const uint8_t *>(bytes), count)) {
        encoding = hostabi::kEncodingASCII;
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

}  // namespace

// Every message of a raise passes through here, so a failure thrown on the
// way becomes a host exception rather than leaving the plug-in.
REALstring REALBuildUnicodeString(const void *bytes, int64_t count, uint32_t encoding) {
    try {
        return BuildUnicodeString(bytes, count, encoding);
    } catch (const std::exception &failure) {
        TranslateException(failure);
    } catch (...) {
        if (Debugging()) DebugLogText("Unnamed C++ Exception.");
        RaiseException("RuntimeException", "Sorry, but there was an unnamed C++ Exception.",
                       hostabi::kEncodingASCII);
    }
    return nullptr;
}

void CheckASCIIText(const char *text, int64_t length, uint32_t encoding) {
    if (encoding != hostabi::kEncodingASCII || length <= 0) return;
    const auto *bytes = reinterpret_cast<const uint8_t *>(text);
    if (!AllBelow128(bytes, length)) DebugLogStrings("Error: text is not ascii", text);
}

void LogWideEncodingMisuse(const char *routine, uint32_t encoding) {
    const char *name = encoding == hostabi::kEncodingUTF16   ? "kREALTextEncodingUTF16"
                       : encoding == hostabi::kEncodingUTF32 ? "kREALTextEncodingUTF32"
                                                             : nullptr;
    if (!name) return;
    char line[128];
    std::snprintf(line, sizeof line, "Error: %s not useful for %s!", name, routine);
    DebugLogText(line);
}

REALstring CString2RB(const char *text, uint32_t encoding) {
    if (Debugging()) LogWideEncodingMisuse("CString2RB", encoding);
    if (!text) return nullptr;
    const auto length = static_cast<int64_t>(std::strlen(text));
    if (Debugging()) CheckASCIIText(text, length, encoding);
    return REALBuildUnicodeString(text, length, encoding);
}

}  // namespace qvt
