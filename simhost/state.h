// The host's state, shared by the units that implement its entries. Every
// entry takes the host lock first; the lock is recursive because a class
// destructor, run when a reference ends, calls back into the host. The
// entries a method calls on every invocation skip the lock while the host is
// plain (see PlainHost) and the call is a success; anything else, they leave
// to the locked path.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "simhost/handle_index.h"
#include "simhost/simhost.h"

namespace simhost::detail {

using HostLock = std::lock_guard<std::recursive_mutex>;

// Memory a block owns: zeroed bytes with a guard zone on each side.
// Unfenced, from calloc, with zones of a fixed size. Fenced, whole pages:
// the bytes end where the back fence page starts, and the front zone runs
// from the front fence page to the first byte.
class BlockMemory {
public:
    BlockMemory() = default;
    BlockMemory(BlockMemory &&other) noexcept { *this = std::move(other); }
    BlockMemory &operator=(BlockMemory &&other) noexcept;
    ~BlockMemory();
    // Empty when there is no memory of that size.
    static BlockMemory Make(RBInteger size, bool fenced);

    explicit operator bool() const { return base_ != nullptr; }
    uint8_t *Data() const { return data_; }
    // The zones: [FrontGuard, Data) and [Data + size, BackGuardEnd).
    uint8_t *FrontGuard() const { return base_ + fence_; }
    uint8_t *BackGuardEnd() const { return base_ + length_ - fence_; }
    // All the block reaches, fence pages included.
    const uint8_t *ReachBegin() const { return base_; }
    const uint8_t *ReachEnd() const { return base_ + length_; }

private:
    void Free();

    uint8_t *base_ = nullptr;
    std::size_t length_ = 0;
    uint8_t *data_ = nullptr;
    std::size_t fence_ = 0;  // the page size when fenced
};

enum class ObjectKind { Block, Exception, Instance, Array };

struct StringRecord;

struct ObjectRecord {
    // First, so that a lock-free entry reads one cache line. Atomic, as those
    // entries change them; the last reference always goes under the lock.
    // refs is 0 exactly when ended.
    std::atomic<long> refs{1};
    std::atomic<long> hostRefs{0};  // part of refs that the host itself holds
    std::atomic<bool> ended{false};
    ObjectKind kind = ObjectKind::Block;
    uint8_t *data = nullptr;  // Block: see below
    RBInteger size = 0;       // Block: -1 for unknown

    uint64_t serial = 0;
    std::string className;
    // What the handle points at: the instance for a class, the header for an
    // array, a small cell otherwise. Kept after the end so handles stay unique.
    std::unique_ptr<std::byte[]> body;
    std::size_t bodySize = 0;

    // Block: owned memory sits between two guard zones.
    BlockMemory storage;
    bool guardsReported = false;

    // Exception
    StringRecord *message = nullptr;  // holds a host reference
    RBInteger errorNumber = 0;
    // An exception is delivered on the thread that raised it.
    std::thread::id raisedOn;

    // Instance
    const REALclassDefinition *cls = nullptr;

    // Array
    int32_t arrayType = 0;
    std::vector<uint8_t> elements;
    std::size_t elementCount = 0;
};

struct StringRecord {
    uint64_t serial = 0;
    std::vector<char> storage;  // the bytes and four zero bytes
    std::size_t length = 0;
    uint32_t encoding = hostabi::kEncodingUnknown;
    std::atomic<long> refs{1};
    std::atomic<long> hostRefs{0};
    std::atomic<bool> ended{false};

    std::string_view Bytes() const { return {storage.data(), length}; }
};

struct StringData {
    std::unique_ptr<char[]> bytes;
};

bool FencedByEnvironment();

struct HostState {
    std::recursive_mutex mutex;
    Options options;
    std::vector<std::string> resolverLog;
    std::vector<Call> calls;
    std::vector<std::string> faults;

    std::vector<std::unique_ptr<ObjectRecord>> objects;  // serial - 1
    std::vector<std::unique_ptr<StringRecord>> strings;  // serial - 1

