// The runtime's services beyond the plug-in's own needs: class properties
// through a second resolver, instances by class, event handlers, and text
// drawing in the form of the host's age.
#include <algorithm>
#include <cstdio>

#include "simhost/state.h"

namespace simhost::detail {

namespace {

bool IsMissing(std::string_view name) {
    const auto &missing = State().options.missingEntries;
    return std::find(missing.begin(), missing.end(), name) != missing.end();
}

// A class is the address of its registered record; the host's own classes
// have none here.
const REALclassDefinition *UseClass(const char *entry, REALclassRef cls) {
    for (const Registration &r : State().registrations) {
        if (r.kind == "Class" && r.record == cls) return static_cast<const REALclassDefinition *>(r.record);
    }
    Fault(std::string(entry) + ": unknown class");
    return nullptr;
}

REALclassRef ClassRef(const REALclassDefinition *cls) {
    return reinterpret_cast<REALclassRef>(const_cast<REALclassDefinition *>(cls));
}

REALclassRef RuntimeClassOf(REALobject object) {
    HostLock lock(State().mutex);
    LogCall("RuntimeClassOf", NameOfObject(object));
    if (object == nullptr) return nullptr;
    ObjectRecord *o = UseObject("RuntimeClassOf", object);
    return o != nullptr ? ClassRef(o->cls) : nullptr;
}

RBInteger REALCountClassProperties(REALclassRef cls) {
    HostLock lock(State().mutex);
    LogCall("REALCountClassProperties");
    const REALclassDefinition *c = UseClass("REALCountClassProperties", cls);
    return c != nullptr ? static_cast<RBInteger>(c->propertyCount) : 0;
}

// This host's form: the property at `index`, its name, type and accessors.
intptr_t REALGetClassProperty(REALclassRef cls, RBInteger index, const char **name,
                              const char **type, REALproc *getter, REALproc *setter) {
    HostLock lock(State().mutex);
    LogCall("REALGetClassProperty", "index=" + std::to_string(index));
    const REALclassDefinition *c = UseClass("REALGetClassProperty", cls);
    if (c == nullptr || index < 0 || static_cast<RBWord>(index) >= c->propertyCount) return 0;
    const REALpropertyDefinition &p = c->properties[index];
    if (name != nullptr) *name = p.name;
    if (type != nullptr) *type = p.type;
    if (getter != nullptr) *getter = p.getter;
    if (setter != nullptr) *setter = p.setter;
    return 1;
}

// The second resolver: what GetRBScriptResolver answers. Its questions are
// logged as calls of "ScriptResolver".
void *ScriptResolve(const char *name) {
    HostLock lock(State().mutex);
    LogCall("ScriptResolver", name != nullptr ? name : "(nil)");
    if (name == nullptr || IsMissing(name)) return nullptr;
    std::string_view n = name;
    if (n == "RuntimeClassOf") return EntryAddress(&RuntimeClassOf);
    if (n == "REALCountClassProperties") return EntryAddress(&REALCountClassProperties);
    if (n == "REALGetClassProperty") return EntryAddress(&REALGetClassProperty);
    return nullptr;
}

REALobject CreateInstanceOf(REALclassRef cls) {
    HostLock lock(State().mutex);
    CheckPresent("CreateInstance");
    LogCall("CreateInstance");
    const REALclassDefinition *c = UseClass("CreateInstance", cls);
    ObjectRecord *instance = c != nullptr ? CreateInstance(c->name) : nullptr;
    return instance != nullptr ? HandleOf(*instance) : nullptr;
}

// No class here implements an event, so no instance has a handler.
REALproc GetEventInstance(REALobject instance, uintptr_t eventWord) {
    HostLock lock(State().mutex);
    CheckPresent("GetEventInstance");
    LogCall("GetEventInstance", NameOfObject(instance) + " " + std::to_string(eventWord));
    UseObject("GetEventInstance", instance);
    return nullptr;
}

// Text is 6.5 units wide a byte.
double Width(REALstring text) {
    StringRecord *s = UseString("RuntimeGraphicsStringWidth", text);
    return s != nullptr ? 6.5 * static_cast<double>(s->length) : 0.0;
}

std::string DrawArgs(REALobject graphics, REALstring text) {
    StringRecord *s = UseString("RuntimeGraphicsDrawString", text);
    return NameOfObject(graphics) + " " + Quote(s != nullptr ? s->Bytes() : "");
}

std::string Coordinate(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

void DrawStringIntegers(REALobject graphics, REALstring text, RBInteger x, RBInteger y,
                        RBInteger width) {
    HostLock lock(State().mutex);
    LogCall("RuntimeGraphicsDrawString", DrawArgs(graphics, text) + " " + std::to_string(x) +
                                             " " + std::to_string(y) + " " +
                                             std::to_string(width));
}

void DrawStringDoubles(REALobject graphics, REALstring text, double x, double y, double width) {
    HostLock lock(State().mutex);
    LogCall("RuntimeGraphicsDrawString", DrawArgs(graphics, text) + " " + Coordinate(x) + " " +
                                             Coordinate(y) + " " + Coordinate(width));
}

RBInteger StringWidthInteger(REALobject graphics, REALstring text) {
    HostLock lock(State().mutex);
    LogCall("RuntimeGraphicsStringWidth", NameOfObject(graphics) + " (integer)");
    return static_cast<RBInteger>(Width(text));
}

double StringWidthDouble(REALobject graphics, REALstring text) {
    HostLock lock(State().mutex);
    LogCall("RuntimeGraphicsStringWidth", NameOfObject(graphics));
    return Width(text);
}

const Entry kEntries[] = {
    {"GetRBScriptResolver", EntryAddress(&ScriptResolve)},
    {"CreateInstance", EntryAddress(&CreateInstanceOf)},
    {"GetEventInstance", EntryAddress(&GetEventInstance)},
};

}  // namespace

std::span<const Entry> RuntimeEntries() { return kEntries; }

void *EntryOfForm(std::string_view name, double version) {
    if (name == "RuntimeGraphicsDrawString") {
        return version >= 2018.02 ? EntryAddress(&DrawStringDoubles)
                                  : EntryAddress(&DrawStringIntegers);
    }
    if (name == "RuntimeGraphicsStringWidth") {
        return version >= 2007.02 ? EntryAddress(&StringWidthDouble)
                                  : EntryAddress(&StringWidthInteger);
    }
    return nullptr;
}

}  // namespace simhost::detail

namespace simhost {

REALclassRef ClassOf(std::string_view className) {
    detail::HostLock lock(detail::State().mutex);
    return detail::ClassRef(detail::RegisteredClass(className));
}

}  // namespace simhost
