#include "diagnostics/debugger_channel.h"

#include <cstring>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/uio.h>
#include <unistd.h>
#endif

namespace qvt::platform {

#if defined(_WIN32)

void OutputDebugLine(const char *line) { OutputDebugStringA(line); }

#else

void OutputDebugLine(const char *line) {
    // One writev keeps a line whole when several threads log at once.
    char newline = '\n';
    iovec parts[2] = {{const_cast<char *>(line), std::strlen(line)}, {&newline, 1}};
    ssize_t written = writev(STDERR_FILENO, parts, 2);
    (void)written;
}

#endif

}  // namespace qvt::platform
