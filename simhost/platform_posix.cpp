#include <dlfcn.h>
#include <iconv.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "simhost/platform.h"

namespace simhost::platform {

namespace {

std::string LastError(const char *fallback) {
    const char *text = dlerror();
    return text != nullptr ? text : fallback;
}

}  // namespace

void *OpenLibrary(const std::string &path, std::string &error) {
    dlerror();
    // A host never unloads a plug-in, which keeps memory handed over at the
    // load; staying mapped also lets a leak checker name the plug-in's code.
    void *library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) error = LastError("cannot open the library");
    return library;
}

void *FindSymbol(void *library, const char *name, std::string &error) {
    dlerror();
    void *symbol = dlsym(library, name);
    if (symbol == nullptr) error = LastError("symbol not found");
    return symbol;
}

void CloseLibrary(void *library) { dlclose(library); }

bool Transcode(const char *from, const char *to, std::string_view in, std::size_t unit,
               std::string_view replacement, std::string &out) {
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    out.clear();
    char *inp = const_cast<char *>(in.data());
    std::size_t inLeft = in.size();
    std::string buffer(in.size() * 4 + 16, '\0');
    bool ok = true;
    for (;;) {
        char *outp = buffer.data();
        std::size_t outLeft = buffer.size();
        std::size_t r = iconv(cd, &inp, &inLeft, &outp, &outLeft);
        int error = errno;
        out.append(buffer.data(), static_cast<std::size_t>(outp - buffer.data()));
        if (r != static_cast<std::size_t>(-1)) break;
        if (error == E2BIG) continue;
        if (error != EILSEQ && error != EINVAL) {
            ok = false;
            break;
        }
        out += replacement;
        std::size_t skip = error == EINVAL ? inLeft : std::min(unit, inLeft);
        inp += skip;
        inLeft -= skip;
        if (inLeft == 0) break;
    }
    iconv_close(cd);
    return ok;
}

void SetEnvironment(const char *name, const char *value) {
    if (value != nullptr) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
}

void *ReserveAddressSpace(std::size_t bytes) {
    if constexpr (sizeof(void *) < 8) return nullptr;
    void *base = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return base == MAP_FAILED ? nullptr : base;
}

bool CommitAddressRange(void *at, std::size_t bytes) {
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto first = reinterpret_cast<uintptr_t>(at) / page * page;
    const auto end = (reinterpret_cast<uintptr_t>(at) + bytes + page - 1) / page * page;
    return mprotect(reinterpret_cast<void *>(first), end - first, PROT_READ | PROT_WRITE) == 0;
}

void ReleaseAddressSpace(void *base, std::size_t bytes) {
    if (base != nullptr) munmap(base, bytes);
}

std::size_t PageSize() {
    static const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return page;
}

void *MapPages(std::size_t bytes) {
    void *base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return base == MAP_FAILED ? nullptr : base;
}

bool FencePages(void *at, std::size_t bytes) { return mprotect(at, bytes, PROT_NONE) == 0; }

void UnmapPages(void *base, std::size_t bytes) {
    if (base != nullptr) munmap(base, bytes);
}

void AdviseLargePages([[maybe_unused]] void *at, [[maybe_unused]] std::size_t bytes) {
#if defined(MADV_HUGEPAGE)
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto first = (reinterpret_cast<uintptr_t>(at) + page - 1) / page * page;
    const auto end = (reinterpret_cast<uintptr_t>(at) + bytes) / page * page;
    if (end > first) madvise(reinterpret_cast<void *>(first), end - first, MADV_HUGEPAGE);
#endif
}

}  // namespace simhost::platform
