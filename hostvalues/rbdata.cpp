#include "hostvalues/rbdata.h"

#include "diagnostics/debuglog.h"
#include "shell/binding.h"

namespace qvt {

void rbData::clear() {
    lockedString = nullptr;
    lockedObject = nullptr;
    ownsStringData = false;
    data = nullptr;
    size = 0;
    next = nullptr;
}

void rbData::enforceNullDataHasNoSize() {
    if (data || size == 0) return;
    size = 0;
    if (Debugging()) DebugLogText("data is NULL, so size fixed to zero.");
}

rbData::rbData() : stringData{} { clear(); }

// The pinning constructors delegate, so that the holder counts as built
// before the first host call and a failure thrown there still releases it.
rbData::rbData(REALobject block, RBInteger offset, RBInteger requestedSize) : rbData() {
    if (!block) return;
    host::REALLockObject(block);
    lockedObject = block;
    RBInteger known = requestedSize;
    if (known == 0) {
        known = host::memoryBlockGetSize(block);
        if (known < 0) known = 0;
    }
    if (void *memory = host::memoryBlockGetPtr(block)) {
        // Integer arithmetic: an offset that carries the address round to
        // null must be seen, not be undefined.
        data = reinterpret_cast<uint8_t *>(reinterpret_cast<uintptr_t>(memory) +
                                           static_cast<uintptr_t>(offset));
        size = static_cast<uintptr_t>(known);
    }
    enforceNullDataHasNoSize();
}

rbData::rbData(REALstring string) : rbData() {
    if (!string) return;
    host::REALLockString(string);
    lockedString = string;
    RBInteger length = 0;
    data = reinterpret_cast<uint8_t *>(const_cast<char *>(host::StringGetCString(string, &length)));
    size = length > 0 ? static_cast<uintptr_t>(length) : 0;
    enforceNullDataHasNoSize();
}

rbData::rbData(void *bytes, uintptr_t byteCount) : rbData() {
    data = static_cast<uint8_t *>(bytes);
    size = byteCount;
    enforceNullDataHasNoSize();
}

rbData::~rbData() { release(); }

void rbData::release() {
    unlock();
    clear();
}

void rbData::unlock() {
    if (REALstring string = lockedString) {
        lockedString = nullptr;
        host::REALUnlockString(string);
    }
    if (REALobject object = lockedObject) {
        lockedObject = nullptr;
        host::REALUnlockObject(object);
    }
    if (ownsStringData) {
        ownsStringData = false;
        if (Debugging()) DebugLogText("REALDisposeStringData");
        host::PluginDisposeStringData(&stringData);
    }
}

void rbData::leak() {
    if (Debugging()) DebugLogText("rbData::leak");
    lockedString = nullptr;
    lockedObject = nullptr;
    ownsStringData = false;
}

}  // namespace qvt
