#include "shell/fixups.h"

#include <cstring>

#include "diagnostics/debuglog.h"
#include "hostvalues/allocation.h"
#include "shell/definitions.h"
#include "shell/entry.h"

namespace qvt {

namespace {

constexpr std::size_t kWord = sizeof(uintptr_t);

// Counts travel in whole words but carry a 32-bit value.
uint32_t Count(RBWord count) { return static_cast<uint32_t>(count); }

template <typename Record>
void FixListFlags(Record *list, RBWord count) {
    if (!ListHasMembers(list, count)) return;
    for (uint32_t i = 0; i < Count(count); ++i) FixFlags(list[i].flags);
}

// The one list fix-up: the first KeptWords words of each record, in order.
template <typename Record, std::size_t KeptWords>
uintptr_t *FixList(const char *name, const Record *list, RBWord count) {
    static_assert(KeptWords * kWord <= sizeof(Record));
    if (Count(count) == 0 && list == nullptr) return nullptr;
    if (Count(count) == 0 || list == nullptr) {
        DebugLog("Error: %s called with wrong parameters: %p %d", name,
                 static_cast<const void *>(list), static_cast<int>(Count(count)));
        return nullptr;
    }
    auto *copy = static_cast<uintptr_t *>(
        AllocateMemory(static_cast<int64_t>(Count(count)) * KeptWords * kWord));
    if (copy == nullptr) return nullptr;
    for (uint32_t i = 0; i < Count(count); ++i) {
        std::memcpy(copy + i * KeptWords, &list[i], KeptWords * kWord);
    }
    return copy;
}

template <typename Record>
void SetDefaultScope(const char *nilMessage, Record *list, RBWord count) {
    if (Count(count) == 0) return;
    if (list == nullptr) {
        DebugLogText(nilMessage);
        return;
    }
    for (uint32_t i = 0; i < Count(count); ++i) {
        if ((list[i].flags & kFlagScopeMask) == 0) list[i].flags |= kFlagScopeDefault;
    }
}

uintptr_t Word(const void *pointer) { return reinterpret_cast<uintptr_t>(pointer); }
uintptr_t Word(REALproc function) { return reinterpret_cast<uintptr_t>(function); }

// Words kept in place from the written record into its old form.
template <typename Record>
void CopyWords(uintptr_t *old, const Record *record, std::size_t first, std::size_t count) {
    std::memcpy(old + first, reinterpret_cast<const unsigned char *>(record) + first * kWord,
                count * kWord);
}

// A zero-filled old form that starts with the record version told; nil
// without memory.
uintptr_t *NewOldForm(std::size_t words) {
    auto *old = static_cast<uintptr_t *>(AllocateMemory(static_cast<int64_t>(words * kWord)));
    if (old != nullptr) old[0] = static_cast<uintptr_t>(gPluginSDKVersion);
    return old;
}

}  // namespace

bool ListHasMembers(const void *list, RBWord count) {
    return list != nullptr && static_cast<int32_t>(count) >= 1;
}

void FixFlags(RBWord &flags) {
    if (gHostVersion < 2020.02 && (flags & 0x708) == kFlagAllDesktopTargets) {
        flags = (flags & ~RBWord{kFlagAllDesktopTargets}) | kFlagConsoleSafe;
    }
    if (flags & kFlagConsoleSafeFrom2010) {
        flags &= ~RBWord{kFlagConsoleSafeFrom2010};
        if (gHostVersion >= 2010.029) flags |= kFlagConsoleSafe;
    }
}

void FixClassFlags(REALclassDefinition *definition) {
    FixFlags(definition->flags);
    FixListFlags(definition->methods, definition->methodCount);
    FixListFlags(definition->sharedMethods, definition->sharedMethodCount);
    FixListFlags(definition->properties, definition->propertyCount);
    FixListFlags(definition->sharedProperties, definition->sharedPropertyCount);
}

void FixModuleFlags(REALmoduleDefinition *definition) {
    FixListFlags(definition->methods, definition->methodCount);
    FixListFlags(definition->properties, definition->propertyCount);
}

void FixScope(REALmoduleDefinition *definition) {
    SetDefaultScope("Error: method array is nil while count is not zero!", definition->methods,
                    definition->methodCount);
    SetDefaultScope("Error: property array is nil while count is not zero!", definition->properties,
                    definition->propertyCount);
    SetDefaultScope("Error: enum array is nil while count is not zero!", definition->enums,
                    definition->enumCount);
}

uintptr_t *FixMethods(const REALmethodDefinition *list, RBWord count) {
    return FixList<REALmethodDefinition, 4>("FixMethods", list, count);
}

uintptr_t *FixProperties(const REALpropertyDefinition *list, RBWord count) {
    return FixList<REALpropertyDefinition, 10>("FixProperties", list, count);
}

uintptr_t *FixConstants(const REALconstantDefinition *list, RBWord count) {
    return FixList<REALconstantDefinition, 3>("FixConstants", list, count);
}

uintptr_t *FixStructures(const REALstructureDefinition *list, RBWord count) {
    return FixList<REALstructureDefinition, 4>("FixStructures", list, count);
}

uintptr_t *FixEnums(const REALenumDefinition *list, RBWord count) {
    return FixList<REALenumDefinition, 5>("FixEnums", list, count);
}

uintptr_t *FixEvents(REALeventDefinition *list, RBWord count) {
    constexpr std::size_t kKept = 2;
    uintptr_t *copy = FixList<REALeventDefinition, kKept>("FixEvents", list, count);
    // The host fills in its word in the copy; GetEventInstance finds the copy
    // through the written record.
    if (copy != nullptr) {
        for (uint32_t i = 0; i < Count(count); ++i) list[i].hostSlot = Word(copy + i * kKept);
    }
    return copy;
}

uintptr_t *FixClass(const REALclassDefinition *d) {
    uintptr_t *old = NewOldForm(kOldClassWords);
    if (old == nullptr) return nullptr;
    old[1] = Word(d->name);
    old[2] = Word(d->superName);
    old[3] = d->dataSize;
    old[4] = d->forSystemUse;
    old[5] = Word(d->hostField5);
    old[6] = Word(d->destructor);
    old[7] = Word(FixProperties(d->properties, d->propertyCount));
    old[8] = d->propertyCount;
    old[9] = Word(FixMethods(d->methods, d->methodCount));
    old[10] = d->methodCount;
    old[11] = Word(FixEvents(d->events, d->eventCount));
    old[12] = d->eventCount;
    old[13] = Word(d->eventInstances);
    old[14] = d->eventInstanceCount;
    old[15] = Word(d->hostField15);
    // 16, 17: the old form has no attributes.
    old[18] = Word(FixConstants(d->constants, d->constantCount));
    old[19] = d->constantCount;
    old[20] = d->flags;
    old[23] = Word(FixMethods(d->sharedMethods, d->sharedMethodCount));
    old[24] = d->sharedMethodCount;
    old[21] = Word(FixProperties(d->sharedProperties, d->sharedPropertyCount));
    old[22] = d->sharedPropertyCount;
    return old;
}

uintptr_t *FixModule(const REALmoduleDefinition *d) {
    uintptr_t *old = NewOldForm(kOldModuleWords);
    if (old == nullptr) return nullptr;
    old[1] = Word(d->name);
    old[2] = Word(FixMethods(d->methods, d->methodCount));
    old[3] = d->methodCount;
    old[4] = Word(FixConstants(d->constants, d->constantCount));
    old[5] = d->constantCount;
    old[6] = Word(FixProperties(d->properties, d->propertyCount));
    old[7] = d->propertyCount;
    old[8] = Word(FixStructures(d->structures, d->structureCount));
    old[9] = d->structureCount;
    old[10] = Word(FixEnums(d->enums, d->enumCount));
    old[11] = d->enumCount;
    return old;
}

uintptr_t *OldControlForm(const REALcontrolDefinition *d) {
    uintptr_t *old = NewOldForm(kOldControlWords);
    if (old == nullptr) return nullptr;
    CopyWords(old, d, 1, 7);  // name to defaultHeight
    old[8] = Word(FixProperties(d->properties, d->propertyCount));
    old[9] = d->propertyCount;
    old[10] = Word(FixMethods(d->methods, d->methodCount));
    old[11] = d->methodCount;
    old[12] = Word(FixEvents(d->events, d->eventCount));
    old[13] = d->eventCount;
    CopyWords(old, d, 14, 4);  // to eventInstanceCount
    // 18 to 20: the old form has no attributes.
    old[21] = Word(FixConstants(d->constants, d->constantCount));
    old[22] = d->constantCount;
    return old;
}

uintptr_t *OldInterfaceForm(const REALinterfaceDefinition *d) {
    uintptr_t *old = NewOldForm(kOldInterfaceWords);
    if (old == nullptr) return nullptr;
    old[1] = Word(d->name);
    old[2] = Word(FixMethods(d->methods, d->methodCount));
    old[3] = d->methodCount;
    return old;
}

void RoundDataSize(RBWord &dataSize) { dataSize = (dataSize + 15) / 16 * 16; }

void FixControl(REALcontrolDefinition *definition) {
    RoundDataSize(definition->dataSize);
    if ((definition->flags & kFlagControlMenuEvents) == 0) return;
    // The host brings these five events itself. A control with the flag has
    // at least five; one with fewer is left as written rather than overrun.
    constexpr uint32_t kHostMenuEvents = 5;
    if (definition->events == nullptr || Count(definition->eventCount) < kHostMenuEvents) return;
    definition->events += kHostMenuEvents;
    definition->eventCount -= kHostMenuEvents;
    static constexpr struct {
        const char *written;
        const char *renamed;
    } kRenamed[] = {
        {"EnableMenuItems", "MenuBarSelected"},
        {"GotFocus", "FocusReceived"},
        {"LostFocus", "FocusLost"},
    };
    for (uint32_t i = 0; i < Count(definition->eventCount); ++i) {
        const char *&declaration = definition->events[i].declaration;
        if (declaration == nullptr) continue;
        for (const auto &rename : kRenamed) {
            if (std::strcmp(declaration, rename.written) == 0) {
                declaration = rename.renamed;
                break;
            }
        }
    }
}

}  // namespace qvt
