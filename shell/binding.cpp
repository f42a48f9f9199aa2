#include "shell/binding.h"

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

namespace host {

namespace {

constinit HostBinding<void *(const char *, const char *)> loadGlobalMethod{"REALLoadGlobalMethod"};
constinit HostBinding<const char *(REALstring)> stringGetCString{"StringGetCString"};
constinit std::atomic<void *> lenBSlot{nullptr};
constinit HostBinding<REALobject(void (*)(void *), void *)> callWithHandler{
    "PluginCallFunctionWithExceptionHandler"};

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

}  // namespace host

}  // namespace qvt
