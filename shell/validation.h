// Front ends that check a definition, report each fault as one line of the
// debug log, fix it up for the host and register it. A fault stops nothing:
// only a nil record or a nil part name keep a definition from the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "abi/plugin_abi.h"
#include "diagnostics/debuglog.h"
#include "hostvalues/allocation.h"
#include "shell/entry.h"

namespace qvt {

void RegisterClass(REALclassDefinition *definition);
void RegisterClassExtension(REALclassDefinition *definition);
void RegisterModule(REALmoduleDefinition *definition);
void RegisterMethod(REALmethodDefinition *definition);

// The pair rule: a list is right when pointer and count are both absent, or
// both present with the count at most `limit`. A limit of 0 allows no list.
bool ListIsRight(const void *list, RBWord count, uint32_t limit);

// A list of a record as the byte offset of its pointer; the count is the
// word behind it. The message takes the record's name and the count.
struct ListRule {
    std::size_t offset;
    uint32_t limit;
    const char *message;
};
// The pair rule over each list of `record`, in the order of `rules`.
void CheckLists(const void *record, const char *name, std::span<const ListRule> rules);

// The start of every front end, `kind` naming the record in messages
// ("class", "control"): false when the record is nil or there is no part
// name, as then nothing may go to the host.
template <typename Record>
bool MayRegister(const Record *d, const char *kind) {
    if (d == nullptr) {
        DebugLog("Error: A %s registered is nil.", kind);
        return false;
    }
    if (gpartname == nullptr) {
        DebugLog("Error: gpartname is nil!? %s", d->name);
        return false;
    }
    return true;
}
// A record version other than the current one or `alsoRight` is reported.
void CheckRecordVersion(const char *kind, const char *name, RBWord version,
                        uint32_t alsoRight = kCurrentREALControlVersion);
void CheckForSystemUse(const char *kind, const char *name, RBWord forSystemUse);

// Validators of member lists; `owner` names the class or module in messages.
void CheckAttributes(const char *prefix, const char *owner,
                     const REALattributeDefinition *attributes, RBWord count);
void CheckMethods(const char *owner, const REALmethodDefinition *methods, RBWord count);
void CheckProperties(const char *owner, const REALpropertyDefinition *properties, RBWord count);
void CheckConstants(const char *owner, const REALconstantDefinition *constants, RBWord count);
void CheckEvents(const char *owner, const REALeventDefinition *events, RBWord count);
void CheckDelegates(const char *owner, const REALdelegateDefinition *delegates, RBWord count);

// Where the delegates of a record are checked: a class has them before its
// shared members, an extension or a control after.
enum class Delegates { BeforeShared, AfterShared };

// The member lists of a class, class extension or control, in the order
// their faults are reported.
template <typename Record>
void CheckMemberLists(const Record *d, Delegates delegates) {
    CheckMethods(d->name, d->methods, d->methodCount);
    CheckProperties(d->name, d->properties, d->propertyCount);
    CheckConstants(d->name, d->constants, d->constantCount);
    CheckEvents(d->name, d->events, d->eventCount);
    if (delegates == Delegates::BeforeShared)
        CheckDelegates(d->name, d->delegates, d->delegateCount);
    CheckMethods(d->name, d->sharedMethods, d->sharedMethodCount);
    CheckProperties(d->name, d->sharedProperties, d->sharedPropertyCount);
    if (delegates == Delegates::AfterShared)
        CheckDelegates(d->name, d->delegates, d->delegateCount);
}

// Console-safe members of a console-unsafe class or module; for a class also
// direct-access properties whose variable ends beyond the class's data.
void CheckClassMembers(const REALclassDefinition *definition);
void CheckModuleMembers(const REALmoduleDefinition *definition);

// The offset half of CheckClassMembers: a direct-access variable, taken as
// 4 bytes, must end inside `dataSize` as written.
void CheckVariableOffsets(const char *owner, const REALpropertyDefinition *properties,
                          RBWord count, RBWord dataSize);

// One line "text owner, member" through the debug log's text front end for
// each member whose target bits, flags & kFlagTargetMask, equal `target`
// (reportEqual) or differ from it (!reportEqual). A member named `spared` is
// passed over, and so is a list with a nil pointer or a count below 1.
void ReportMembersByTarget(const char *text, const char *owner, const REALmethodDefinition *list,
                           RBWord count, uint32_t target, bool reportEqual);
void ReportMembersByTarget(const char *text, const char *owner,
                           const REALpropertyDefinition *list, RBWord count, uint32_t target,
                           bool reportEqual, const char *spared = nullptr);

// Hands a record to the host, in its written form from record version 10
// on, else with the old form of `oldWords` words written over its first
// words. Without memory for the old form the record is not registered.
template <typename Record, typename Entry>
void ToHost(Record *definition, uintptr_t *(*oldForm)(const Record *), std::size_t oldWords,
            const Entry &registerEntry) {
    if (gPluginSDKVersion >= 10) {
        definition->version = static_cast<RBWord>(gPluginSDKVersion);
        registerEntry(definition);
        return;
    }
    uintptr_t *old = oldForm(definition);
    if (old == nullptr) return;
    // The host keeps the table's address, so the old form goes over it.
    std::memcpy(static_cast<void *>(definition), old, oldWords * sizeof(uintptr_t));
    registerEntry(definition);
    FreeMemory(old);
}

}  // namespace qvt
