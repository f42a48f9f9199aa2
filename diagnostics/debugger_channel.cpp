#include "diagnostics/debugger_channel.h"

#include <cstring>
#include <string>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/uio.h>
#include <unistd.h>
#endif

namespace qvt::platform {

#if defined(_WIN32)

void OutputDebugLine(const char *line) { OutputDebugStringA(line); }

static_assert(sizeof(wchar_t) == sizeof(uint16_t));
void OutputDebugWide(const uint16_t *text) {
    if (text) OutputDebugStringW(reinterpret_cast<const wchar_t *>(text));
}

#else

void OutputDebugLine(const char *line) {
    // One writev keeps a line whole when several threads log at once.
    char newline = '\n';
    iovec parts[2] = {{const_cast<char *>(line), std::strlen(line)}, {&newline, 1}};
    ssize_t written = writev(STDERR_FILENO, parts, 2);
    (void)written;
}

void OutputDebugWide(const uint16_t *text) {
    std::string line;
    for (const uint16_t *at = text; at && *at; ++at) {
        uint32_t c = *at;
        if (c >= 0xD800 && c <= 0xDBFF && at[1] >= 0xDC00 && at[1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (*++at - 0xDC00u);
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            line += static_cast<char>(c);
        } else if (c < 0x800) {
            line += static_cast<char>(0xC0 | (c >> 6));
            line += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            line += static_cast<char>(0xE0 | (c >> 12));
            line += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            line += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            line += static_cast<char>(0xF0 | (c >> 18));
            line += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            line += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            line += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    OutputDebugLine(line.c_str());
}

#endif

}  // namespace qvt::platform
