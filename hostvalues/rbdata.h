// rbData pins one MemoryBlock or String for the span of a call and exposes
// its bytes. It never raises: a nil value gives null `data`, and the method
// tests that.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

class rbData {
public:
    rbData();
    // `offset` is added to the block's pointer; a `size` of 0 asks the host.
    rbData(REALobject block, RBInteger offset, RBInteger size);
    explicit rbData(REALstring string);
    // Pins nothing: the caller vouches for the bytes.
    rbData(void *bytes, uintptr_t byteCount);
    ~rbData();

    rbData(const rbData &) = delete;
    rbData &operator=(const rbData &) = delete;

    // Gives the pins back; safe on an empty holder and safe to run twice.
    void release();
    // As release, but `data`, `size` and `next` stay readable.
    void unlock();
    // Forgets the pins without giving anything back to the host.
    void leak();

    REALstring lockedString;
    REALobject lockedObject;
    REALstringData stringData;
    bool ownsStringData;
    uint8_t *data;
    uintptr_t size;
    rbData *next;

private:
    void clear();
    void enforceNullDataHasNoSize();
};

}  // namespace qvt
