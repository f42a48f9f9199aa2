// Bindings: every host service is reached by name through the resolver. A
// binding finds its entry on first use, keeps it in its slot, and gives a
// fixed result while the host has no such entry.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "abi/plugin_abi.h"

namespace qvt {

// Looks the entry up while the slot is nil: the first name, then the second.
// A nil answer is stored too, so a missing entry is asked for on every call.
void *FindEntry(const char *name, const char *secondName, std::atomic<void *> &slot);

template <typename Result>
struct MissingResult {
    Result value{};
};
template <>
struct MissingResult<void> {};

template <typename Signature>
class HostBinding;

template <typename Result, typename... Args>
class HostBinding<Result(Args...)> {
    // A host answers a bool as a word; the binding turns it into true or false.
    static constexpr bool kReducesToBool = std::is_same_v<Result, bool>;
    using HostResult = std::conditional_t<kReducesToBool, intptr_t, Result>;

public:
    using Entry = HostResult (*)(Args...);

    constexpr explicit HostBinding(const char *name, const char *secondName = nullptr)
        : name_(name), secondName_(secondName) {}
    constexpr HostBinding(const char *name, const char *secondName, MissingResult<Result> missing)
        : name_(name), secondName_(secondName), missing_(missing) {}

    Entry Find() const {
        return reinterpret_cast<Entry>(FindEntry(name_, secondName_, slot_));
    }

    Result operator()(Args... args) const {
        Entry entry = Find();
        if constexpr (std::is_void_v<Result>) {
            if (entry) entry(args...);
        } else if constexpr (kReducesToBool) {
            return entry ? entry(args...) != 0 : missing_.value;
        } else {
            return entry ? entry(args...) : missing_.value;
        }
    }

    const char *name() const { return name_; }

private:
    const char *name_;
    const char *secondName_;
    // One word, written without a lock: a race only repeats a look-up.
    mutable std::atomic<void *> slot_{nullptr};
    [[no_unique_address]] MissingResult<Result> missing_{};
};

}  // namespace qvt

// One line per host operation, under the host's own name.
#define QVT_HOST_BINDING(name, signature, ...) \
    inline constinit ::qvt::HostBinding<signature> name{#name __VA_OPT__(, ) __VA_ARGS__}

namespace qvt::host {

QVT_HOST_BINDING(REALinRuntime, bool());
QVT_HOST_BINDING(PluginRegisterClass, void(REALclassDefinition *));
QVT_HOST_BINDING(PluginRegisterClassExtension, void(REALclassDefinition *));
QVT_HOST_BINDING(PluginRegisterModule, void(REALmoduleDefinition *));
QVT_HOST_BINDING(PluginRegisterMethod, void(REALmethodDefinition *));
QVT_HOST_BINDING(PluginRegisterControl, void(REALcontrolDefinition *));
QVT_HOST_BINDING(PluginRegisterInterface, void(REALinterfaceDefinition *));
QVT_HOST_BINDING(PluginRegisterDBCursor, void(REALdbCursorDefinition *));
QVT_HOST_BINDING(PluginRegisterDBEngine, void(REALdbEngineDefinition *));
QVT_HOST_BINDING(REALLockObject, void(REALobject));
QVT_HOST_BINDING(REALUnlockObject, void(REALobject));
QVT_HOST_BINDING(REALLockString, void(REALstring));
QVT_HOST_BINDING(REALUnlockString, void(REALstring));
QVT_HOST_BINDING(memoryBlockGetPtr, void *(REALobject));
QVT_HOST_BINDING(memoryBlockGetSize, RBInteger(REALobject));
QVT_HOST_BINDING(newMemoryBlock, REALobject(RBInteger));
QVT_HOST_BINDING(PtrToMemoryBlock, REALobject(const void *));
QVT_HOST_BINDING(PluginNewInstance, REALobject(const char *));
QVT_HOST_BINDING(REALSetPropValueInteger, bool(REALobject, const char *, RBInteger),
                 "REALSetPropValueInt");
QVT_HOST_BINDING(REALGetPropValueInteger, bool(REALobject, const char *, RBInteger *),
                 "REALGetPropValueInt");
QVT_HOST_BINDING(REALSetPropValueString, bool(REALobject, const char *, REALstring));
QVT_HOST_BINDING(RuntimeRaiseException, void(REALobject));
QVT_HOST_BINDING(REALBuildString, REALstring(const void *, int32_t));
QVT_HOST_BINDING(REALBuildStringWithEncoding, REALstring(const void *, int32_t, uint32_t));
QVT_HOST_BINDING(REALConvertString, REALstring(REALstring, uint32_t));
QVT_HOST_BINDING(REALSetStringEncoding, void(REALstring, uint32_t));
QVT_HOST_BINDING(REALGetStringEncoding, uint32_t(REALstring));
QVT_HOST_BINDING(PluginGetStringData, bool(REALstring, uint32_t, REALstringData *));
QVT_HOST_BINDING(PluginDisposeStringData, void(REALstringData *));
QVT_HOST_BINDING(RuntimeUBound, RBInteger(REALarray));
QVT_HOST_BINDING(RuntimeArrayCreateSingleDimBoundedArray, REALarray(int32_t, RBInteger));
QVT_HOST_BINDING(RuntimeDirectReadObjectArray, REALobject(REALarray, RBInteger));
QVT_HOST_BINDING(RuntimeDirectReadStringArray, REALstring(REALarray, RBInteger));
QVT_HOST_BINDING(PluginGetTextData, void *(void *, const char *, RBInteger));
QVT_HOST_BINDING(PluginDisposeTextData, void(void *));
QVT_HOST_BINDING(RuntimeAddString, REALstring(REALstring, REALstring));
QVT_HOST_BINDING(REALLoadObjectMethod, void *(REALobject, const char *));

// Runs `function(argument)` under the host's exception handler and gives the
// exception object raised meanwhile, or nil. Without the host's entry the
// function is still run, unguarded.
REALobject PluginCallFunctionWithExceptionHandler(void (*function)(void *), void *argument);

// A global function of the host's language, found by its declaration.
void *REALLoadGlobalMethod(const char *declaration);

// The string's bytes; when `length` is given, its length in bytes is stored
// there through the host's own LenB.
const char *StringGetCString(REALstring string, RBInteger *length);

}  // namespace qvt::host
