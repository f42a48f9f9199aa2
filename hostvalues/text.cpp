#include "hostvalues/text.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>

#include "diagnostics/debugger_channel.h"
#include "diagnostics/debuglog.h"
#include "hostvalues/allocation.h"
#include "hostvalues/rbdata.h"
#include "hostvalues/strings.h"
#include "hostvalues/unicode.h"
#include "shell/binding.h"

namespace qvt {

namespace {

// Process-wide: the fallback to Windows Latin 1 is logged the first time only.
std::atomic<bool> gTextFallbackLogged{false};

struct ViewShape {
    uint32_t encoding;
    int unit;  // bytes
};

constexpr ViewShape kViews[rbText::kViewCount] = {
    {hostabi::kEncodingWindowsLatin1, 1}, {hostabi::kEncodingMacRoman, 1},
    {hostabi::kEncodingASCII, 1},         {hostabi::kEncodingUTF8, 1},
    {hostabi::kEncodingLatin1, 1},        {hostabi::kEncodingUTF16, 2},
    {hostabi::kEncodingUTF32, 4},
};

constexpr rbText::View kEightBitViews[] = {rbText::kWindowsLatin1, rbText::kMacRoman,
                                           rbText::kASCII, rbText::kUTF8, rbText::kLatin1};

// Serves as the empty value of every view width.
constexpr uint32_t kEmptyUnit = 0;

int Unit(rbText::View view) { return kViews[view].unit; }

uint32_t UnitAt(const void *data, int unit, std::size_t index) {
    const auto *at = static_cast<const uint8_t *>(data) + index * static_cast<std::size_t>(unit);
    switch (unit) {
        case 1: return *at;
        case 2: {
            uint16_t value;
            std::memcpy(&value, at, sizeof value);
            return value;
        }
        default: {
            uint32_t value;
            std::memcpy(&value, at, sizeof value);
            return value;
        }
    }
}

int32_t ClampedLength(uintptr_t length) {
    return static_cast<int32_t>(std::min<uintptr_t>(length, INT32_MAX));
}

bool IsWideEncoding(uint32_t encoding) {
    switch (encoding) {
        case hostabi::kEncodingUTF16:
        case hostabi::kEncodingUTF32:
        case 0x10000100:  // UTF-16 BE
        case 0x14000100:  // UTF-16 LE
        case 0x18000100:  // UTF-32 BE
        case 0x1C000100:  // UTF-32 LE
            return true;
        default:
            return false;
    }
}

void *AllocateUnits(int unit, int64_t units, int64_t extraBytes) {
    return AllocateMemory(units * unit + extraBytes);
}

}  // namespace

rbText::rbText(REALstring s) {
    ResetToInitialState();
    if (!s) return;
    host::REALLockString(s);
    string = s;
    encoding = host::REALGetStringEncoding(s);
    std::fill(std::begin(lengths), std::end(lengths), -1);
    kind = kUnknownEncoding;
    switch (encoding) {
        case hostabi::kEncodingUTF8:
            kind = kEightBitUnchecked;
            TakeStringBytes(kUTF8);
            break;
        case hostabi::kEncodingASCII:
            kind = kEightBitUnchecked;
            TakeStringBytes(kUTF8);
            TakeStringBytes(kASCII);
            break;
        case hostabi::kEncodingWindowsLatin1:
        case hostabi::kEncodingMacRoman:
        case hostabi::kEncodingLatin1:
            kind = kEightBitUnchecked;
            break;
        case hostabi::kEncodingUnknown:
            kind = kEightBitUnchecked;
            RunASCIITest();
            if (kind != kASCIIText) FallBackToWindowsLatin1();
            break;
        default:
            if (IsWideEncoding(encoding)) kind = kWideOrNotASCII;
            break;
    }
}

rbText::~rbText() {
    if (Debugging()) {
        if (check1 != kCheckWord) DebugLogUInt32("Check1 in rbText invalid", check1);
        if (check2 != kCheckWord) DebugLogUInt32("Check2 in rbText invalid", check2);
    }
    if (string) host::REALUnlockString(string);
    for (REALstring spare : spareStrings) {
        if (spare) host::REALUnlockString(spare);
    }
    for (int v = 0; v < kViewCount; ++v) {
        if (hasStringData[v]) host::PluginDisposeStringData(&stringData[v]);
    }
    for (void *buffer : ownedBuffers) FreeMemory(buffer);
    ResetToInitialState();
}

void rbText::ResetToInitialState() {
    check1 = kCheckWord;
    check2 = kCheckWord;
    next = nullptr;
    string = nullptr;
    std::fill(std::begin(spareStrings), std::end(spareStrings), nullptr);
    std::fill(std::begin(ownedBuffers), std::end(ownedBuffers), nullptr);
    std::fill(std::begin(hasStringData), std::end(hasStringData), false);
    std::fill(std::begin(stringData), std::end(stringData), REALstringData{});
    failed = false;
    for (int v = 0; v < kViewCount; ++v) SetEmpty(static_cast<View>(v));
    kind = kASCIIText;
    encoding = hostabi::kEncodingASCII;
}

const void *rbText::Data(View view) {
    Prepare(view);
    return views[view];
}

const void *rbText::DataOrNull(View view) {
    Prepare(view);
    return lengths[view] > 0 ? views[view] : nullptr;
}

int32_t rbText::Length(View view) {
    Prepare(view);
    return lengths[view];
}

void rbText::SetString(REALstring s) {
    if (s == string) return;
    if (s) host::REALLockString(s);
    if (string) host::REALUnlockString(string);
    string = s;
    encoding = s ? host::REALGetStringEncoding(s) : hostabi::kEncodingASCII;
}

void rbText::SetNext(rbText *text) {
    if (!next) {
        next = text;
    } else if (Debugging()) {
        DebugLogText("Warning: Next already set!");
    }
}

void rbText::TreatAsASCII() {
    if (kind == kASCIIText) return;
    kind = kASCIIText;
    ShareStringBytesAsASCII();
}

void rbText::Prepare(View view) {
    RunASCIITest();
    if (lengths[view] < 0) MakeView(view);
}

void rbText::RunASCIITest() {
    if (kind != kEightBitUnchecked) return;
    rbData holder(string);
    const bool highByte =
        holder.data && std::any_of(holder.data, holder.data + holder.size,
                                   [](uint8_t b) { return b >= 0x80; });
    holder.release();
    if (highByte) {
        kind = kWideOrNotASCII;
        return;
    }
    kind = kASCIIText;
    ShareStringBytesAsASCII();
}

void rbText::ShareStringBytesAsASCII() {
    rbData holder(string);
    const bool hasBytes = holder.data && holder.size > 0;
    for (View view : kEightBitViews) {
        FreeOwned(view);
        views[view] = hasBytes ? holder.data : static_cast<const void *>(&kEmptyUnit);
        lengths[view] = hasBytes ? ClampedLength(holder.size) : 0;
    }
}

void rbText::TakeStringBytes(View view) {
    rbData holder(string);
    if (!holder.data || holder.size == 0) return;
    views[view] = holder.data;
    lengths[view] = ClampedLength(holder.size);
}

void rbText::FallBackToWindowsLatin1() {
    rbData holder(string);
    void *probe = AllocateMemory(static_cast<int64_t>(holder.size) + 4);
    if (!probe) {
        if (Debugging()) DebugLogText("Out of Memory.");
        failed = true;
        return;
    }
    FreeMemory(probe);
    if (holder.size == 0) {
        // Becoming the empty wrapper, the string's lock is given back too.
        holder.release();
        host::REALUnlockString(string);
        ResetToInitialState();
        return;
    }
    REALstring rebuilt = REALBuildUnicodeString(holder.data, static_cast<int64_t>(holder.size),
                                                hostabi::kEncodingWindowsLatin1);
    holder.release();
    // A build that gives nil leaves the wrapper holding nil: its views are empty.
    SetString(rebuilt);
    if (rebuilt) host::REALUnlockString(rebuilt);
    kind = kWideOrNotASCII;
    if (Debugging() && !gTextFallbackLogged.exchange(true)) {
        DebugLogText("REALBuildUnicodeString failed");
    }
    failed = true;
}

void rbText::MakeView(View view) {
    if (Unit(view) > 1) {
        MakeWideView(view);
        return;
    }
    SetEmpty(view);
    if (!string) return;
    RunASCIITest();
    if (kind == kASCIIText) return;
    FetchStringData(view);
    EnsureTerminated(view);
}

void rbText::MakeWideView(View view) {
    SetEmpty(view);
    if (!string) return;
    RunASCIITest();
    if (kind == kASCIIText) {
        WidenASCII(view);
    } else if (view == kUTF32 && encoding == hostabi::kEncodingUTF16) {
        UTF32FromUTF16();
    } else if (encoding == hostabi::kEncodingASCII || encoding == hostabi::kEncodingUTF8) {
        DecodeUTF8Into(view);
    } else {
        const bool failedBefore = failed;
        if ((!FetchStringData(view) || failedBefore) && view == kUTF32) UTF32FromUTF16();
    }
    EnsureTerminated(view);
    SwapForeignByteOrder(view);
    SkipByteOrderMarks(view);
}

bool rbText::FetchStringData(View view) {
    REALstringData &record = stringData[view];
    if (!host::PluginGetStringData(string, kViews[view].encoding, &record)) {
        if (Debugging()) DebugLogText("REALGetStringData failed.");
        failed = true;
        return false;
    }
    hasStringData[view] = true;
    if (record.data) {
        views[view] = record.data;
        const RBInteger bytes = std::max<RBInteger>(record.length, 0);
        lengths[view] = ClampedLength(static_cast<uintptr_t>(bytes) / Unit(view));
    }
    return true;
}

void rbText::WidenASCII(View view) {
    const int32_t length = lengths[kASCII];
    if (length <= 0) return;
    void *buffer = AllocateUnits(Unit(view), length, 4);
    if (!buffer) return;
    const auto *bytes = static_cast<const uint8_t *>(views[kASCII]);
    for (int32_t i = 0; i < length; ++i) {
        if (view == kUTF16) {
            static_cast<uint16_t *>(buffer)[i] = bytes[i];
        } else {
            static_cast<uint32_t *>(buffer)[i] = bytes[i];
        }
    }
    Adopt(view, buffer, length);
}

void rbText::DecodeUTF8Into(View view) {
    if (Debugging()) {
        DebugLogText(view == kUTF16 ? "Try UTF8 to UTF16 conversion..."
                                    : "Try UTF8 to UTF32 conversion...");
    }
    if (lengths[kUTF8] < 0) MakeView(kUTF8);
    const int32_t length = lengths[kUTF8];
    if (length <= 0) return;
    void *buffer = AllocateUnits(Unit(view), length, 16);
    if (!buffer) return;
    const auto *bytes = static_cast<const uint8_t *>(views[kUTF8]);
    const auto count = static_cast<std::size_t>(length);
    const std::size_t written =
        view == kUTF16 ? ConvertUTF8ToUTF16(bytes, count, static_cast<uint16_t *>(buffer))
                       : ConvertUTF8ToUTF32(bytes, count, static_cast<uint32_t *>(buffer));
    Adopt(view, buffer, static_cast<int32_t>(written));
    failed = false;
}

void rbText::UTF32FromUTF16() {
    if (Debugging()) DebugLogText("Try UTF16 to UTF32 conversion...");
    if (lengths[kUTF16] < 0) MakeView(kUTF16);
    SetEmpty(kUTF32);
    const int32_t length = lengths[kUTF16];
    if (length < 1) return;
    void *buffer = AllocateUnits(4, length, 16);
    if (!buffer) {
        FreeOwned(kUTF32);
        return;
    }
    const std::size_t written =
        ConvertUTF16ToUTF32(static_cast<const uint16_t *>(views[kUTF16]),
                            static_cast<std::size_t>(length), static_cast<uint32_t *>(buffer));
    Adopt(kUTF32, buffer, static_cast<int32_t>(written));
    failed = false;
}

// A buffer to rewrite the view into; without memory the view ends empty.
void *rbText::ReplacementBuffer(View view, int32_t length) {
    void *buffer = AllocateUnits(Unit(view), length, 4);
    if (!buffer) {
        if (Debugging()) DebugLogText("Out of memory");
        FreeOwned(view);
        SetEmpty(view);
    }
    return buffer;
}

void rbText::EnsureTerminated(View view) {
    const void *data = views[view];
    const int32_t length = lengths[view];
    const int unit = Unit(view);
    // Empty views too: every view ends with a zero unit.
    if (!data || length < 0 || UnitAt(data, unit, static_cast<std::size_t>(length)) == 0) return;
    if (Debugging()) DebugLogText("String is not zero terminated. Fixed.");
    void *buffer = ReplacementBuffer(view, length);
    if (!buffer) return;
    std::memcpy(buffer, data, static_cast<std::size_t>(length) * static_cast<std::size_t>(unit));
    Adopt(view, buffer, length);
}

void rbText::SwapForeignByteOrder(View view) {
    const int unit = Unit(view);
    const uint32_t foreignMark = unit == 2 ? 0xFFFEu : 0xFFFE0000u;
    const void *data = views[view];
    const int32_t length = lengths[view];
    if (!data || length < 1 || UnitAt(data, unit, 0) != foreignMark) return;
    if (Debugging()) DebugLogText("String is Little Endian. Swap.");
    void *buffer = ReplacementBuffer(view, length);
    if (!buffer) return;
    const auto *from = static_cast<const uint8_t *>(data);
    auto *to = static_cast<uint8_t *>(buffer);
    for (int32_t i = 0; i < length; ++i) {
        std::reverse_copy(from + i * unit, from + (i + 1) * unit, to + i * unit);
    }
    Adopt(view, buffer, length);
}

void rbText::SkipByteOrderMarks(View view) {
    const int unit = Unit(view);
    for (uint32_t mark : {0xFEFFu, 0xFFFEu}) {
        if (lengths[view] <= 0 || UnitAt(views[view], unit, 0) != mark) return;
        views[view] = static_cast<const uint8_t *>(views[view]) + unit;
        --lengths[view];
    }
}

void rbText::SetEmpty(View view) {
    views[view] = &kEmptyUnit;
    lengths[view] = 0;
}

void rbText::Adopt(View view, void *buffer, int32_t length) {
    FreeMemory(ownedBuffers[view]);
    ownedBuffers[view] = buffer;
    views[view] = buffer;
    lengths[view] = length;
}

void rbText::FreeOwned(View view) {
    FreeMemory(ownedBuffers[view]);
    ownedBuffers[view] = nullptr;
}

rbText *NewText(REALstring s) {
    try {
        return new rbText(s);
    } catch (...) {
        if (Debugging()) DebugLogText("Failed to allocate text object.");
        return nullptr;
    }
}

void AddTextChain(rbText **head, rbText *text) {
    if (!head || !text) return;
    if (!text->next) {
        text->next = *head;
    } else if (Debugging()) {
        DebugLogText("Warning: Next already set!");
    }
    *head = text;
}

void FreeTextChain(rbText *head) {
    while (head) {
        rbText *following = head->next;
        delete head;
        head = following;
    }
}

bool IsASCIIString(REALstring s) {
    rbData holder(s);
    return !holder.data || std::none_of(holder.data, holder.data + holder.size,
                                        [](uint8_t b) { return b >= 0x80; });
}

REALstring OSTypeToString(uint32_t code) {
    const uint8_t bytes[4] = {static_cast<uint8_t>(code >> 24), static_cast<uint8_t>(code >> 16),
                              static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code)};
    const bool ascii = (code & 0x80808080u) == 0;
    return REALBuildUnicodeString(bytes, 4,
                                  ascii ? hostabi::kEncodingASCII : hostabi::kEncodingMacRoman);
}

