#include "shell/binding.h"

#include <cstddef>

#include "shell/entry.h"

namespace qvt {

namespace {

void *Ask(const char *name) { return gResolver ? gResolver(name) : nullptr; }

}  // namespace

// Relaxed is enough: the slot publishes only the address of host code, and
// two threads that miss store the same answer.
void *FindEntry(const char *name, const char *secondName, std::atomic<void *> &slot) {
    void *entry = slot.load(std::memory_order_relaxed);
    if (entry) return entry;
    entry = Ask(name);
    slot.store(entry, std::memory_order_relaxed);
    if (!entry && secondName) {
        entry = Ask(secondName);
        slot.store(entry, std::memory_order_relaxed);
    }
    return entry;
}

void ScriptEntries::AskBoth() const {
    slot_.store(resolver_(name_), std::memory_order_relaxed);
    classOf_.store(resolver_("RuntimeClassOf"), std::memory_order_relaxed);
}

ScriptEntries::Found ScriptEntries::Find() const {
    // The first look-up runs under the guard too, so that no thread sees
    // the operation without RuntimeClassOf while another is between them.
    // call_once orders every write made here before every later read.
    std::call_once(once_, [this] {
        resolver_ = reinterpret_cast<REALresolver>(Ask("GetRBScriptResolver"));
        if (resolver_) AskBoth();
    });
    if (!resolver_) return {nullptr, nullptr};
    if (!slot_.load(std::memory_order_relaxed) && !classOf_.load(std::memory_order_relaxed)) {
        AskBoth();
    }
    return {slot_.load(std::memory_order_relaxed), classOf_.load(std::memory_order_relaxed)};
}

namespace host {

namespace {

constinit HostBinding<void *(const char *, const char *)> loadGlobalMethod{"REALLoadGlobalMethod"};
constinit HostBinding<const char *(REALstring)> stringGetCString{"StringGetCString"};
constinit std::atomic<void *> lenBSlot{nullptr};
constinit HostBinding<REALobject(void (*)(void *), void *)> callWithHandler{
    "PluginCallFunctionWithExceptionHandler"};
constinit HostBinding<bool(REALobject, const char *, unsigned char *)> getBool{
    "REALGetPropValueBool"};
constinit HostBinding<REALproc(REALobject, uintptr_t)> getEventInstance{"GetEventInstance"};
constinit HostBinding<REALobject(REALclassRef)> createInstance{"CreateInstance"};
constinit HostBinding<void(REALobject, REALstring, RBInteger, RBInteger, RBInteger)>
    drawStringIntegers{"RuntimeGraphicsDrawString"};
constinit HostBinding<void(REALobject, REALstring, double, double, double)> drawStringDoubles{
    "RuntimeGraphicsDrawString"};
constinit HostBinding<RBInteger(REALobject, REALstring)> stringWidthInteger{
    "RuntimeGraphicsStringWidth"};
constinit HostBinding<double(REALobject, REALstring)> stringWidthDouble{
    "RuntimeGraphicsStringWidth"};

constexpr double kDoubleCoordinatesSince = 2018.02;
constexpr double kDoubleWidthSince = 2007.02;

}  // namespace

void *REALLoadGlobalMethod(const char *declaration) { return loadGlobalMethod(nullptr, declaration); }

REALobject PluginCallFunctionWithExceptionHandler(void (*function)(void *), void *argument) {
    if (auto entry = callWithHandler.Find()) return entry(function, argument);
    function(argument);
    return nullptr;
}

const char *StringGetCString(REALstring string, RBInteger *length) {
    if (!string) return nullptr;
    auto entry = stringGetCString.Find();
    void *lenB = lenBSlot.load(std::memory_order_relaxed);
    if (!lenB) {
        lenB = REALLoadGlobalMethod("LenB( s as string ) as integer");
        lenBSlot.store(lenB, std::memory_order_relaxed);
    }
    if (length && lenB) *length = reinterpret_cast<RBInteger (*)(REALstring)>(lenB)(string);
    return entry ? entry(string) : nullptr;
}

bool REALGetPropValueBool(REALobject object, const char *name, bool *place) {
    auto entry = getBool.Find();
    if (!entry) return false;
    // The host writes one byte of its own choosing; the caller's bool must
    // only ever hold 0 or 1.
    unsigned char byte = place && *place;
    bool found = entry(object, name, &byte) != 0;
    if (place) *place = byte != 0;
    return found;
}

REALproc GetEventInstance(REALobject instance, const REALeventDefinition *event) {
    auto entry = getEventInstance.Find();
    if (!entry || !event) return nullptr;
    uintptr_t word = event->hostSlot;
    // Record version 9: the written record's hostSlot holds the address of
    // the old-form copy, whose word the host filled in.
    if (gPluginSDKVersion == 9) {
        const auto *copy = reinterpret_cast<const uintptr_t *>(word);
        if (!copy) return nullptr;
        word = copy[offsetof(REALeventDefinition, hostSlot) / sizeof(uintptr_t)];
    }
    return entry(instance, word);
}

REALobject CreateInstance(REALclassRef cls) { return cls ? createInstance(cls) : nullptr; }

void RuntimeGraphicsDrawString(REALobject graphics, REALstring text, RBInteger x, RBInteger y,
                               RBInteger width) {
    if (gHostVersion >= kDoubleCoordinatesSince) {
        drawStringDoubles(graphics, text, static_cast<double>(x), static_cast<double>(y),
                          static_cast<double>(width));
    } else {
        drawStringIntegers(graphics, text, x, y, width);
    }
}

double RuntimeGraphicsStringWidth(REALobject graphics, REALstring text) {
    if (gHostVersion >= kDoubleWidthSince) return stringWidthDouble(graphics, text);
    return static_cast<double>(stringWidthInteger(graphics, text));
}

}  // namespace host

}  // namespace qvt
