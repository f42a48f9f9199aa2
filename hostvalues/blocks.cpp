#include "hostvalues/blocks.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "diagnostics/debuglog.h"
#include "hostvalues/raise.h"
#include "shell/binding.h"

namespace qvt {

namespace {

void RaiseNoBlock(int64_t size) {
    char message[200] = {};
    std::snprintf(message, sizeof message, "Failed to allocate a memoryblock with %lld bytes in size.",
                  static_cast<long long>(size));
    RaiseException("OutOfMemoryException", message, hostabi::kEncodingASCII);
}

}  // namespace

void *GetBlockPtr(REALobject block) { return block ? host::memoryBlockGetPtr(block) : nullptr; }

int64_t GetBlockSize(REALobject block) { return block ? host::memoryBlockGetSize(block) : 0; }

REALobject NewBlock(int64_t size) {
    if (size < 0 || size > kLargestBlockSize) return nullptr;
    return host::newMemoryBlock(static_cast<RBInteger>(size));
}

REALobject WrapPtr(const void *memory) {
    return memory ? host::PtrToMemoryBlock(memory) : nullptr;
}

REALobject REALBuildMemoryblock(const void *source, int64_t size) {
    if (!source || size <= 0) return nullptr;
    // Outside the guard, so a block already made is given back whatever
    // fails after it.
    REALobject block = nullptr;
    try {
        block = NewBlock(size);
        if (block) {
            if (void *target = GetBlockPtr(block)) {
                std::memcpy(target, source, static_cast<std::size_t>(size));
                return block;
            }
            REALobject memoryless = block;
            block = nullptr;
            host::REALUnlockObject(memoryless);
        }
        if (Debugging()) DebugLogInt64("Error: Failed to allocate memoryblock", size);
        RaiseNoBlock(size);
    } catch (const std::bad_alloc &failure) {
        if (block) host::REALUnlockObject(block);
        if (Debugging()) DebugLogStrings("Got C++ exception in REALBuildMemoryblock: ", failure.what());
        RaiseNoBlock(size);
    }
    return nullptr;
}

}  // namespace qvt
