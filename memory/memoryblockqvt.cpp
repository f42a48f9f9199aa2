#include "memory/memoryblockqvt.h"

#include <cstring>

#include "hostvalues/allocation.h"
#include "hostvalues/blocks.h"
#include "hostvalues/platform_memory.h"
#include "hostvalues/raise.h"
#include "hostvalues/rbdata.h"
#include "shell/binding.h"
#include "shell/definitions.h"

namespace qvt::MemoryBlockQVT {

namespace {

constexpr int64_t kLargestAllocation = 0x7FFFFFFF;

// The host writes the data's place into the class record at registration;
// read it on every call rather than keep a copy that could go stale.
Data &DataOf(REALobject instance) {
    return *reinterpret_cast<Data *>(reinterpret_cast<uint8_t *>(instance) +
                                     gMemoryBlockQVTClass.forSystemUse);
}

void DropBlock(Data &data) {
    if (data.block) {
        host::REALUnlockObject(data.block);
        data.block = nullptr;
    }
}

void Reset(Data &data) {
    DropBlock(data);
    if (data.address) FreeMemory(data.address);
    data.address = nullptr;
    data.size = 0;
}

// Without a host block the object still holds its memory.
void TakeOver(Data &data, void *address, int64_t size) {
    DropBlock(data);
    data.address = address;
    data.size = size;
    data.block = WrapPtr(address);
}

void RaiseNil() {
    RaiseException("NilObjectException", "Memoryblock is nil", hostabi::kEncodingASCII);
}

void RaiseSize() {
    RaiseException("UnsupportedOperationException", "Size must be greater than zero.",
                   hostabi::kEncodingASCII);
}

void RaiseNoMemory() {
    RaiseException("OutOfMemoryException", "Failed to allocate memory", hostabi::kEncodingASCII);
}

// The common end of the constructors: `size` fresh bytes, copied from
// `source` when there is one.
void Fill(Data &data, int64_t size, const uint8_t *source) {
    if (size <= 0) return RaiseSize();
    void *address = AllocateMemory(size);
    if (!address) return RaiseNoMemory();
    TakeOver(data, address, size);
    if (source) std::memcpy(address, source, static_cast<std::size_t>(size));
}

// The copying constructors over a pinned block or string; `mem` tells a nil
// value from one the holder found no bytes in.
void CopyFrom(REALobject instance, const void *mem, const rbData &source, int64_t size,
              int64_t offset) {
    if (!mem) return RaiseNil();
    // A source without a data pointer but with a size to copy would be read
    // at null; it gets the nil error instead, after the size test.
    if (size > 0 && !source.data) return RaiseNil();
    Fill(DataOf(instance), size, size > 0 ? source.data + offset : nullptr);
}

}  // namespace

int64_t Address(REALobject instance, intptr_t) {
    return static_cast<int64_t>(reinterpret_cast<intptr_t>(DataOf(instance).address));
}

int64_t Size(REALobject instance, intptr_t) { return DataOf(instance).size; }

REALobject Memory(REALobject instance, intptr_t) {
    REALobject block = DataOf(instance).block;
    if (block) host::REALLockObject(block);
    return block;
}

bool Resize(REALobject instance, int64_t size) {
    Data &data = DataOf(instance);
    // Reallocation would make memory from nothing; an empty object stays empty.
    if (size <= 0 || size > kLargestAllocation || !data.address) return false;
    void *address = platform::Reallocate(data.address, static_cast<std::size_t>(size));
    if (!address) return false;
    TakeOver(data, address, size);
    return true;
}

void Close(REALobject instance) { Reset(DataOf(instance)); }

bool Create(REALobject instance, int64_t size) {
    Data &data = DataOf(instance);
    Reset(data);
    if (size <= 0) return false;
    void *address = AllocateMemory(size);
    if (!address) return false;
    TakeOver(data, address, size);
    return true;
}

void Constructor(REALobject) {}

void Constructor(REALobject instance, int64_t size) {
    Data &data = DataOf(instance);
    Reset(data);
    Fill(data, size, nullptr);
}

void Constructor(REALobject instance, REALobject mem) {
    Reset(DataOf(instance));
    rbData source(mem, 0, 0);
    CopyFrom(instance, mem, source, static_cast<int64_t>(source.size), 0);
}

void Constructor(REALobject instance, REALobject mem, int64_t size, int64_t offset) {
    Reset(DataOf(instance));
    rbData source(mem, 0, 0);
    CopyFrom(instance, mem, source, size, offset);
}

void Constructor(REALobject instance, REALstring str) {
    Reset(DataOf(instance));
    rbData source(str);
    CopyFrom(instance, str, source, static_cast<int64_t>(source.size), 0);
}

void Constructor(REALobject instance, REALstring str, int64_t size, int64_t offset) {
    Reset(DataOf(instance));
    rbData source(str);
    CopyFrom(instance, str, source, size, offset);
}

}  // namespace qvt::MemoryBlockQVT
