#include "guard.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>
#include <vector>

#include "format.h"
#include "outcome.h"
#include "values.h"
#include "simhost/simhost.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>
#endif

namespace qvthost {

namespace {

// Read by the fault handler: fixed storage only, filled before a call.
struct Watched {
    char label[sizeof(Fault::label)];
    uintptr_t start;
    uint64_t size;
};
constexpr std::size_t kMostWatched = 64;
Watched gWatched[kMostWatched];
volatile std::size_t gWatchedCount = 0;
Fault gState;

std::vector<simhost::BlockExtent> gExtents;

void Name(Fault &fault, const char *label, std::size_t length, uint64_t size, int64_t offset) {
    fault.inBlock = true;
    std::memset(fault.label, 0, sizeof fault.label);
    std::memcpy(fault.label, label, std::min(length, sizeof fault.label - 1));
    fault.size = size;
    fault.offset = offset;
}

// The host's block whose bytes, guard zone or fence hold the address, by its
// label when it is watched; else the nearest watched block. Neither locks nor
// allocates.
void Locate(Fault &fault) {
    const auto address = static_cast<uintptr_t>(fault.address);
    if (const simhost::BlockExtent *extent =
            simhost::FindExtent(gExtents, reinterpret_cast<const void *>(address))) {
        const auto begin = reinterpret_cast<uintptr_t>(extent->begin);
        const std::string &name = extent->name;
        Name(fault, name.data(), name.size(), static_cast<uint64_t>(extent->size),
             static_cast<int64_t>(address - begin));
        for (std::size_t i = 0; i < gWatchedCount; ++i) {
            const Watched &w = gWatched[i];
            if (w.start != begin) continue;
            Name(fault, w.label, sizeof w.label, w.size, fault.offset);
            break;
        }
        return;
    }
    uint64_t best = ~uint64_t{0};
    for (std::size_t i = 0; i < gWatchedCount; ++i) {
        const Watched &w = gWatched[i];
        const uintptr_t at = static_cast<uintptr_t>(fault.address), end = w.start + w.size;
        const uint64_t distance = at < w.start ? w.start - at : at >= end ? at - end + 1 : 0;
        // Past the fences only an offset far past the end lands: told against the
        // block of the call it is nearest.
        if (distance > kLargestBlock || distance >= best) continue;
        best = distance;
        Name(fault, w.label, sizeof w.label, w.size, static_cast<int64_t>(at - w.start));
    }
}

const char *SignalName(int cause) {
    switch (cause) {
    case Fault::kOutOfMemory:
        return "out of memory";
    case SIGSEGV:
        return "SIGSEGV";
    case SIGABRT:
        return "abort";
    case SIGILL:
        return "SIGILL";
    case SIGFPE:
        return "SIGFPE";
#ifdef SIGBUS
    case SIGBUS:
        return "SIGBUS";
#endif
    default:
        return nullptr;
    }
}

#if defined(_WIN32)

const std::function<void(const Fault &)> *gReport = nullptr;

[[noreturn]] void Finish(const Fault &fault) {
    std::cout.flush();
    (*gReport)(fault);
    std::cout.flush();
    std::fflush(nullptr);
    _exit(kFaults);
}

LONG CALLBACK OnException(EXCEPTION_POINTERS *pointers) {
    const EXCEPTION_RECORD &record = *pointers->ExceptionRecord;
    Fault fault = gState;
    switch (record.ExceptionCode) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_IN_PAGE_ERROR:
        fault.cause = SIGSEGV;
        fault.addressKnown = record.NumberParameters >= 2;
        fault.access = record.ExceptionInformation[0] == 0   ? Access::Read
                       : record.ExceptionInformation[0] == 1 ? Access::Write
                                                             : Access::Unknown;
        fault.address = record.ExceptionInformation[1];
        Locate(fault);
        break;
    case EXCEPTION_STACK_OVERFLOW:
        fault.cause = SIGSEGV;
        break;
    case EXCEPTION_ILLEGAL_INSTRUCTION:
        fault.cause = SIGILL;
        break;
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
        fault.cause = SIGFPE;
        break;
    default:
        return EXCEPTION_CONTINUE_SEARCH;
    }
    Finish(fault);
}

void OnAbort(int) {
    Fault fault = gState;
    fault.cause = SIGABRT;
    Finish(fault);
}

#else

int gPipe = -1;
alignas(16) char gAlternateStack[1 << 16];

Access AccessOf([[maybe_unused]] const void *context) {
#if defined(__linux__) && (defined(__x86_64__) || defined(__i386__))
    // The page-fault error code: bit 1 is set for a write.
    const auto *machine = &static_cast<const ucontext_t *>(context)->uc_mcontext;
    return (machine->gregs[REG_ERR] & 2) != 0 ? Access::Write : Access::Read;
#else
    return Access::Unknown;
#endif
}

void Send(const Fault &fault) {
    const char *at = reinterpret_cast<const char *>(&fault);
    std::size_t left = sizeof fault;
    while (left > 0) {
        const ssize_t wrote = write(gPipe, at, left);
        if (wrote <= 0) return;
        at += wrote;
        left -= static_cast<std::size_t>(wrote);
    }
}

void OnSignal(int signal, siginfo_t *info, void *context) {
    Fault fault = gState;
    fault.cause = signal;
    if (signal == SIGSEGV || signal == SIGBUS) {
        fault.addressKnown = true;
        fault.address = reinterpret_cast<uintptr_t>(info->si_addr);
        fault.access = AccessOf(context);
        Locate(fault);
    }
    Send(fault);
    _exit(kFaults);
}

void InstallHandlers() {
    stack_t stack{};
    stack.ss_sp = gAlternateStack;
    stack.ss_size = sizeof gAlternateStack;
    sigaltstack(&stack, nullptr);
    struct sigaction action {};
    action.sa_sigaction = OnSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGILL, SIGFPE}) sigaction(signal, &action, nullptr);
}

