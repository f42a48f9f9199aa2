#include "shell/modules.h"

#include <cstdio>
#include <cstring>

#include "diagnostics/debuglog.h"
#include "hostvalues/allocation.h"
#include "shell/definitions.h"
#include "shell/entry.h"
#include "shell/fixups.h"
#include "shell/validation.h"

namespace qvt {

namespace {

constexpr std::size_t kModuleNameSize = 100;
constexpr std::size_t kDeclarationSize = 1000;

char *HeapCopy(const char *text) {
    const std::size_t size = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(AllocateMemory(static_cast<int64_t>(size)));
    if (copy != nullptr) std::memcpy(copy, text, size);
    return copy;
}

int Length(const char *from, const char *to) { return static_cast<int>(to - from); }

// A synthesised module without its methods yet: the version told, its own
// name and the hidden property "Debugging". Nil without memory.
REALmoduleDefinition *NewModule(const char *name) {
    auto *module =
        static_cast<REALmoduleDefinition *>(AllocateMemory(sizeof(REALmoduleDefinition)));
    if (module == nullptr) {
        DebugLogText("Warning: Failed to allocate memory for module definition.");
        return nullptr;
    }
    module->version = static_cast<RBWord>(gPluginSDKVersion);
    module->name = HeapCopy(name);
    module->properties = &gDebuggingProperty;
    module->propertyCount = 1;
    module->flags = kFlagConsoleSafe;
    return module;
}

REALmethodDefinition *NewMethods(int64_t count) {
    auto *methods = static_cast<REALmethodDefinition *>(
        AllocateMemory(count * static_cast<int64_t>(sizeof(REALmethodDefinition))));
    if (methods == nullptr) {
        DebugLogText("Warning: Failed to allocate memory for method definitions.");
    }
    return methods;
}

// One entry of an extension module: the function with its own declaration.
bool AddEntry(REALmethodDefinition *&entry, const REALmethodDefinition &source, REALproc function,
              char *declaration) {
    if (declaration == nullptr) return false;
    *entry++ = {function,
                nullptr,
                declaration,
                source.flags | kFlagScopeExtension,
                source.attributeCount,
                source.attributes};
    return true;
}

}  // namespace

bool HostTakesModules() { return gHostVersion >= 2013.0 && gHostVersion < 3000.0; }

char *ExtendDeclaration(const char *declaration, const char *className) {
    if (declaration == nullptr) return nullptr;
    char buffer[kDeclarationSize] = {};
    const char *stop = std::strpbrk(declaration, "( ");
    if (stop == nullptr) {
        std::snprintf(buffer, sizeof buffer, "%s(extends ref as %s)", declaration, className);
    } else if (*stop == '(') {
        std::snprintf(buffer, sizeof buffer, "%.*s(extends ref as %s, %s",
                      Length(declaration, stop), declaration, className, stop + 1);
    } else {
        std::snprintf(buffer, sizeof buffer, "%.*s(extends ref as %s)%s", Length(declaration, stop),
                      declaration, className, stop);
    }
    return HeapCopy(buffer);
}

char *ExtendSetterDeclaration(const char *declaration, const char *className) {
    char *extended = ExtendDeclaration(declaration, className);
    if (extended == nullptr) return nullptr;
    char buffer[kDeclarationSize] = {};
    if (const char *close = std::strchr(extended, ')')) {
        std::snprintf(buffer, sizeof buffer, "%.*s, assigns value%s)", Length(extended, close),
                      extended, close + 1);
    } else if (const char *blank = std::strchr(extended, ' ')) {
        std::snprintf(buffer, sizeof buffer, "%.*s(assigns value%s)", Length(extended, blank),
                      extended, blank);
    } else {
        DebugLogStrings("Error: Keine Klammer in der Deklaration", extended);
        FreeMemory(extended);
        return nullptr;
    }
    FreeMemory(extended);
    return HeapCopy(buffer);
}

void RegisterExtensionModule(const REALclassDefinition *definition) {
    if (static_cast<uint32_t>(definition->methodCount) == 0) return;
    char name[kModuleNameSize] = {};
    std::snprintf(name, sizeof name, "%s%s%s", definition->name, gpartname, "ExtensionQVT");
    REALmoduleDefinition *module = NewModule(name);
    if (module == nullptr) return;

    // The assigning form of a method is an entry of its own.
    const REALmethodDefinition *methods = definition->methods;
    const uint32_t count = methods != nullptr ? static_cast<uint32_t>(definition->methodCount) : 0;
    int64_t entries = 0;
    for (uint32_t i = 0; i < count; ++i) {
        entries += (methods[i].function != nullptr) + (methods[i].setterFunction != nullptr);
    }
    REALmethodDefinition *array = NewMethods(entries);
    if (array == nullptr) return;

    REALmethodDefinition *entry = array;
    for (uint32_t i = 0; i < count; ++i) {
        const REALmethodDefinition &method = methods[i];
        const bool written =
            (method.setterFunction == nullptr ||
             AddEntry(entry, method, method.setterFunction,
                      ExtendSetterDeclaration(method.declaration, definition->name))) &&
            (method.function == nullptr ||
             AddEntry(entry, method, method.function,
                      ExtendDeclaration(method.declaration, definition->name)));
        if (!written) {
            FreeMemory(array);
            return;
        }
    }
    module->methods = array;
    module->methodCount = static_cast<RBWord>(entries);
    RegisterModule(module);
}

void RegisterMethods(REALmethodDefinition *methods, intptr_t count) {
    if (methods == nullptr) {
        DebugLog("Error: A method array registered is nil.");
        return;
    }
    if (count == 0) {
        DebugLog("Warning: A method array registered with count = 0.");
        return;
    }
    for (intptr_t i = 0; i < count; ++i) FixFlags(methods[i].flags);

    if (!HostTakesModules()) {
        for (intptr_t i = 0; i < count; ++i) RegisterMethod(&methods[i]);
        return;
    }
    char name[kModuleNameSize] = {};
    std::snprintf(name, sizeof name, "%s%s", gpartname, "GlobalsQVT");
    REALmoduleDefinition *module = NewModule(name);
    if (module == nullptr) return;
    REALmethodDefinition *array = NewMethods(count);
    if (array == nullptr) return;
    // The declarations stay the table's literals.
    for (intptr_t i = 0; i < count; ++i) {
        array[i] = methods[i];
        array[i].flags |= kFlagScopeExtension;
    }
    module->methods = array;
    module->methodCount = static_cast<RBWord>(count);
    RegisterModule(module);
}

}  // namespace qvt