    std::vector<ObjectRecord *> pendingExceptions;  // each holds a host reference
    std::map<uint64_t, StringData> stringData;      // by cookie
    uint64_t nextCookie = 1;

    std::vector<Registration> registrations;
    int32_t recordVersion = 0;

    // ThrowOnNextCall: the entry and what its next call throws.
    std::string armedEntry;
    std::function<void()> armedThrow;

    // FailCall: fallible calls are counted while armed; the nth of kind
    // failEntry (any kind when empty) fails.
    bool failArmed = false;
    std::size_t failNth = 0;
    std::string failEntry;
    std::size_t failSeen = 0;
    std::vector<std::string> fallible;

    std::vector<MemoryShortfall> shortfalls;
    // Read once, when the host starts.
    bool fencedBlocks = FencedByEnvironment();
};

HostState &State();

// What the entries read without the lock: constant-initialised, so that
// reaching it costs no guard. Written with the lock held.
struct LockFreeState {
    // Nothing to record, inject or refuse; kept by UpdatePlain.
    std::atomic<bool> plain{false};
    HandleIndex<ObjectRecord> objects;
    HandleIndex<StringRecord> strings;
};
inline constinit LockFreeState gLockFree;

// Call with the lock held after a change to what PlainHost depends on.
void UpdatePlain();
// True while no call is logged, no fault armed and no entry missing: then an
// entry that succeeds does nothing the caller could see but its result.
inline bool PlainHost() { return gLockFree.plain.load(std::memory_order_relaxed); }

// The live record of `handle` for a lock-free entry, or nullptr.
template <typename Record>
Record *FastRecord(const HandleIndex<Record> &index, const void *handle) {
    if (!PlainHost() || handle == nullptr) return nullptr;
    Record *r = index.Find(handle);
    return r != nullptr && !r->ended.load(std::memory_order_relaxed) ? r : nullptr;
}
inline ObjectRecord *FastObject(const void *handle) { return FastRecord(gLockFree.objects, handle); }
inline StringRecord *FastString(const void *handle) { return FastRecord(gLockFree.strings, handle); }

// Reference changes without the lock, for a plain host. They refuse (false)
// whatever the locked path must see: an ended record, and the client's last
// reference, whose end runs under the lock.
inline bool TryLockFast(std::atomic<long> &refs) {
    long r = refs.load(std::memory_order_relaxed);
    while (r > 0) {
        if (refs.compare_exchange_weak(r, r + 1, std::memory_order_relaxed)) return true;
    }
    return false;
}

// Release: whoever ends the record later, under the lock, sees what this
// holder wrote.
inline bool TryUnlockFast(std::atomic<long> &refs, const std::atomic<long> &hostRefs) {
    long r = refs.load(std::memory_order_relaxed);
    while (r - hostRefs.load(std::memory_order_relaxed) > 1) {
        if (refs.compare_exchange_weak(r, r - 1, std::memory_order_release,
                                       std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

// Runs the part of an entry whose memory grows with its input. A host short
// of memory answers `none` and records a shortfall of `size` bytes, as for a
// block, rather than let std::bad_alloc leave the entry.
template <typename Result, typename Make>
Result OrShortfall(const char *entry, std::size_t size, Result none, Make make) {
    try {
        return make();
    } catch (const std::bad_alloc &) {
        State().shortfalls.push_back({entry, static_cast<RBInteger>(size)});
        return none;
    }
}

// Log helpers; call with the lock held.
void LogCall(const char *entry, std::string args = {});
void Fault(std::string text);
// Records a fault when an entry that the host is set up without is called
// all the same (its address was kept from an earlier answer).
void CheckPresent(const char *entry);
// Counts a fallible call of `entry` and answers whether it is to fail.
bool Failing(const char *entry);
// CheckPresent and LogCall, with the argument text made only when logged.
template <typename Args>
void Announce(const char *entry, Args args) {
    if (PlainHost()) return;
    CheckPresent(entry);
    LogCall(entry, State().options.logCalls ? args() : std::string());
}

// Readable, deterministic argument texts.
std::string Quote(std::string_view bytes);
std::string NameOf(const ObjectRecord *object);
std::string NameOf(const StringRecord *string);
std::string NameOfObject(const void *handle);
std::string NameOfString(const void *handle);

// Plain look-up: nullptr for handles the host does not know.
ObjectRecord *FindObject(const void *handle);
StringRecord *FindString(const void *handle);
// References that callers hold; the host's own left out.
long ClientRefs(const ObjectRecord &object);
long ClientRefs(const StringRecord &string);

// Handle look-up for an entry. Nil, unknown and ended handles record a fault
// naming the entry and answer nullptr.
ObjectRecord *UseObject(const char *entry, const void *handle);
// As UseObject, but nil is the empty string and answers nullptr silently.
StringRecord *UseString(const char *entry, const void *handle, bool *bad = nullptr);
StringRecord *UseStringNotNil(const char *entry, const void *handle);

// Creation; the record carries one reference for the caller.
ObjectRecord &NewObject(ObjectKind kind, std::string className, std::size_t bodySize);
StringRecord &NewStringRecord(std::string_view bytes, uint32_t encoding);
REALobject HandleOf(const ObjectRecord &object);
REALstring HandleOf(const StringRecord &string);

// Reference changes; the *Host forms count the reference as the host's.
void LockObject(ObjectRecord &object);
void UnlockObject(const char *entry, ObjectRecord &object);
void LockString(StringRecord &string);
void UnlockString(const char *entry, StringRecord &string);
void LockObjectHost(ObjectRecord &object);
void UnlockObjectHost(ObjectRecord &object);
void LockStringHost(StringRecord &string);
void UnlockStringHost(StringRecord &string);

// Per-kind work when the last reference of an object goes.
void EndBlock(ObjectRecord &block);
void EndException(ObjectRecord &exception);
void EndInstance(ObjectRecord &instance);
void SyncArrayHeader(ObjectRecord &array);
void CheckBlockGuards(ObjectRecord &block);
// True when every byte of the zone holds the guard pattern.
bool GuardIntact(const uint8_t *begin, const uint8_t *end);

// Block creation shared by the entries and the test helpers; `entry` is
// who asked, for the shortfalls.
ObjectRecord *CreateBlock(const char *entry, RBInteger size);
// Zeroed memory of `size` bytes between guard zones, fenced when the host
// fences; empty when there is none, which a size of 0 or more records as a
// shortfall.
BlockMemory NewBlockMemory(const char *entry, RBInteger size);
// Gives the block `memory` (from NewBlockMemory, or empty for none) of
// `size` bytes in place of its own, whose guards are checked first.
void SetBlockMemory(ObjectRecord &block, BlockMemory memory, RBInteger size);
ObjectRecord &CreateForeignBlock(void *address);
ObjectRecord *CreateInstance(std::string_view className);
ObjectRecord *CreateArray(int32_t type, RBInteger ubound);
int64_t ReadElement(const ObjectRecord &array, std::size_t index);
void WriteElement(ObjectRecord &array, std::size_t index, int64_t value);

// Text conversion with this host's limits (its version decides which ids it
// knows). Answers false when the host cannot convert.
bool HostConvert(std::string_view bytes, uint32_t from, uint32_t to, std::string &out);

// Entry tables of the units, for the resolver.
struct Entry {
    const char *name;
    void *address;
    double since = 0.0;  // hosts below this version lack the entry
};
std::span<const Entry> ReferenceEntries();
std::span<const Entry> BlockEntries();
std::span<const Entry> StringEntries();
std::span<const Entry> StringDataEntries();
std::span<const Entry> ExceptionEntries();
std::span<const Entry> PropertyEntries();
std::span<const Entry> ArrayEntries();
std::span<const Entry> RegistryEntries();
std::span<const Entry> VersionEntries();
std::span<const Entry> MemberEntries();

// Reading the plug-in's records as the host does.
const char *TextWord(const void *record, std::size_t word);
uintptr_t Word(const void *record, std::size_t word);
// The record of the registered class of that name, or nullptr.
const REALclassDefinition *RegisteredClass(std::string_view name);

template <typename F>
void *EntryAddress(F *function) {
    return reinterpret_cast<void *>(function);
}

}  // namespace simhost::detail
