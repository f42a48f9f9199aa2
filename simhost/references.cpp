// References: locking, unlocking, and what happens when the last one goes.
#include "simhost/state.h"

namespace simhost::detail {

namespace {

void EndObject(ObjectRecord &object) {
    object.ended = true;
    switch (object.kind) {
        case ObjectKind::Block: EndBlock(object); break;
        case ObjectKind::Exception: EndException(object); break;
        case ObjectKind::Instance: EndInstance(object); break;
        case ObjectKind::Array: SyncArrayHeader(object); break;
    }
}

void EndString(StringRecord &string) {
    string.ended = true;
    // Large texts need not outlive their end; the record keeps the handle.
    if (string.storage.size() > (1u << 20)) {
        string.storage.clear();
        string.storage.shrink_to_fit();
        string.length = 0;
    }
}

}  // namespace

void LockObject(ObjectRecord &object) {
    ++object.refs;
    if (object.kind == ObjectKind::Array) SyncArrayHeader(object);
}

void UnlockObject(const char *entry, ObjectRecord &object) {
    if (ClientRefs(object) <= 0) {
        Fault(std::string(entry) + ": unlock below zero of " + NameOf(&object));
        return;
    }
    if (--object.refs == 0) {
        EndObject(object);
    } else if (object.kind == ObjectKind::Array) {
        SyncArrayHeader(object);
    }
}

void LockObjectHost(ObjectRecord &object) {
    ++object.hostRefs;
    LockObject(object);
}

// refs goes first, so that a lock-free unlock never sees more client
// references than there are.
void UnlockObjectHost(ObjectRecord &object) {
    const bool last = --object.refs == 0;
    --object.hostRefs;
    if (last) {
        EndObject(object);
    } else if (object.kind == ObjectKind::Array) {
        SyncArrayHeader(object);
    }
}

void LockString(StringRecord &string) { ++string.refs; }

void UnlockString(const char *entry, StringRecord &string) {
    if (ClientRefs(string) <= 0) {
        Fault(std::string(entry) + ": unlock below zero of " + NameOf(&string));
        return;
    }
    if (--string.refs == 0) EndString(string);
}

void LockStringHost(StringRecord &string) {
    ++string.hostRefs;
    ++string.refs;
}

void UnlockStringHost(StringRecord &string) {
    const bool last = --string.refs == 0;
    --string.hostRefs;
    if (last) EndString(string);
}

// ---- Entries: references ----------------------------------------------------

namespace {

// An array's header follows its count, so arrays take the locked path.
ObjectRecord *FastCounted(REALobject handle) {
    ObjectRecord *o = FastObject(handle);
    return o != nullptr && o->kind != ObjectKind::Array ? o : nullptr;
}

void REALLockObject(REALobject handle) {
    if (ObjectRecord *o = FastCounted(handle); o != nullptr && TryLockFast(o->refs)) return;
    HostLock lock(State().mutex);
    Announce("REALLockObject", [handle] { return NameOfObject(handle); });
    if (ObjectRecord *o = UseObject("REALLockObject", handle)) LockObject(*o);
}

void REALUnlockObject(REALobject handle) {
    if (ObjectRecord *o = FastCounted(handle); o != nullptr && TryUnlockFast(o->refs, o->hostRefs)) {
        return;
    }
    HostLock lock(State().mutex);
    Announce("REALUnlockObject", [handle] { return NameOfObject(handle); });
    if (handle == nullptr) {
        Fault("REALUnlockObject: nil object");
        return;
    }
    ObjectRecord *o = FindObject(handle);
    if (o == nullptr) {
        Fault("REALUnlockObject: unknown object handle");
        return;
    }
    UnlockObject("REALUnlockObject", *o);
}

void REALLockString(REALstring handle) {
    if (StringRecord *s = FastString(handle); s != nullptr && TryLockFast(s->refs)) return;
    HostLock lock(State().mutex);
    Announce("REALLockString", [handle] { return NameOfString(handle); });
    if (StringRecord *s = UseStringNotNil("REALLockString", handle)) LockString(*s);
}

void REALUnlockString(REALstring handle) {
    if (StringRecord *s = FastString(handle); s != nullptr && TryUnlockFast(s->refs, s->hostRefs)) {
        return;
    }
    HostLock lock(State().mutex);
    Announce("REALUnlockString", [handle] { return NameOfString(handle); });
    if (handle == nullptr) {
        Fault("REALUnlockString: nil string");
        return;
    }
    StringRecord *s = FindString(handle);
    if (s == nullptr) {
        Fault("REALUnlockString: unknown string handle");
        return;
    }
    UnlockString("REALUnlockString", *s);
}

const Entry kEntries[] = {
    {"REALLockObject", EntryAddress(&REALLockObject)},
    {"REALUnlockObject", EntryAddress(&REALUnlockObject)},
    {"REALLockString", EntryAddress(&REALLockString)},
    {"REALUnlockString", EntryAddress(&REALUnlockString)},
};

}  // namespace

std::span<const Entry> ReferenceEntries() { return kEntries; }

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

// Nil is let go before the lock: callers release whatever a call returned.
void Release(REALobject object) {
    if (object == nullptr) return;
    HostLock lock(State().mutex);
    if (ObjectRecord *o = FindObject(object)) {
        UnlockObject("Release", *o);
    } else {
        Fault("Release: unknown object handle");
    }
}

void Release(REALstring string) {
    if (string == nullptr) return;
    HostLock lock(State().mutex);
    if (StringRecord *s = FindString(string)) {
        UnlockString("Release", *s);
    } else {
        Fault("Release: unknown string handle");
    }
}

void Release(REALarray array) { Release(reinterpret_cast<REALobject>(array)); }

}  // namespace simhost
