// Memory blocks: owned (zeroed, fenced by guard bytes), foreign (over memory
// of unknown size) and memoryless.
#include <cstring>
#include <utility>

#include "simhost/platform.h"
#include "simhost/state.h"

namespace simhost::detail {

namespace {

constexpr std::size_t kGuard = 16;
constexpr uint8_t kGuardByte = 0xA5;
// Ended blocks keep their memory, so late writes land somewhere harmless;
// only large ones give it back.
constexpr RBInteger kKeptAfterEnd = 1 << 20;
// From here on a block is worth large pages (numpy draws the line here too).
constexpr std::size_t kLargePages = 4 << 20;

bool GuardIntact(const uint8_t *p) {
    for (std::size_t i = 0; i < kGuard; ++i) {
        if (p[i] != kGuardByte) return false;
    }
    return true;
}

}  // namespace

std::unique_ptr<uint8_t, FreeDeleter> NewBlockMemory(RBInteger size) {
    if (size < 0) return nullptr;
    auto total = static_cast<std::size_t>(size) + 2 * kGuard;
    // calloc: large blocks stay untouched, and so cheap, until used.
    std::unique_ptr<uint8_t, FreeDeleter> raw(static_cast<uint8_t *>(std::calloc(total, 1)));
    if (raw == nullptr) return nullptr;
    if (total >= kLargePages) platform::AdviseLargePages(raw.get(), total);
    std::memset(raw.get(), kGuardByte, kGuard);
    std::memset(raw.get() + kGuard + size, kGuardByte, kGuard);
    return raw;
}

void SetBlockMemory(ObjectRecord &block, std::unique_ptr<uint8_t, FreeDeleter> memory,
                    RBInteger size) {
    CheckBlockGuards(block);
    block.storage = std::move(memory);
    block.data = block.storage ? block.storage.get() + kGuard : nullptr;
    block.size = size;
    block.guardsReported = false;
}

ObjectRecord *CreateBlock(RBInteger size) {
    auto memory = NewBlockMemory(size);
    if (memory == nullptr) return nullptr;
    ObjectRecord &block = NewObject(ObjectKind::Block, "MemoryBlock", 0);
    SetBlockMemory(block, std::move(memory), size);
    return &block;
}

ObjectRecord &CreateForeignBlock(void *address) {
    ObjectRecord &block = NewObject(ObjectKind::Block, "MemoryBlock", 0);
    block.data = static_cast<uint8_t *>(address);
    block.size = -1;
    return block;
}

void CheckBlockGuards(ObjectRecord &block) {
    if (!block.storage || block.guardsReported) return;
    const uint8_t *raw = block.storage.get();
    bool before = GuardIntact(raw);
    bool after = GuardIntact(raw + kGuard + block.size);
    if (before && after) return;
    block.guardsReported = true;
    if (!before) Fault(NameOf(&block) + ": bytes written before its start");
    if (!after) Fault(NameOf(&block) + ": bytes written past its end");
}

void EndBlock(ObjectRecord &block) {
    CheckBlockGuards(block);
    if (block.storage && block.size > kKeptAfterEnd) {
        block.storage.reset();
        block.data = nullptr;
    }
}

namespace {

ObjectRecord *UseBlock(const char *entry, REALobject handle) {
    ObjectRecord *o = UseObject(entry, handle);
    if (o != nullptr && o->kind != ObjectKind::Block) {
        Fault(std::string(entry) + ": " + NameOf(o) + " is not a MemoryBlock");
        return nullptr;
    }
    return o;
}

ObjectRecord *FastBlock(REALobject handle) {
    ObjectRecord *o = FastObject(handle);
    return o != nullptr && o->kind == ObjectKind::Block ? o : nullptr;
}

void *memoryBlockGetPtr(REALobject handle) {
    if (ObjectRecord *block = FastBlock(handle)) return block->data;
    HostLock lock(State().mutex);
    CheckPresent("memoryBlockGetPtr");
    LogCall("memoryBlockGetPtr", NameOfObject(handle));
    if (Failing("memoryBlockGetPtr")) return nullptr;
    ObjectRecord *block = UseBlock("memoryBlockGetPtr", handle);
    return block != nullptr ? block->data : nullptr;
}

RBInteger memoryBlockGetSize(REALobject handle) {
    if (ObjectRecord *block = FastBlock(handle)) return block->size;
    HostLock lock(State().mutex);
    CheckPresent("memoryBlockGetSize");
    LogCall("memoryBlockGetSize", NameOfObject(handle));
    ObjectRecord *block = UseBlock("memoryBlockGetSize", handle);
    return block != nullptr ? block->size : 0;
}

REALobject newMemoryBlock(RBInteger size) {
    HostLock lock(State().mutex);
    CheckPresent("newMemoryBlock");
    LogCall("newMemoryBlock", "size=" + std::to_string(size));
    if (Failing("newMemoryBlock")) return nullptr;
    ObjectRecord *block = CreateBlock(size);
    return block != nullptr ? HandleOf(*block) : nullptr;
}

REALobject PtrToMemoryBlock(const void *address) {
    HostLock lock(State().mutex);
    CheckPresent("PtrToMemoryBlock");
    LogCall("PtrToMemoryBlock", address != nullptr ? "address=set" : "address=nil");
    if (Failing("PtrToMemoryBlock")) return nullptr;
    if (address == nullptr) return nullptr;
    return HandleOf(CreateForeignBlock(const_cast<void *>(address)));
}

const Entry kEntries[] = {
    {"memoryBlockGetPtr", EntryAddress(&memoryBlockGetPtr)},
    {"memoryBlockGetSize", EntryAddress(&memoryBlockGetSize)},
    {"newMemoryBlock", EntryAddress(&newMemoryBlock)},
    {"PtrToMemoryBlock", EntryAddress(&PtrToMemoryBlock)},
};

}  // namespace

std::span<const Entry> BlockEntries() { return kEntries; }

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

REALobject NewBlock(RBInteger size) {
    HostLock lock(State().mutex);
    ObjectRecord *block = CreateBlock(size);
    return block != nullptr ? HandleOf(*block) : nullptr;
}

REALobject NewBlock(std::span<const uint8_t> bytes) {
    HostLock lock(State().mutex);
    ObjectRecord *block = CreateBlock(static_cast<RBInteger>(bytes.size()));
    if (block == nullptr) return nullptr;
    if (!bytes.empty()) std::memcpy(block->data, bytes.data(), bytes.size());
    return HandleOf(*block);
}

REALobject NewForeignBlock(void *address) {
    HostLock lock(State().mutex);
    return HandleOf(CreateForeignBlock(address));
}

REALobject NewMemorylessBlock() {
    HostLock lock(State().mutex);
    ObjectRecord &block = NewObject(ObjectKind::Block, "MemoryBlock", 0);
    return HandleOf(block);
}

std::span<uint8_t> Bytes(REALobject handle) {
    HostLock lock(State().mutex);
    ObjectRecord *found = FindObject(handle);
    if (found == nullptr) return {};
    ObjectRecord &block = *found;
    if (block.kind != ObjectKind::Block || block.ended || block.data == nullptr || block.size < 0) {
        return {};
    }
    return {block.data, static_cast<std::size_t>(block.size)};
}

}  // namespace simhost