uint32_t StringToOSType(REALstring string) {
    rbText text(string);
    const auto *bytes = static_cast<const uint8_t *>(text.Data(rbText::kMacRoman));
    const int32_t length = text.Length(rbText::kMacRoman);
    // Shorter strings keep what they have, first byte highest, and blanks
    // fill the rest: "ab" reads as 'ab  '.
    uint32_t code = 0x20202020;
    for (int32_t i = 0; i < std::min(length, 4); ++i) {
        const int shift = 24 - 8 * i;
        code = (code & ~(0xFFu << shift)) | (uint32_t{bytes[i]} << shift);
    }
    return code;
}

void DebugLogString(REALstring s) {
    rbText text(s);
    DebugLog("%s%p: %s", kDebugPrefix, static_cast<void *>(s), text.Bytes(rbText::kUTF8));
}

void DebugLogString(const char *caller, REALstring s) {
    rbText text(s);
    DebugLog("%s%s %p: %s", kDebugPrefix, caller, static_cast<void *>(s),
             text.Bytes(rbText::kUTF8));
}

void DebugLogTextValue(const char *caller, REALtext value) {
    void *record = host::PluginGetTextData(value, "utf-8", 1);
    if (!record) {
        DebugLog("%s%s %p and no text", kDebugPrefix, caller, static_cast<void *>(value));
        return;
    }
    const char *utf8 = *static_cast<const char *const *>(record);
    DebugLog("%s%s %p: %s", kDebugPrefix, caller, static_cast<void *>(value), utf8 ? utf8 : "");
    host::PluginDisposeTextData(record);
}

void DebugOutputString(REALstring s) {
    rbText text(s);
    platform::OutputDebugWide(text.UTF16());
}

}  // namespace qvt
