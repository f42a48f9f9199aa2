// rbText wraps one host string for the span of a call and offers its bytes
// in seven encodings, each made on first request. Beside it: text chains,
// four-character codes, and the log forms that print host strings.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

using REALtext = struct REALtextOpaque *;

namespace qvt {

struct rbText {
    enum View : int {
        kWindowsLatin1, kMacRoman, kASCII, kUTF8, kLatin1, kUTF16, kUTF32,
        kViewCount
    };

    // What is known of the string.
    enum Kind : int32_t {
        kUnknownEncoding = 0,
        kASCIIText = 1,  // the five 8-bit views share one run of bytes
        kEightBitUnchecked = 2,
        kWideOrNotASCII = 3,
    };

    static constexpr uint32_t kCheckWord = 0x51565454;  // "QVTT"

    explicit rbText(REALstring s = nullptr);
    ~rbText();
    rbText(const rbText &) = delete;
    rbText &operator=(const rbText &) = delete;

    // The view, made if it wasn't; an empty view is its zero unit, never null.
    const void *Data(View view);
    // The same, but null unless the view has at least one unit.
    const void *DataOrNull(View view);
    // In units of the view.
    int32_t Length(View view);

    const char *Bytes(View view) { return static_cast<const char *>(Data(view)); }
    const uint16_t *UTF16() { return static_cast<const uint16_t *>(Data(kUTF16)); }
    const uint32_t *UTF32() { return static_cast<const uint32_t *>(Data(kUTF32)); }

    // Locks the new string and unlocks the old; the views stay as they are.
    void SetString(REALstring s);
    // Keeps an earlier `next`, with a warning.
    void SetNext(rbText *text);
    // The string's own bytes become the five 8-bit views.
    void TreatAsASCII();

    uint32_t check1;
    REALstring string;
    REALstring spareStrings[kViewCount];
    int32_t lengths[kViewCount];
    const void *views[kViewCount];
    void *ownedBuffers[kViewCount];
    REALstringData stringData[kViewCount];
    bool hasStringData[kViewCount];
    bool failed;
    uint32_t encoding;
    int32_t kind;
    rbText *next;
    uint32_t check2;

private:
    void ResetToInitialState();
    void Prepare(View view);
    void MakeView(View view);
    void MakeWideView(View view);
    void RunASCIITest();
    void ShareStringBytesAsASCII();
    void TakeStringBytes(View view);
    void FallBackToWindowsLatin1();
    bool FetchStringData(View view);
    void WidenASCII(View view);
    void DecodeUTF8Into(View view);
    void UTF32FromUTF16();
    void *ReplacementBuffer(View view, int32_t length);
    void EnsureTerminated(View view);
    void SwapForeignByteOrder(View view);
    void SkipByteOrderMarks(View view);
    void SetEmpty(View view);
    void Adopt(View view, void *buffer, int32_t length);
    void FreeOwned(View view);
};

// A heap wrapper; null, logged when debugging, if it cannot be made.
rbText *NewText(REALstring s);
// The wrapper becomes the head; it takes the old head as its `next` unless
// it has one already.
void AddTextChain(rbText **head, rbText *text);
// Destroys and deletes every wrapper of the chain.
void FreeTextChain(rbText *head);

// True unless a byte is 0x80 or above; nil and empty strings are ASCII.
bool IsASCIIString(REALstring s);

// A four-character code has its first character in the highest byte.
// A string carrying one reference, or nil.
REALstring OSTypeToString(uint32_t code);
uint32_t StringToOSType(REALstring string);

// Log lines that print a host value after the prefix: "%s%p: %s" for a
// string alone, "%s%s %p: %s" after the caller's text; a Text value the host
// gives no text for reads "%s%s %p and no text".
void DebugLogString(REALstring s);
void DebugLogString(const char *text, REALstring s);
void DebugLogTextValue(const char *text, REALtext value);
// The string's UTF-16 view to the wide debugger channel: no prefix, and
// whatever the debug flag says.
void DebugOutputString(REALstring s);

}  // namespace qvt
