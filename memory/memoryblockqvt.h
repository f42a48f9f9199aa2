// The class MemoryBlockQVT: an instance owns one allocation of its own and
// one reference to a host MemoryBlock over it. The functions take the
// instance first, as the host calls them.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt::MemoryBlockQVT {

// The instance data. All zero, as the host delivers it, is the empty state.
struct Data {
    int64_t size;       // above 0 exactly when `address` is set
    REALobject block;   // over `address`, or nil
    void *address;
};

// Read-only properties.
int64_t Address(REALobject instance, intptr_t param);
int64_t Size(REALobject instance, intptr_t param);
// The same host object on every read until the memory changes, with one
// reference for the caller each time.
REALobject Memory(REALobject instance, intptr_t param);

// False, and nothing changed, for a size outside 1 .. 0x7FFFFFFF, an empty
// object or a failed reallocation.
bool Resize(REALobject instance, int64_t size);
// The method and the destructor: frees everything and leaves the object empty.
void Close(REALobject instance);
// Frees the old memory whatever comes of it, then allocates zeroed memory.
bool Create(REALobject instance, int64_t size);

// All but the first empty the object, then raise on a bad argument.
void Constructor(REALobject instance);
void Constructor(REALobject instance, int64_t size);
void Constructor(REALobject instance, REALobject mem);
// Offset and size are not checked against `mem`: the range is the caller's.
void Constructor(REALobject instance, REALobject mem, int64_t size, int64_t offset);
void Constructor(REALobject instance, REALstring str);
void Constructor(REALobject instance, REALstring str, int64_t size, int64_t offset);

}  // namespace qvt::MemoryBlockQVT
