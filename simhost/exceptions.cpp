// Exception classes, their two properties, and delivery of raised ones.
#include <algorithm>
#include <cctype>

#include "simhost/state.h"

namespace simhost::detail {

namespace {

constexpr const char *kExceptionClasses[] = {
    "NilObjectException",   "OutOfBoundsException",
    "OutOfMemoryException", "UnsupportedOperationException",
    "RuntimeException",     "IllegalCastException",
};

bool SameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

bool IsMissingClass(std::string_view name) {
    const auto &missing = State().options.missingClasses;
    return std::find(missing.begin(), missing.end(), name) != missing.end();
}

REALobject PluginNewInstance(const char *className) {
    HostLock lock(State().mutex);
    CheckPresent("PluginNewInstance");
    LogCall("PluginNewInstance", className != nullptr ? className : "nil");
    if (Failing("PluginNewInstance")) return nullptr;
    if (className == nullptr) {
        Fault("PluginNewInstance: nil class name");
        return nullptr;
    }
    if (IsMissingClass(className)) return nullptr;
    for (const char *known : kExceptionClasses) {
        if (std::string_view(known) == className) {
            return HandleOf(NewObject(ObjectKind::Exception, known, 0));
        }
    }
    // The host's own block class, before its constructor: no memory yet.
    if (std::string_view(className) == "MemoryBlock") {
        return HandleOf(NewObject(ObjectKind::Block, "MemoryBlock", 0));
    }
    ObjectRecord *instance = CreateInstance(className);
    return instance != nullptr ? HandleOf(*instance) : nullptr;
}

std::string PropArgs(REALobject object, const char *name) {
    return NameOfObject(object) + " " + (name != nullptr ? name : "nil");
}

intptr_t SetInteger(const char *entry, REALobject object, const char *name, RBInteger value) {
    HostLock lock(State().mutex);
    CheckPresent(entry);
    LogCall(entry, PropArgs(object, name) + "=" + std::to_string(value));
    ObjectRecord *o = UseObject(entry, object);
    if (o == nullptr || name == nullptr) return 0;
    if (o->kind == ObjectKind::Exception && SameName(name, "ErrorNumber")) {
        o->errorNumber = value;
        return 1;
    }
    return 0;
}

intptr_t GetInteger(const char *entry, REALobject object, const char *name, RBInteger *value) {
    HostLock lock(State().mutex);
    CheckPresent(entry);
    LogCall(entry, PropArgs(object, name));
    ObjectRecord *o = UseObject(entry, object);
    if (o == nullptr || name == nullptr) return 0;
    if (value == nullptr) {
        Fault(std::string(entry) + ": nil place for the value");
        return 0;
    }
    if (o->kind == ObjectKind::Exception && SameName(name, "ErrorNumber")) {
        *value = o->errorNumber;
        return 1;
    }
    if (o->kind == ObjectKind::Block && SameName(name, "Size")) {
        *value = o->size;
        return 1;
    }
    return 0;
}

intptr_t REALSetPropValueInteger(REALobject object, const char *name, RBInteger value) {
    return SetInteger("REALSetPropValueInteger", object, name, value);
}

intptr_t REALSetPropValueInt(REALobject object, const char *name, RBInteger value) {
    return SetInteger("REALSetPropValueInt", object, name, value);
}

intptr_t REALGetPropValueInteger(REALobject object, const char *name, RBInteger *value) {
    return GetInteger("REALGetPropValueInteger", object, name, value);
}

intptr_t REALGetPropValueInt(REALobject object, const char *name, RBInteger *value) {
    return GetInteger("REALGetPropValueInt", object, name, value);
}

intptr_t REALSetPropValueString(REALobject object, const char *name, REALstring value) {
    HostLock lock(State().mutex);
    CheckPresent("REALSetPropValueString");
    LogCall("REALSetPropValueString", PropArgs(object, name) + "=" + NameOfString(value));
    ObjectRecord *o = UseObject("REALSetPropValueString", object);
    bool bad = false;
    StringRecord *s = UseString("REALSetPropValueString", value, &bad);
    if (o == nullptr || name == nullptr || bad) return 0;
    if (o->kind != ObjectKind::Exception || !SameName(name, "Message")) return 0;
    if (s != nullptr) LockStringHost(*s);
    if (o->message != nullptr) UnlockStringHost(*o->message);
    o->message = s;
    return 1;
}

void RuntimeRaiseException(REALobject object) {
    HostLock lock(State().mutex);
    CheckPresent("RuntimeRaiseException");
    LogCall("RuntimeRaiseException", NameOfObject(object));
    ObjectRecord *o = UseObject("RuntimeRaiseException", object);
    if (o == nullptr) return;
    if (o->kind != ObjectKind::Exception) {
        Fault("RuntimeRaiseException: " + NameOf(o) + " is no exception");
        return;
    }
    LockObjectHost(*o);
    o->raisedOn = std::this_thread::get_id();
    State().pendingExceptions.push_back(o);
}

const Entry kEntries[] = {
    {"PluginNewInstance", EntryAddress(&PluginNewInstance)},
    {"RuntimeRaiseException", EntryAddress(&RuntimeRaiseException)},
};

const Entry kPropertyEntries[] = {
    {"REALSetPropValueInteger", EntryAddress(&REALSetPropValueInteger)},
    {"REALSetPropValueInt", EntryAddress(&REALSetPropValueInt)},
    {"REALGetPropValueInteger", EntryAddress(&REALGetPropValueInteger)},
    {"REALGetPropValueInt", EntryAddress(&REALGetPropValueInt)},
    {"REALSetPropValueString", EntryAddress(&REALSetPropValueString)},
};

}  // namespace

void EndException(ObjectRecord &exception) {
    if (exception.message != nullptr) {
        UnlockStringHost(*exception.message);
        exception.message = nullptr;
    }
}

std::span<const Entry> ExceptionEntries() { return kEntries; }
std::span<const Entry> PropertyEntries() { return kPropertyEntries; }

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

std::vector<RaisedException> TakeExceptions() {
    HostState &s = State();
    HostLock lock(s.mutex);
    std::vector<ObjectRecord *> pending;
    pending.swap(s.pendingExceptions);
    std::vector<RaisedException> out;
    for (ObjectRecord *e : pending) {
        RaisedException r;
        r.className = e->className;
        r.errorNumber = e->errorNumber;
        if (e->message != nullptr) {
            std::string text;
            if (!HostConvert(e->message->Bytes(), e->message->encoding, hostabi::kEncodingUTF8,
                             text)) {
                text = e->message->Bytes();
            }
            r.message = std::move(text);
        }
        out.push_back(std::move(r));
        UnlockObjectHost(*e);
    }
    return out;
}

}  // namespace simhost
