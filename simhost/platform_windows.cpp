#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "simhost/platform.h"

namespace simhost::platform {

namespace {

std::wstring Wide(const std::string &utf8) {
    int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), wide.data(), n);
    return wide;
}

std::string LastError(const char *what) {
    return std::string(what) + " (error " + std::to_string(GetLastError()) + ")";
}

}  // namespace

void *OpenLibrary(const std::string &path, std::string &error) {
    HMODULE library = LoadLibraryW(Wide(path).c_str());
    if (library == nullptr) error = LastError("cannot open the library");
    return reinterpret_cast<void *>(library);
}

void *FindSymbol(void *library, const char *name, std::string &error) {
    FARPROC symbol = GetProcAddress(static_cast<HMODULE>(library), name);
    if (symbol == nullptr) error = LastError("symbol not found");
    return reinterpret_cast<void *>(symbol);
}

void CloseLibrary(void *library) { FreeLibrary(static_cast<HMODULE>(library)); }

namespace {

// The Unicode forms are laid out here; everything else is a code page that
// the system converts one character at a time.
enum class Form { kCodePage, kUTF8, kUTF16, kUTF32 };

struct Charset {
    const char *name;
    Form form;
    UINT codePage;
    bool bigEndian;
};

constexpr Charset kCharsets[] = {
    {"UTF-8", Form::kUTF8, CP_UTF8, false},      {"UTF-16LE", Form::kUTF16, 0, false},
    {"UTF-16BE", Form::kUTF16, 0, true},         {"UTF-32LE", Form::kUTF32, 0, false},
    {"UTF-32BE", Form::kUTF32, 0, true},         {"ISO-8859-1", Form::kCodePage, 28591, false},
    {"CP1252", Form::kCodePage, 1252, false},    {"MACINTOSH", Form::kCodePage, 10000, false},
    {"ASCII", Form::kCodePage, 20127, false},
};

const Charset *Find(const char *name) {
    for (const Charset &c : kCharsets) {
        if (std::strcmp(c.name, name) == 0) return &c;
    }
    return nullptr;
}

constexpr int32_t kUnreadable = -1;
constexpr int32_t kCutOff = -2;

uint32_t Unit(const uint8_t *p, std::size_t width, bool bigEndian) {
    uint32_t v = 0;
    for (std::size_t i = 0; i < width; ++i) {
        v |= uint32_t{p[bigEndian ? width - 1 - i : i]} << (8 * i);
    }
    return v;
}

void PutUnit(uint32_t v, std::size_t width, bool bigEndian, std::string &out) {
    for (std::size_t i = 0; i < width; ++i) {
        out += static_cast<char>(v >> (8 * (bigEndian ? width - 1 - i : i)));
    }
}

bool IsScalar(uint32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

int32_t FromWide(const wchar_t *w, int n) {
    if (n == 1) return static_cast<uint16_t>(w[0]);
    return 0x10000 + ((static_cast<int32_t>(w[0]) - 0xD800) << 10) + (w[1] - 0xDC00);
}

// The character at `p`, or kUnreadable, or kCutOff when the input ends
// inside it; `used` is the number of bytes it took.
int32_t Decode(const Charset &c, const uint8_t *p, std::size_t left, std::size_t &used) {
    switch (c.form) {
        case Form::kCodePage: {
            used = 1;
            wchar_t w;
            if (c.codePage == 20127 && *p >= 0x80) return kUnreadable;
            int n = MultiByteToWideChar(c.codePage, MB_ERR_INVALID_CHARS,
                                        reinterpret_cast<const char *>(p), 1, &w, 1);
            return n == 1 ? static_cast<uint16_t>(w) : kUnreadable;
        }
        case Form::kUTF8: {
            used = *p < 0x80 ? 1 : *p >= 0xF0 ? 4 : *p >= 0xE0 ? 3 : 2;
            if (used > left) {
                for (std::size_t i = 1; i < left; ++i) {
                    if ((p[i] & 0xC0) != 0x80) return kUnreadable;
                }
                return *p >= 0xC2 && *p <= 0xF4 ? kCutOff : kUnreadable;
            }
            wchar_t w[2];
            int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS,
                                        reinterpret_cast<const char *>(p), static_cast<int>(used),
                                        w, 2);
            return n > 0 ? FromWide(w, n) : kUnreadable;
        }
        case Form::kUTF16: {
            used = 2;
            if (left < 2) return kCutOff;
            uint32_t u = Unit(p, 2, c.bigEndian);
            if (u >= 0xDC00 && u <= 0xDFFF) return kUnreadable;
            if (u < 0xD800 || u > 0xDBFF) return static_cast<int32_t>(u);
            if (left < 4) return kCutOff;
            uint32_t low = Unit(p + 2, 2, c.bigEndian);
            if (low < 0xDC00 || low > 0xDFFF) return kUnreadable;
            used = 4;
            return static_cast<int32_t>(0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
        }
        case Form::kUTF32: {
            used = 4;
            if (left < 4) return kCutOff;
            uint32_t u = Unit(p, 4, c.bigEndian);
            return IsScalar(u) ? static_cast<int32_t>(u) : kUnreadable;
        }
    }
    return kUnreadable;
}

bool Encode(const Charset &c, uint32_t code, std::string &out) {
    wchar_t w[2];
    int n = 1;
    if (code >= 0x10000) {
        w[0] = static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
        w[1] = static_cast<wchar_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
        n = 2;
    } else {
        w[0] = static_cast<wchar_t>(code);
    }
    char bytes[8];
    switch (c.form) {
        case Form::kCodePage: {
            BOOL usedDefault = FALSE;
            if (c.codePage == 20127 && code >= 0x80) return false;
            int k = WideCharToMultiByte(c.codePage, WC_NO_BEST_FIT_CHARS, w, n, bytes,
                                        sizeof bytes, nullptr, &usedDefault);
            if (k <= 0 || usedDefault) return false;
            out.append(bytes, static_cast<std::size_t>(k));
            return true;
        }
        case Form::kUTF8: {
            int k = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, w, n, bytes, sizeof bytes,
                                        nullptr, nullptr);
            if (k <= 0) return false;
            out.append(bytes, static_cast<std::size_t>(k));
            return true;
        }
        case Form::kUTF16:
            for (int i = 0; i < n; ++i) PutUnit(static_cast<uint16_t>(w[i]), 2, c.bigEndian, out);
            return true;
        case Form::kUTF32: PutUnit(code, 4, c.bigEndian, out); return true;
    }
    return false;
}

}  // namespace

