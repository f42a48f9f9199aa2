// Fenced blocks: the switch, the look-up of the block an address belongs
// to, fenced memory outside any block; and the blocks that could not be had.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "simhost/state.h"

namespace simhost::detail {

bool FencedByEnvironment() {
    const char *value = std::getenv("QVT_FENCED_BLOCKS");
    return value != nullptr && std::string_view(value) == "1";
}

namespace {

// The live blocks with memory of the host's own, for the look-ups below.
template <typename Visit>
void ForOwnedBlocks(Visit visit) {
    for (const auto &o : State().objects) {
        if (o->kind == ObjectKind::Block && !o->ended && o->storage) visit(*o);
    }
}

// Addresses of different allocations compare as numbers.
bool Within(const void *begin, const void *end, const void *at) {
    const auto a = reinterpret_cast<uintptr_t>(at);
    return a >= reinterpret_cast<uintptr_t>(begin) && a < reinterpret_cast<uintptr_t>(end);
}

BlockExtent ExtentOf(const ObjectRecord &block) {
    return {HandleOf(block), NameOf(&block),           block.data,
            block.size,      block.storage.ReachBegin(), block.storage.ReachEnd()};
}

}  // namespace

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

std::vector<MemoryShortfall> TakeMemoryShortfalls() {
    HostLock lock(State().mutex);
    return std::exchange(State().shortfalls, {});
}

void SetFencedBlocks(bool on) {
    HostLock lock(State().mutex);
    State().fencedBlocks = on;
}

bool FencedBlocks() {
    HostLock lock(State().mutex);
    return State().fencedBlocks;
}

std::vector<BlockExtent> LiveBlockExtents() {
    HostLock lock(State().mutex);
    std::vector<BlockExtent> extents;
    ForOwnedBlocks([&](const ObjectRecord &block) { extents.push_back(ExtentOf(block)); });
    return extents;
}

const BlockExtent *FindExtent(std::span<const BlockExtent> extents, const void *address) {
    for (const BlockExtent &e : extents) {
        if (Within(e.reachBegin, e.reachEnd, address)) return &e;
    }
    return nullptr;
}

std::optional<AddressOwner> LocateAddress(const void *address) {
    const std::vector<BlockExtent> extents = LiveBlockExtents();
    const BlockExtent *extent = FindExtent(extents, address);
    if (extent == nullptr) return std::nullopt;
    const auto offset = static_cast<std::ptrdiff_t>(reinterpret_cast<uintptr_t>(address) -
                                                    reinterpret_cast<uintptr_t>(extent->begin));
    return AddressOwner{extent->block, extent->name, extent->size, offset};
}

namespace {

struct FencedAllocation {
    BlockMemory memory;
    std::size_t size = 0;
};

// By address; apart from the host's state, as the plug-in's memory outlives
// a Reset.
struct FencedAllocations {
    std::mutex mutex;
    std::map<const void *, FencedAllocation> live;
};

FencedAllocations &Allocations() {
    static FencedAllocations allocations;
    return allocations;
}

}  // namespace

void *AllocateFenced(std::size_t size) {
    if (size > static_cast<std::size_t>(std::numeric_limits<RBInteger>::max())) return nullptr;
    auto memory = BlockMemory::Make(static_cast<RBInteger>(size), true);
    if (!memory) return nullptr;
    void *data = memory.Data();
    FencedAllocations &a = Allocations();
    std::lock_guard lock(a.mutex);
    a.live[data] = FencedAllocation{std::move(memory), size};
    return data;
}

void *ReallocateFenced(void *memory, std::size_t size) {
    if (memory == nullptr) return AllocateFenced(size);
    std::size_t old = 0;
    {
        FencedAllocations &a = Allocations();
        std::lock_guard lock(a.mutex);
        auto it = a.live.find(memory);
        if (it == a.live.end()) return nullptr;
        old = it->second.size;
    }
    void *moved = AllocateFenced(size);
    if (moved == nullptr) return nullptr;
    std::memcpy(moved, memory, std::min(old, size));
    FreeFenced(memory);
    return moved;
}

void FreeFenced(void *memory) {
    std::optional<std::size_t> damaged;  // the size, when the front zone was written
    {
        FencedAllocations &a = Allocations();
        std::lock_guard lock(a.mutex);
        auto it = a.live.find(memory);
        if (it == a.live.end()) return;
        const BlockMemory &m = it->second.memory;
        if (!GuardIntact(m.FrontGuard(), m.Data())) damaged = it->second.size;
        a.live.erase(it);
    }
    // The host's lock comes after, never inside, this one's.
    if (damaged) {
        HostLock lock(State().mutex);
        Fault("fenced memory of " + std::to_string(*damaged) +
              " bytes: bytes written before its start");
    }
}

}  // namespace simhost