#endif

}  // namespace

std::string Describe(const Fault &fault) {
    const char *name = SignalName(fault.cause);
    std::string text = "host fault (" +
                       (name != nullptr ? std::string(name)
                                        : "signal " + std::to_string(fault.cause)) +
                       ")";
    if (fault.cause == Fault::kOutOfMemory) return text + ": an allocation failed";
    if (fault.cause == SIGABRT) return text + ": the call ended in abort()";
    if (!fault.addressKnown) return text;
    const std::string access = fault.access == Access::Read    ? "read"
                               : fault.access == Access::Write ? "write"
                                                               : "access";
    if (!fault.inBlock) {
        char address[32];
        std::snprintf(address, sizeof address, "0x%llX",
                      static_cast<unsigned long long>(fault.address));
        return text + ": " + access + " at " + address + ", in no block of the call";
    }
    const char *end = std::find(fault.label, fault.label + sizeof fault.label, '\0');
    const std::string block = std::string(fault.label, end) +
                              " (" + Counted(fault.size, "byte") + ")";
    const auto size = static_cast<int64_t>(fault.size);
    const std::string where =
        fault.offset < 0
            ? Counted(static_cast<std::size_t>(-fault.offset), "byte") + " before the start of "
        : fault.offset >= size
            ? Counted(static_cast<std::size_t>(fault.offset - size + 1), "byte") +
                  " past the end of "
            : "inside ";
    return text + ": " + access + " " + where + block + ", at offset " +
           std::to_string(fault.offset);
}

void PrintFault(std::ostream &out, const Fault &fault, bool json) {
    const LineOutcome outcome{kFaults, Describe(fault)};
    if (json) {
        if (fault.listOpen) out << (fault.printed != 0 ? ",\n" : "\n");
        out << Json(outcome, fault.line, false) << (fault.listOpen ? "\n]\n" : "\n");
    } else {
        if (fault.printed != 0) out << "\n";
        PrintText(out, outcome, fault.line, false);
    }
    out.flush();
}

void Watch(const std::string &label, const void *start, std::size_t size) {
    const std::size_t count = gWatchedCount;
    if (count == kMostWatched) return;
    Watched &w = gWatched[count];
    std::memset(w.label, 0, sizeof w.label);
    std::memcpy(w.label, label.data(), std::min(label.size(), sizeof w.label - 1));
    w.start = reinterpret_cast<uintptr_t>(start);
    w.size = size;
    gWatchedCount = count + 1;
}

void WatchHostBlocks() {
    gExtents = simhost::LiveBlockExtents();
}

void Unwatch() {
    gWatchedCount = 0;
    gExtents.clear();
}

void AtLine(std::size_t line, std::size_t printed, bool listOpen) {
    // What is printed must be out before a fault can cut the process short.
    std::cout.flush();
    gState.line = line;
    gState.printed = printed;
    gState.listOpen = listOpen;
}

int Guarded(const std::function<int()> &body, const std::function<void(const Fault &)> &report) {
    std::cout.flush();
#if defined(_WIN32)
    gReport = &report;
    std::signal(SIGABRT, OnAbort);
    AddVectoredExceptionHandler(1, OnException);
    try {
        return body();
    } catch (const std::bad_alloc &) {
        Fault fault = gState;
        fault.cause = Fault::kOutOfMemory;
        report(fault);
        return kFaults;
    }
#else
    int ends[2];
    if (pipe(ends) != 0) {
        std::perror("qvthost: pipe");
        return kFaults;
    }
    const pid_t child = fork();
    if (child < 0) {
        std::perror("qvthost: fork");
        return kFaults;
    }
    if (child == 0) {
        close(ends[0]);
        gPipe = ends[1];
        InstallHandlers();
        int status = kFaults;
        try {
            status = body();
        } catch (const std::bad_alloc &) {
            Fault fault = gState;
            fault.cause = Fault::kOutOfMemory;
            Send(fault);
        }
        std::cout.flush();
        std::cerr.flush();
        _exit(status);
    }
    close(ends[1]);
    Fault fault;
    std::size_t got = 0;
    for (ssize_t n; got < sizeof fault &&
                    (n = read(ends[0], reinterpret_cast<char *>(&fault) + got, sizeof fault - got)) != 0;) {
        if (n > 0) got += static_cast<std::size_t>(n);
        if (n < 0 && errno != EINTR) break;
    }
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (got == sizeof fault) {
        report(fault);
        return kFaults;
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    // Ended by a signal no handler sees (SIGKILL, or one sent from outside).
    fault = gState;
    fault.cause = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    report(fault);
    return kFaults;
#endif
}

}  // namespace qvthost
