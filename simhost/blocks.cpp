// Memory blocks: owned (zeroed, between guard bytes, or fence pages when the
// host fences), foreign (over memory of unknown size) and memoryless.
#include <cstdint>
#include <cstdlib>
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
// No block is larger: more than any machine here could give, and below the
// size at which a sanitizer's allocator ends the process instead of failing.
constexpr uint64_t kLargestBlock = uint64_t{1} << 39;

}  // namespace

bool GuardIntact(const uint8_t *begin, const uint8_t *end) {
    for (const uint8_t *p = begin; p < end; ++p) {
        if (*p != kGuardByte) return false;
    }
    return true;
}

BlockMemory &BlockMemory::operator=(BlockMemory &&other) noexcept {
    if (this != &other) {
        Free();
        base_ = std::exchange(other.base_, nullptr);
        length_ = std::exchange(other.length_, 0);
        data_ = std::exchange(other.data_, nullptr);
        fence_ = std::exchange(other.fence_, 0);
    }
    return *this;
}

BlockMemory::~BlockMemory() { Free(); }

void BlockMemory::Free() {
    if (fence_ != 0) {
        platform::UnmapPages(base_, length_);
    } else {
        std::free(base_);
    }
    base_ = data_ = nullptr;
}

BlockMemory BlockMemory::Make(RBInteger size, bool fenced) {
    BlockMemory m;
    if (size < 0 || static_cast<uint64_t>(size) > kLargestBlock) return m;
    const auto bytes = static_cast<std::size_t>(size);
    if (fenced) {
        const std::size_t page = platform::PageSize();
        if (bytes > SIZE_MAX - 3 * page) return m;
        const std::size_t pages = (bytes + page - 1) / page;
        const std::size_t length = (pages + 2) * page;
        auto *base = static_cast<uint8_t *>(platform::MapPages(length));
        if (base == nullptr) return m;
        m.base_ = base;
        m.length_ = length;
        m.fence_ = page;
        if (!platform::FencePages(base, page) ||
            !platform::FencePages(base + length - page, page)) {
            return BlockMemory();
        }
        m.data_ = base + length - page - bytes;
    } else {
        if (bytes > SIZE_MAX - 2 * kGuard) return m;
        // calloc: large blocks stay untouched, and so cheap, until used.
        m.length_ = bytes + 2 * kGuard;
        m.base_ = static_cast<uint8_t *>(std::calloc(m.length_, 1));
        if (m.base_ == nullptr) return m;
        if (m.length_ >= kLargePages) platform::AdviseLargePages(m.base_, m.length_);
        m.data_ = m.base_ + kGuard;
    }
    uint8_t *end = m.data_ + bytes;
    std::memset(m.FrontGuard(), kGuardByte, static_cast<std::size_t>(m.data_ - m.FrontGuard()));
    std::memset(end, kGuardByte, static_cast<std::size_t>(m.BackGuardEnd() - end));
    return m;
}

BlockMemory NewBlockMemory(const char *entry, RBInteger size) {
    BlockMemory memory = BlockMemory::Make(size, State().fencedBlocks);
    if (!memory && size >= 0) State().shortfalls.push_back({entry, size});
    return memory;
}

void SetBlockMemory(ObjectRecord &block, BlockMemory memory, RBInteger size) {
    CheckBlockGuards(block);
    block.storage = std::move(memory);
    block.data = block.storage.Data();
    block.size = size;
    block.guardsReported = false;
}

ObjectRecord *CreateBlock(const char *entry, RBInteger size) {
    BlockMemory memory = NewBlockMemory(entry, size);
    if (!memory) return nullptr;
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
    const BlockMemory &m = block.storage;
    if (!m || block.guardsReported) return;
    bool before = GuardIntact(m.FrontGuard(), m.Data());
    bool after = GuardIntact(m.Data() + block.size, m.BackGuardEnd());
    if (before && after) return;
    block.guardsReported = true;
    if (!before) Fault(NameOf(&block) + ": bytes written before its start");
    if (!after) Fault(NameOf(&block) + ": bytes written past its end");
}

void EndBlock(ObjectRecord &block) {
    CheckBlockGuards(block);
    if (block.storage && block.size > kKeptAfterEnd) {
        block.storage = BlockMemory();
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
    ObjectRecord *block = CreateBlock("newMemoryBlock", size);
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
    ObjectRecord *block = CreateBlock("NewBlock", size);
    return block != nullptr ? HandleOf(*block) : nullptr;
}

REALobject NewBlock(std::span<const uint8_t> bytes) {
    HostLock lock(State().mutex);
    ObjectRecord *block = CreateBlock("NewBlock", static_cast<RBInteger>(bytes.size()));
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
