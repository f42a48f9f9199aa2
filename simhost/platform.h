// What the simulated host and its users need of the operating system:
// shared libraries, text conversion, the environment and pages.
// platform_posix.cpp (dlopen, iconv, mmap) and platform_windows.cpp
// (LoadLibrary, MultiByteToWideChar, VirtualAlloc) implement it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace simhost::platform {

// Null when the library cannot be opened or has no such symbol, `error`
// saying why.
void *OpenLibrary(const std::string &path, std::string &error);
void *FindSymbol(void *library, const char *name, std::string &error);
void CloseLibrary(void *library);

// Converts `in` between two character sets named as iconv names them
// (UTF-8, UTF-16LE/BE, UTF-32LE/BE, ISO-8859-1, CP1252, MACINTOSH, ASCII).
// A unit of `unit` input bytes that cannot be read, or a character that the
// target lacks, becomes `replacement` and is stepped over; a cut-off
// sequence at the end becomes one `replacement`. False for an unknown name.
bool Transcode(const char *from, const char *to, std::string_view in, std::size_t unit,
               std::string_view replacement, std::string &out);

// Sets a variable of this process's environment, or removes it for nil.
void SetEnvironment(const char *name, const char *value);

// Address space with no memory behind it, reserved whole and made usable a
// range at a time (rounded out to pages), so a block can reach past 4 GiB
// while costing a few pages. Null and false where the platform offers none
// here: Windows and 32-bit builds.
void *ReserveAddressSpace(std::size_t bytes);
bool CommitAddressRange(void *at, std::size_t bytes);
void ReleaseAddressSpace(void *base, std::size_t bytes);

// Whole pages for a fenced block: zeroed and readable and writable when
// mapped, null when there are none; FencePages makes a run of them
// inaccessible (PROT_NONE, PAGE_NOACCESS).
std::size_t PageSize();
void *MapPages(std::size_t bytes);
bool FencePages(void *at, std::size_t bytes);
void UnmapPages(void *base, std::size_t bytes);

// Asks for large pages behind the whole pages of a range, as allocators do
// for large arrays: far fewer page faults and TLB misses on blocks of
// megabytes. A hint, ignored where the platform has none.
void AdviseLargePages(void *at, std::size_t bytes);

#if defined(_WIN32)
// The debugger channel (OutputDebugString) reaches a debugger, not standard
// error. This stands in for one until Take: each line kept as it came, with
// the "\n" that the channel adds elsewhere. A wide line is kept in the ANSI
// code page (AnsiText), as a listener of narrow lines receives it.
void StartDebuggerCapture();
std::string TakeDebuggerCapture();
std::string AnsiText(std::u16string_view text);
#endif

}  // namespace simhost::platform
