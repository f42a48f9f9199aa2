// The host's state, its logs, and handles: names, look-up and creation.
#include "simhost/state.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace simhost::detail {

HostState &State() {
    static HostState state;
    return state;
}

void UpdatePlain() {
    HostState &s = State();
    const bool plain = !s.options.logCalls && s.options.missingEntries.empty() && !s.armedThrow &&
                       !s.failArmed;
    gLockFree.plain.store(plain, std::memory_order_relaxed);
}

void LogCall(const char *entry, std::string args) {
    HostState &s = State();
    if (s.options.logCalls) s.calls.push_back({entry, std::move(args)});
    if (s.armedThrow && s.armedEntry == entry) {
        auto raise = std::exchange(s.armedThrow, nullptr);
        UpdatePlain();
        raise();
    }
}

void Fault(std::string text) { State().faults.push_back(std::move(text)); }

void CheckPresent(const char *entry) {
    const Options &o = State().options;
    bool missing = std::find(o.missingEntries.begin(), o.missingEntries.end(), entry) !=
                   o.missingEntries.end();
    if (missing) Fault(std::string(entry) + ": called, but this host has no such entry");
}

std::string Quote(std::string_view bytes) {
    constexpr std::size_t kShown = 64;
    std::string out = "\"";
    for (std::size_t i = 0; i < bytes.size() && i < kShown; ++i) {
        auto c = static_cast<unsigned char>(bytes[i]);
        if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
            out += static_cast<char>(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    out += bytes.size() > kShown ? "\"..." : "\"";
    return out;
}

std::string NameOf(const ObjectRecord *object) {
    if (object == nullptr) return "nil";
    return object->className + "#" + std::to_string(object->serial);
}

std::string NameOf(const StringRecord *string) {
    if (string == nullptr) return "nil";
    return "String#" + std::to_string(string->serial);
}

ObjectRecord *FindObject(const void *handle) { return gLockFree.objects.Find(handle); }

StringRecord *FindString(const void *handle) { return gLockFree.strings.Find(handle); }

long ClientRefs(const ObjectRecord &o) { return o.ended ? 0 : o.refs - o.hostRefs; }
long ClientRefs(const StringRecord &s) { return s.ended ? 0 : s.refs - s.hostRefs; }

std::string NameOfObject(const void *handle) {
    if (handle == nullptr) return "nil";
    ObjectRecord *o = FindObject(handle);
    return o != nullptr ? NameOf(o) : "unknown object";
}

std::string NameOfString(const void *handle) {
    if (handle == nullptr) return "nil";
    StringRecord *s = FindString(handle);
    return s != nullptr ? NameOf(s) : "unknown string";
}

ObjectRecord *UseObject(const char *entry, const void *handle) {
    if (handle == nullptr) {
        Fault(std::string(entry) + ": nil object");
        return nullptr;
    }
    ObjectRecord *o = FindObject(handle);
    if (o == nullptr) {
        Fault(std::string(entry) + ": unknown object handle");
        return nullptr;
    }
    if (o->ended) {
        Fault(std::string(entry) + ": " + NameOf(o) + " used after its end");
        return nullptr;
    }
    return o;
}

StringRecord *UseString(const char *entry, const void *handle, bool *bad) {
    if (bad != nullptr) *bad = false;
    if (handle == nullptr) return nullptr;
    StringRecord *s = FindString(handle);
    if (s == nullptr) {
        Fault(std::string(entry) + ": unknown string handle");
    } else if (s->ended) {
        Fault(std::string(entry) + ": " + NameOf(s) + " used after its end");
        s = nullptr;
    } else {
        return s;
    }
    if (bad != nullptr) *bad = true;
    return nullptr;
}

StringRecord *UseStringNotNil(const char *entry, const void *handle) {
    if (handle == nullptr) {
        Fault(std::string(entry) + ": nil string");
        return nullptr;
    }
    return UseString(entry, handle);
}

ObjectRecord &NewObject(ObjectKind kind, std::string className, std::size_t bodySize) {
    HostState &s = State();
    auto record = std::make_unique<ObjectRecord>();
    record->serial = s.objects.size() + 1;
    record->kind = kind;
    record->className = std::move(className);
    record->bodySize = std::max<std::size_t>(bodySize, sizeof(void *));
    record->body = std::make_unique<std::byte[]>(record->bodySize);  // zeroed
    ObjectRecord &r = *record;
    gLockFree.objects.Insert(r.body.get(), &r);
    s.objects.push_back(std::move(record));
    return r;
}

StringRecord &NewStringRecord(std::string_view bytes, uint32_t encoding) {
    HostState &s = State();
    auto record = std::make_unique<StringRecord>();
    record->serial = s.strings.size() + 1;
    record->storage.assign(bytes.size() + 4, '\0');
    std::copy(bytes.begin(), bytes.end(), record->storage.begin());
    record->length = bytes.size();
    record->encoding = encoding;
    StringRecord &r = *record;
    gLockFree.strings.Insert(&r, &r);
    s.strings.push_back(std::move(record));
    return r;
}

REALobject HandleOf(const ObjectRecord &object) {
    return reinterpret_cast<REALobject>(object.body.get());
}

REALstring HandleOf(const StringRecord &string) {
    return reinterpret_cast<REALstring>(const_cast<StringRecord *>(&string));
}

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

void Reset(const Options &options) {
    HostState &s = State();
    HostLock lock(s.mutex);
    s.options = options;
    s.resolverLog.clear();
    s.calls.clear();
    s.faults.clear();
    s.pendingExceptions.clear();
    s.stringData.clear();
    s.nextCookie = 1;
    s.registrations.clear();
    s.recordVersion = 0;
    s.armedEntry.clear();
    s.armedThrow = nullptr;
    s.failArmed = false;
    s.fallible.clear();
    s.shortfalls.clear();
    gLockFree.objects.Clear();
    gLockFree.strings.Clear();
    s.objects.clear();
    s.strings.clear();
    UpdatePlain();
}

Options CurrentOptions() {
    HostLock lock(State().mutex);
    return State().options;
}

std::vector<Call> Calls() {
    HostLock lock(State().mutex);
    return State().calls;
}

void ClearCalls() {
    HostLock lock(State().mutex);
    State().calls.clear();
}

std::size_t CountCalls(std::string_view entry) {
    HostLock lock(State().mutex);
    const auto &calls = State().calls;
    return static_cast<std::size_t>(
        std::count_if(calls.begin(), calls.end(), [&](const Call &c) { return c.entry == entry; }));
}

std::vector<std::string> Faults() {
    HostState &s = State();
    HostLock lock(s.mutex);
    for (auto &o : s.objects) {
        if (o->kind == ObjectKind::Block && !o->ended) CheckBlockGuards(*o);
    }
    return s.faults;
}

void ClearFaults() {
    HostLock lock(State().mutex);
    State().faults.clear();
}

}  // namespace simhost
