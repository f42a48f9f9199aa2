// Front ends that check a definition, report each fault as one line of the
// debug log, fix it up for the host and register it. A fault stops nothing:
// only a nil record or a nil part name keep a definition from the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "abi/plugin_abi.h"
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

// Validators of member lists; `owner` names the class or module in messages.
void CheckAttributes(const char *prefix, const char *owner,
                     const REALattributeDefinition *attributes, RBWord count);
void CheckMethods(const char *owner, const REALmethodDefinition *methods, RBWord count);
void CheckProperties(const char *owner, const REALpropertyDefinition *properties, RBWord count);
void CheckConstants(const char *owner, const REALconstantDefinition *constants, RBWord count);
void CheckEvents(const char *owner, const REALeventDefinition *events, RBWord count);
void CheckDelegates(const char *owner, const REALdelegateDefinition *delegates, RBWord count);

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
