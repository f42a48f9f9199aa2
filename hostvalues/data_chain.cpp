#include "hostvalues/data_chain.h"

#include "diagnostics/debuglog.h"

namespace qvt {

namespace {

// Any failure, of the allocation or of the host while pinning, ends here;
// a holder whose constructor failed has already given its pin back.
template <typename... Args>
rbData *NewHolder(Args... args) {
    try {
        return new rbData(args...);
    } catch (...) {
        if (Debugging()) DebugLogText("Failed to allocate rbData object.");
        return nullptr;
    }
}

template <typename Pinned>
rbData *FindPinned(rbData *head, Pinned rbData::*field, Pinned value) {
    for (rbData *holder = head; holder; holder = holder->next) {
        if (holder->*field == value) return holder;
    }
    return nullptr;
}

}  // namespace

rbData *NewBlockData(REALobject block, RBInteger offset, RBInteger size) {
    return NewHolder(block, offset, size);
}

rbData *NewStringData(REALstring string) { return NewHolder(string); }

// A null holder, as a failed NewBlockData gives, is left out of the chain.
void AddDataChain(rbData **head, rbData *holder) {
    if (Debugging()) DebugLogPointer("AddDataChain", holder);
    if (!head || !holder) return;
    holder->next = *head;
    *head = holder;
}

void FreeDataChain(rbData *head) {
    while (head) {
        rbData *next = head->next;  // release clears it
        delete head;
        head = next;
    }
}

rbData *FindDataChainObject(rbData *head, REALobject object) {
    return FindPinned(head, &rbData::lockedObject, object);
}

rbData *FindDataChainString(rbData *head, REALstring string) {
    return FindPinned(head, &rbData::lockedString, string);
}

}  // namespace qvt
