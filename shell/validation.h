// Front ends that check a definition, report each fault as one line of the
// debug log, fix it up for the host and register it. A fault stops nothing:
// only a nil record or a nil part name keep a definition from the host.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

void RegisterClass(REALclassDefinition *definition);
void RegisterClassExtension(REALclassDefinition *definition);
void RegisterModule(REALmoduleDefinition *definition);
void RegisterMethod(REALmethodDefinition *definition);

// The pair rule: a list is right when pointer and count are both absent, or
// both present with the count at most `limit`. A limit of 0 allows no list.
bool ListIsRight(const void *list, RBWord count, uint32_t limit);

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

}  // namespace qvt
