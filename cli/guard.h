// Runs what may fault (the plug-in's calls trust their caller with ranges)
// so that a fault becomes a report and an exit status, never a signal that
// ends the tool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

namespace qvthost {

enum class Access : uint8_t { Unknown, Read, Write };

// What a fault left behind; plain data, written from a signal handler.
struct Fault {
    static constexpr int kOutOfMemory = -1;
    int cause = 0;  // a signal number, or kOutOfMemory
    Access access = Access::Unknown;
    bool addressKnown = false;
    uint64_t address = 0;
    bool inBlock = false;  // the address is at or near a watched block
    char label[48] = {};
    uint64_t size = 0;
    int64_t offset = 0;  // from the block's first byte
    // Where the output stood: the script line running (0 for none), the
    // lines already printed, and whether a JSON list is open.
    std::size_t line = 0;
    std::size_t printed = 0;
    bool listOpen = false;
};

// "host fault (SIGSEGV): read 1 byte past the end of self (8 bytes), at offset 8".
std::string Describe(const Fault &fault);
// The fault as the output's last entry: after the lines printed, and closing
// an open JSON list.
void PrintFault(std::ostream &out, const Fault &fault, bool json);

// Blocks a fault address is told against, until Unwatch; `label` is how the
// report names the block.
void Watch(const std::string &label, const void *start, std::size_t size);
// Every live block of the host, named as the host names them, for a fault
// in one the call did not name.
void WatchHostBlocks();
void Unwatch();
// The output's state, for a report written after a fault.
void AtLine(std::size_t line, std::size_t printed, bool listOpen);

// Runs `body`, whose result is the exit status. On a fault (a signal, an
// abort, an allocation that fails), `report` shows it and the status is 3.
// POSIX: `body` runs in a child process with a fault handler; Windows: in
// this process under a vectored exception handler.
int Guarded(const std::function<int()> &body, const std::function<void(const Fault &)> &report);

}  // namespace qvthost