bool Transcode(const char *from, const char *to, std::string_view in, std::size_t unit,
               std::string_view replacement, std::string &out) {
    const Charset *source = Find(from);
    const Charset *target = Find(to);
    if (source == nullptr || target == nullptr) return false;
    out.clear();
    const auto *p = reinterpret_cast<const uint8_t *>(in.data());
    std::size_t left = in.size();
    while (left > 0) {
        std::size_t used = 0;
        int32_t code = Decode(*source, p, left, used);
        if (code == kCutOff) {
            out += replacement;
            break;
        }
        if (code == kUnreadable) {
            used = std::min(unit, left);
            out += replacement;
        } else if (!Encode(*target, static_cast<uint32_t>(code), out)) {
            out += replacement;
        }
        p += used;
        left -= used;
    }
    return true;
}

// The C runtime's own environment, the one getenv reads; an empty value
// removes the variable.
void SetEnvironment(const char *name, const char *value) {
    _putenv_s(name, value != nullptr ? value : "");
}

namespace {

// OutputDebugString raises these for a debugger; a vectored handler sees
// them before the system's own, which drops them when none listens.
constexpr DWORD kPrint = 0x40010006;      // DBG_PRINTEXCEPTION_C
constexpr DWORD kPrintWide = 0x4001000A;  // DBG_PRINTEXCEPTION_WIDE_C

struct Capture {
    std::mutex mutex;
    PVOID handler = nullptr;
    std::string text;
};

Capture &TheCapture() {
    static Capture capture;
    return capture;
}

LONG CALLBACK Catch(EXCEPTION_POINTERS *info) {
    const EXCEPTION_RECORD &e = *info->ExceptionRecord;
    if ((e.ExceptionCode != kPrint && e.ExceptionCode != kPrintWide) || e.NumberParameters < 2)
        return EXCEPTION_CONTINUE_SEARCH;
    Capture &c = TheCapture();
    std::lock_guard lock(c.mutex);
    if (e.ExceptionCode == kPrint) {
        c.text += reinterpret_cast<const char *>(e.ExceptionInformation[1]);
    } else {
        c.text += AnsiText(reinterpret_cast<const char16_t *>(e.ExceptionInformation[1]));
    }
    c.text += '\n';
    return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

std::string AnsiText(std::u16string_view text) {
    const auto *wide = reinterpret_cast<const wchar_t *>(text.data());
    const int length = static_cast<int>(text.size());
    int n = WideCharToMultiByte(CP_ACP, 0, wide, length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(n > 0 ? n : 0), '\0');
    WideCharToMultiByte(CP_ACP, 0, wide, length, narrow.data(), n, nullptr, nullptr);
    return narrow;
}

void *ReserveAddressSpace(std::size_t) { return nullptr; }
bool CommitAddressRange(void *, std::size_t) { return false; }
void ReleaseAddressSpace(void *, std::size_t) {}

std::size_t PageSize() {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
}

void *MapPages(std::size_t bytes) {
    return VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

bool FencePages(void *at, std::size_t bytes) {
    DWORD was = 0;
    return VirtualProtect(at, bytes, PAGE_NOACCESS, &was) != 0;
}

void UnmapPages(void *base, std::size_t) {
    if (base != nullptr) VirtualFree(base, 0, MEM_RELEASE);
}

void AdviseLargePages(void *, std::size_t) {}

void StartDebuggerCapture() {
    Capture &c = TheCapture();
    std::lock_guard lock(c.mutex);
    c.text.clear();
    if (c.handler == nullptr) c.handler = AddVectoredExceptionHandler(1, &Catch);
}

std::string TakeDebuggerCapture() {
    Capture &c = TheCapture();
    PVOID handler;
    {
        std::lock_guard lock(c.mutex);
        handler = c.handler;
        c.handler = nullptr;
    }
    if (handler != nullptr) RemoveVectoredExceptionHandler(handler);
    std::lock_guard lock(c.mutex);
    return std::move(c.text);
}

}  // namespace simhost::platform
